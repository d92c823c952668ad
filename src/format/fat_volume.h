// What the FAT formatters have in common. Layouts follow Microsoft's FAT specification, version 1.03.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::uint8_t kMediaHardDisk = 0xF8;
inline constexpr std::uint8_t kMediaFloppy = 0xF0;
inline constexpr std::uint8_t kDriveHardDisk = 0x80;
inline constexpr std::uint8_t kDriveFloppy = 0x00;

// The first LBA of the volume: the partition's, or 0 where the drive is one large floppy.
std::uint64_t VolumeStartLba();
// The media descriptor and BIOS drive number that the volume says: those of a floppy with OptZip.
std::uint8_t MediaDescriptor();
std::uint8_t BiosDriveNumber();
// The drive number as the formatters print it: "80h (hard disk)".
std::string DriveNumberText();
// Draws a new volume serial number, four bytes in disk order, into `serial`.
void DrawVolumeSerial(std::uint8_t* serial);
// The label filled with blanks behind it, as it is shown.
std::string PaddedLabel(const std::string& label);
// Stores the volume label's directory entry at the start of SectorBuffer.
void StoreLabelEntry(const std::string& padded_label);

// The boot code of a boot type: the image of its first sector, and the second sector of code where there is one.
struct FatBootImages {
  std::string_view boot_type;
  void (*boot_sector)();          // parses into BinArray
  void (*extended)();             // parses into SectorBuffer; none: nullptr
  std::uint32_t extended_sector;  // its place in the volume
};
// The images of BootType, nullptr where this version has none.
const FatBootImages* ImagesOfBootType();
// Parses the first sector's image of BootType into BinArray; ends the run with level 1 where there is none.
void LoadBootImage();

// Writes one zero sector after another from LBA `first` to `last`, both included, through SectorBuffer, which must hold
// a sector. Failures are not looked at: a bad drive fails at what is written next.
void ClearSectors(std::uint64_t first, std::uint64_t last);

// Reports `message` and ends the run with level 7.
[[noreturn]] void FailWrite(const std::string& message);
