// Programs for Windows, run under Wine in a prefix of the build's own.
#pragma once

#include <string>
#include <vector>

#include "support/run.h"

// Runs a command of cmd.exe, or a program, in a folder; it is ended after `seconds`.
RunResult RunUnderWine(const std::string& folder, const std::vector<std::string>& command, int seconds);
// What Wine calls a file of this system.
std::string WindowsPath(std::string file);
