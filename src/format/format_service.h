// What the exFAT and NTFS formatters have in common: their volumes are made by the platform's format service, with the
// offer of the system's own command where that fails, and get their boot code from this program alone.
#pragma once

#include <cstdint>
#include <string>

// Written by FormatExCallback; FormatOk also by PrepareFormat's fallback.
inline bool FormatOk = false;           // the service ended cleanly, or the fallback did
inline std::uint32_t FormatStatus = 0;  // the last status other than that of completion
inline bool FormatFailed = false;       // a failure has been seen; stays set

enum class ServiceFormat { kExfat, kNtfs };

// Waits for the new partition's drive letter and has its volume formatted; returns the letter and colon. The volumes
// must be unlocked and DiskHandle closed. FormatOk is false afterwards only where the file system was begun and not
// completed: that has been reported, and nothing more must be done to the volume. Ends the run with level 6 on any
// other failure.
std::string PrepareFormat(const std::string& label, ServiceFormat kind);
// Has the service format the volume (its first two characters: letter and colon) as "EXFAT" or, with any other name of
// a file system, as NTFS. The outcome is in the values above; a drive that is neither removable nor fixed is reported
// and nothing is called.
void Format_NTFS(const std::string& volume, const std::string& label, const std::string& file_system);
// Takes one status of the service. Returns 1: go on, always.
std::uint32_t FormatExCallback(std::uint32_t status, std::uint32_t sub_action, std::uint32_t action_info);
// Runs a command line to its end: its exit code, -1 when it can't be started, -2 when its state can't be told.
std::int32_t RunAndWait(const std::string& command);
// The type of the drive behind "E:", as text.
std::string DriveTypeText(const std::string& root);

// Opens DiskHandle anew, reads the volume's boot sector into SectorBuffer (which must hold a sector), checks it and
// copies its head with the volume's own values over that of the image in BinArray. Ends the run with level 6 when the
// drive can't be opened, with level 9 when the sector is not that of `kind`.
void ReadVolumeBootRecord(ServiceFormat kind);
// Fills SectorBuffer with the `sectors` sectors of the image in BinArray, with the head of the volume's own boot
// sector.
void MergeBootCode(ServiceFormat kind, std::int32_t sectors);
// Writes the first `sectors` sectors of SectorBuffer to the start of the volume `letter`, `copies` times one behind the
// other, and has the drive looked at again. Ends the run with level 7 when a write fails.
void WriteBootCode(const std::string& letter, std::int32_t sectors, int copies);
