// The whole program on a machine double: Main from the first check to the end of the run, as often as a test likes.
#pragma once

#include <cstdint>

#include "support/machine_double.h"

// Puts every program-wide value back to what it is when the process starts, and the machine behind the port.
void ResetProgram(Platform& machine);

// Resets the program and runs Main; returns the level that the run ended with.
std::int32_t RunMain(Platform& machine);
