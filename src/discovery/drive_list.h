// The walk over all drive numbers, the one-line description of a drive, and the letter of its main volume. Nothing here
// ends the run: a drive that can't be opened has no line and no entry.
#pragma once

#include <array>
#include <cstdint>
#include <string>

inline constexpr std::int32_t kHighestListedDrive = 26;
inline constexpr std::int16_t kNoDriveFound = 99;

// What a scan found, written by ListDrives: the first drive that counts, and all of them by number. A drive counts that
// reports more than 10 bytes, and is USB unless OptAllDrives is set. Sizes are usable bytes.
inline std::int16_t FoundDrive = kNoDriveFound;
inline std::string FoundDriveDesc;
inline std::int64_t FoundDriveSize = 0;
inline std::array<std::string, kHighestListedDrive + 1> DriveListDesc;
inline std::array<std::int64_t, kHighestListedDrive + 1> DriveListSize{};

// Scans the drive numbers 0 to 26, prints a line for each drive with `show`, and two line breaks at the end. Leaves
// DriveNumber at 26 and the drive record with the last drive.
void ListDrives(bool show);
// Prints the line of the drive in the record on a line of its own and returns it; with `mode` 0 it goes on to firmware,
// serial number and letter. Nothing is printed for a drive without usable bytes.
std::string DriveLine(int mode);
// The letter and colon of the drive's main volume, empty where it has none: the first of its first four, but for a
// volume of under 40,000 bytes where another one follows.
std::string GetDriveLetter(std::int32_t drive);
// The size of a volume in bytes, as text; "0" where it can't be told.
std::string VolumeBytes(const std::string& letter);
