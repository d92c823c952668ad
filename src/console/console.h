// Output, prompts and the end of the run.
//
// By convention a message carries its line break (CR LF) in front and none behind, so that the cursor stays at the end
// of the last line. All output goes to standard output.
#pragma once

#include <string>
#include <string_view>

#include "platform/platform.h"

// What the run ends with, as batch files read it.
enum Level : std::int16_t {
  kLevelOk = 0,
  kLevelBadParameter = 1,
  kLevelUserAbort = 2,
  kLevelNotFound = 3,
  kLevelNotUsb = 4,
  kLevelUnknown = 5,
  kLevelOperational = 6,
  kLevelWriteError = 7,
  kLevelBootRecord = 9,
};

inline constexpr std::string_view kProgramName = "KORVENTIX";

// Standard output as it was last fetched; written by ConsoleWrite, closed by MyExitProcess.
inline Handle StdOutHandle = 0;
// True when standard output could not be written at the start: the run then ends with exit code 0 and no last line
// breaks. Written by ProbeConsole and by Main's banner, read by MyExitProcess.
inline bool NoConsole = false;

// Writes all of `text`, adding nothing. The result matters at the start of the run alone; everything later goes on
// whatever becomes of its output.
bool ConsoleWrite(std::string_view text);
// With OptDebug, the text as it is; otherwise nothing.
void Diagnose(std::string_view text);
// The same on a line of its own.
void DebugWrite(std::string_view text);
// The same again with the present date and time in front of the text.
void DebugLog(std::string_view text);

// Prints `message`, on a line of its own; unless OptSure is set, shows it in a box too. Returns the box's answer
// (kAnswer...), 0 with OptSure.
int ReportBox(std::string_view message, int buttons = kBoxOk, std::string_view title = kProgramName);
// Asks in a box of OK and Cancel, with nothing on the console. True for OK; with OptSure at once.
bool Confirmed(std::string_view question, int icon = 0, std::string_view title = kProgramName);

// Closes the dialogs in which the shell reacts to a changed drive, in two passes 1000 ms apart.
void CloseShellPopups();

// Does not return: closes what the run holds open and ends it with `level`. Volume locks are left to the end of the
// process.
[[noreturn]] void MyExitProcess(std::int16_t level);
