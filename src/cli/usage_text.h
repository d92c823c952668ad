// The help screens: the program's only documentation for its users, and part of what batch files and front ends see.
#pragma once

// Prints the whole text, or with `copy_only` the section on the copy commands, in one write; then a hint, where the
// command line names neither a drive nor a mode that needs none.
void ShowUsage(bool copy_only);
