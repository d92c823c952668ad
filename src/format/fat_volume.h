// What the FAT formatters have in common. Layouts follow Microsoft's FAT specification, version 1.03.
#pragma once

#include <cstdint>
#include <string>

inline constexpr std::uint8_t kMediaHardDisk = 0xF8;
inline constexpr std::uint8_t kMediaFloppy = 0xF0;
inline constexpr std::uint8_t kDriveHardDisk = 0x80;
inline constexpr std::uint8_t kDriveFloppy = 0x00;

// The first LBA of the volume: the partition's, or 0 where the drive is one large floppy.
std::uint64_t VolumeStartLba();
// The media descriptor and BIOS drive number that the volume says: those of a floppy with OptZip.
std::uint8_t MediaDescriptor();
std::uint8_t BiosDriveNumber();
// Draws a new volume serial number, four bytes in disk order, into `serial`.
void DrawVolumeSerial(std::uint8_t* serial);
// The label filled with blanks behind it, as it is shown.
std::string PaddedLabel(const std::string& label);
// Stores the volume label's directory entry at the start of SectorBuffer.
void StoreLabelEntry(const std::string& padded_label);
