// The program-wide handles of drive and file, and how a handle is closed.
#pragma once

#include "platform/platform.h"

// The physical drive; written by Open_Physical_Disk_hDrive. 0 until first opened and after MyCloseHandle,
// kInvalidHandle after an open that failed.
inline Handle DiskHandle = 0;
// The platform's error code behind the latest open that failed; written by Open_Physical_Disk_hDrive, since the debug
// line that follows is a service of the platform too.
inline std::uint32_t LastOpenError = 0;
// Source or target file of a copy, 0 where there is none.
inline Handle FileHandle = 0;

// "PhysicalDrive" + drive, the name that traces show.
std::string DriveName(std::int32_t drive);
// The path under which a drive or volume name is opened: "\\.\" in front.
std::string DevicePath(const std::string& name);

// Opens the drive for reading and writing into DiskHandle, closing an earlier one first. False, with DiskHandle left
// invalid, when the drive can't be opened. Prints debug lines only.
bool Open_Physical_Disk_hDrive(std::int32_t drive);
// Logs, closes, and sets the handle to 0, so that it counts as closed.
void MyCloseHandle(Handle& handle);
