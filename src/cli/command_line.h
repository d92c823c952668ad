// Parsing of the command line into the option model.
//
// There is no tokeniser: an option is present when a fixed text stands somewhere in the line. Most keywords begin with
// a blank, so they match at the start of a word and match longer words too; value keywords match inside any word.
#pragma once

#include <string>
#include <string_view>

// One blank, then the command line in upper case, up to VOLUME=. Written by BuildCmdLine and TakeVolumeName.
inline std::string CmdLine;

// Position expressions that Main passes on to the copies and inspections; they stay text. FILE= goes to FileName and
// FilePath.
struct PositionArguments {
  std::string usb_start = "0";
  std::string file_start = "0";
  std::string copy_length = "0";
};

// True when CmdLine contains the text.
bool HasKeyword(std::string_view keyword);

// The steps of parsing, in the order in which Main takes them. An error prints its message and ends the run with
// level 1.
void BuildCmdLine(const std::string& raw_line);
// Takes VOLUME= off the line: all that follows is label text. Returns the message that is held back until DRIVE= is
// known, empty without VOLUME=.
std::string TakeVolumeName(const std::string& raw_line);
void ParseSizeLimit();
PositionArguments ParseArguments();
void ParseLayoutFlags();
void DeriveBootType();
void ParseRunFlags();
void RefuseConflicts();
// False when DRIVE= is missing, or nothing stands behind it; a text that is no number leaves DriveNumber at 0.
bool ParseDriveNumber();
