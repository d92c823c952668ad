// File descriptors of POSIX systems.
#pragma once

#include <string>

// open(2) with close-on-exec, never waiting for the other end of a pipe, never taking a terminal; a file that O_CREAT
// makes gets mode 0666 less the umask. The descriptor lies above the three standard ones: where one of those is closed,
// the file would take its place and get the program's texts. -1 on failure, with errno.
int OpenDescriptor(const std::string& path, int flags);
