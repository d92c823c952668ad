// The few calls of the operating system that a machine needs for itself; one source per system.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

// The program's arguments in UTF-8, without the program's name.
std::vector<std::string> HostArguments(int argc, char** argv);
// The command line behind the first `host_arguments` of them, as the user typed it, in the system's own encoding.
std::string CommandLineBehind(const std::vector<std::string>& arguments, std::size_t host_arguments);
// That line in code page 1252, and the part of it that stands behind `characters` characters of that text, from
// character `first` on.
std::string TextOfLine(const std::string& line);
std::string PartOfLine(const std::string& line, std::size_t first, std::size_t characters);
// Keeps a write to a closed pipe, or above the limit for the size of files, from ending the process: it fails.
void IgnoreWriteSignals();
std::uint32_t ProcessId();
// The folder that the program's own file lies in, without a separator at its end, and the path of a file in it; both in
// the system's own encoding.
std::string SystemProgramFolder();
std::string SystemPathBesideProgram(const std::string& name);
// Writes text of code page 1252 to standard output, in one call of the system where that takes it all.
ErrorCode WriteStandardOutput(std::string_view text);
// Local date and time in the platform's general format.
std::string LocalDateTime(std::chrono::system_clock::time_point time);
// Shows a message box and returns the answer (kAnswer...). `printed` tells that the text has just gone to standard
// output, so that it need not be said again where that is the user's terminal.
int AskUser(const std::string& text, int buttons, const std::string& title, bool printed);
// Ends the process.
[[noreturn]] void EndProcess(std::int32_t level);
// As the services of the port.
void SystemSuppressErrorBoxes();
void SystemCloseShellDialog(const std::string& title);
