// The run of the program, from the command line to the end of whatever mode it asks for.
#pragma once

// Takes the command line from the port and runs straight through. Every path ends the process with an errorlevel.
[[noreturn]] void Main();
