// The start of the program: host options, and the choice of the machine behind the port.
#pragma once

#include "platform/platform.h"

// Takes the host options off the arguments, attaches the drives and returns the machine of this run, which lives until
// the process ends. On a bad host option one line on standard error says which argument and why, nothing is created or
// written, and the process ends with exit code 1; after --version and --help it ends with 0. On Windows the line comes
// from the system as it was typed, and the arguments are not looked at.
Platform& StartPlatform(int argc, char** argv);
