// The host options: what stands in front of the command line, begins with two hyphens and never reaches it. Parsing
// looks at no file and changes nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated/drive_traits.h"

inline constexpr int kHighestDriveNumber = 98;

// One --drive.
struct DriveOption {
  std::string argument;  // N=FILE..., for messages
  int number = 0;        // 0 to kHighestDriveNumber
  std::string file;      // as typed, UTF-8
  DriveTraits traits;
  std::uint64_t file_bytes = 0;  // the length that the file is to have; 0: the one that it has
};

struct HostOptions {
  std::vector<DriveOption> drives;
  bool no_wait = false;
  bool version = false;
  bool help = false;
  std::optional<std::uint64_t> seed;
  std::size_t consumed = 0;  // how many arguments they are
};

// Reads the host options off the front of `arguments` (UTF-8, without the program's name). False when one of them is
// bad: `problem` then names the argument and says why, in one line.
bool ParseHostOptions(const std::vector<std::string>& arguments, HostOptions& options, std::string& problem);

// The rest, from argument `first` on, joined by single blanks, bytes as they are. An argument that begins with FILE=
// (any case) and has no double quote gets quotes around what follows, since the shell has taken them away.
std::string JoinCommandLine(const std::vector<std::string>& arguments, std::size_t first);

// An argument of a Windows command line, and where the line goes on behind it.
struct LineArgument {
  std::string text;
  std::size_t end;
};
// Splits a line as the C runtime does, the program's name being the first argument.
std::vector<LineArgument> SplitCommandLine(std::string_view line);

// What --help shows.
std::string HostHelpText();
