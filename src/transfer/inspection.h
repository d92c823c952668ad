// The inspection commands: a dump of what lies on a drive or in a file, with a decoded report where it begins with a
// partition table or a boot record. Nothing is written.
#pragma once

#include <string>

// Shows 1 to 100 sectors of the drive, which is open and identified; at LBA 0 no more than six. Ends the run: level 0,
// or 6 when it can't be read or an expression names nothing.
[[noreturn]] void DriveInfoCommand(const std::string& usb_start, const std::string& copy_length);

// Shows up to 3072 bytes of the file named by FileName and FilePath. Ends the run: level 0, 1 when it does not exist, 6
// when no file is named, it can't be read, or an expression names nothing.
[[noreturn]] void FileInfo(const std::string& file_start, const std::string& copy_length);
