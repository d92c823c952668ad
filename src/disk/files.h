// Two questions about a file, by its path in the bytes of OriginalText. Nothing is printed.
#pragma once

#include <cstdint>
#include <string>

// Whether a directory search for `path` yields anything; any failure of the search is a no. A folder counts.
bool FileExists(const std::string& path);
// The file's length in bytes, exact over 64 bits; 0 where there is no such file or it can't be opened.
std::uint64_t FileLength(const std::string& path);
