// What the FAT formatters have in common. Layouts follow Microsoft's FAT specification, version 1.03.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::uint32_t kFatCopies = 2;
inline constexpr std::uint8_t kMediaHardDisk = 0xF8;
inline constexpr std::uint8_t kMediaFloppy = 0xF0;
inline constexpr std::uint8_t kDriveHardDisk = 0x80;
inline constexpr std::uint8_t kDriveFloppy = 0x00;

// What FAT16 and FAT32 boot sectors begin with, at offset 0x00.
struct FatParameterBlock {
  std::uint8_t jump[3];              // 0x00
  std::uint8_t oem_name[8];          // 0x03
  std::uint8_t sector_bytes[2];      // 0x0B
  std::uint8_t cluster_sectors;      // 0x0D
  std::uint8_t reserved_sectors[2];  // 0x0E
  std::uint8_t fats;                 // 0x10
  std::uint8_t root_entries[2];      // 0x11: 0 on FAT32
  std::uint8_t total_16[2];          // 0x13: 0, however small the volume
  std::uint8_t media;                // 0x15
  std::uint8_t fat_16[2];            // 0x16: sectors of a FAT, 0 on FAT32
  std::uint8_t track_sectors[2];     // 0x18
  std::uint8_t heads[2];             // 0x1A
  std::uint8_t hidden_sectors[4];    // 0x1C
  std::uint8_t total_sectors[4];     // 0x20
};
static_assert(sizeof(FatParameterBlock) == 0x24 && offsetof(FatParameterBlock, hidden_sectors) == 0x1C);

// What both have in front of their boot code, at 0x24 on FAT16 and 0x40 on FAT32.
struct FatVolumeBlock {
  std::uint8_t drive_number;        // 0x00
  std::uint8_t unused;              // 0x01
  std::uint8_t extended_signature;  // 0x02
  std::uint8_t serial[4];           // 0x03
  std::uint8_t label[11];           // 0x07
  std::uint8_t file_system[8];      // 0x12
};
static_assert(sizeof(FatVolumeBlock) == 0x1A && offsetof(FatVolumeBlock, label) == 0x07);

// Fills what does not depend on the kind of FAT, with the geometry and size of the MBR builder's results; the jump
// comes from the image in BinArray. Two FATs.
void FillParameterBlock(FatParameterBlock& block, std::uint8_t cluster_sectors, std::uint16_t reserved_sectors);
// Fills the whole block, with a new serial number and no label; `file_system` has 8 characters.
void FillVolumeBlock(FatVolumeBlock& block, std::string_view file_system);

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
