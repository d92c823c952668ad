// Drive identification: for one drive number, whether it is USB, what it calls itself, how large it is and how much of
// it may be used. Nothing here ends the run or prints (but for debug lines): a step that fails leaves its value as it
// was.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/platform.h"

// The drive record: one drive at a time, written here; DriveBytes also by the MBR builder.
inline std::string DriveBus;    // "USB", or empty
inline std::string DriveMedia;  // "REMOVABLE MEDIA", "FIXED MEDIA", or empty when the inquiry failed
inline std::string DriveModel;
inline std::string DriveFirmware;
inline std::string DriveSerial;
inline std::uint64_t DriveReportedBytes =
    0;  // as the drive or the platform reports it; 0 for a drive that doesn't count
// Usable bytes: whole cylinders of 8,225,280 bytes, one less than there are. 0 where the drive is smaller than two;
// below 0 only for a number that ALLDRIVES let through with nothing behind it, which the open that follows refuses.
inline std::int64_t DriveBytes = 0;
inline std::uint32_t BytesPerSector = 512;

// Empties the record and fills it when the drive counts: every USB drive, with OptAllDrives any drive. `drive` must be
// DriveNumber. SectorBuffer must hold a sector; it is overwritten by the proof read of the last usable one.
void GetUSBDiskDriveInfo(std::int32_t drive);
// Fills the record for a drive that counts.
void GetDiskDriveInfo(std::int32_t drive);
bool IsUsbDrive(std::int32_t drive);
// The drive's size in bytes, 0 when it can't be opened: the larger of READ CAPACITY (10)'s and the platform's. Also
// sets BytesPerSector, DriveModel, DriveFirmware, DriveSerial and DriveMedia from the SCSI answers.
std::uint64_t GetSCSICapacity(std::int32_t drive);
// The platform's word on the length in bytes, 0 where it has none.
std::uint64_t GetDiskLength(Handle handle);

// What the drive in the record is to Windows, removable or fixed: an "INFO: " line behind an empty one.
std::string MediaClassText();

// Text from the bytes `first` to `last` (inclusive; -1 or too far means the end), trimmed of blanks. With `stop_at_nul`
// it ends before the first zero byte, unless that is the very first: then the copy keeps its length and its NULs.
std::string BytesToText(ConstByteSpan bytes, int first, int last, bool stop_at_nul);
// Keeps the characters that a model or serial number may show; full stop, comma, double quote and others are dropped.
std::string CleanText(std::string_view text);
