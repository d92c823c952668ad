// The first bytes of a file in SectorBuffer, where the table reader and the boot record decoder look for them.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

// A file as the user named it: the upper-case name that messages show, and the spelling that the file system is asked
// for. Written by Main.
inline std::string FileName;
inline std::string FilePath;

// How a file is opened that is only read.
inline constexpr OpenMode kReadFile{kAccessRead, kShareRead, kOpenExisting, kFlagNormal};

// Sizes SectorBuffer to 3072 bytes and reads the start of the file into it; what lies behind a shorter file's end reads
// as 0. LastTransferBytes gets 3072, or the file's length where that is smaller. False when the file does not exist or
// can't be read.
bool LoadFileHeader();
