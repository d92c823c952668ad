// The MBR builder: turns the drive's size and the options into the partition table of a new master boot record. It
// fills SectorBuffer and the results below; nothing is written to the drive. It prints what it decides and never fails.
#pragma once

#include <cstddef>
#include <cstdint>

// Places in the master boot record, as bytes from its start.
inline constexpr std::size_t kMbrCodeBytes = 0x1B8;
inline constexpr std::size_t kDiskSignatureOffset = 0x1B8;
inline constexpr std::size_t kTableOffset = 0x1BE;
inline constexpr std::size_t kSecondEntryOffset = 0x1CE;

// A partition entry, little-endian.
struct PartitionEntry {
  std::uint8_t status;          // 0x0: 0x80 active, 0x00 not
  std::uint8_t start_head;      // 0x1
  std::uint8_t start_sector;    // 0x2: from 1; bits 6 and 7 are bits 8 and 9 of the cylinder
  std::uint8_t start_cylinder;  // 0x3: bits 0 to 7
  std::uint8_t type;            // 0x4
  std::uint8_t end_head;        // 0x5
  std::uint8_t end_sector;      // 0x6: as start_sector
  std::uint8_t end_cylinder;    // 0x7
  std::uint8_t first_lba[4];    // 0x8
  std::uint8_t sectors[4];      // 0xC
};
static_assert(sizeof(PartitionEntry) == 16);
static_assert(offsetof(PartitionEntry, type) == 4 && offsetof(PartitionEntry, first_lba) == 8);

// The results, for the preparation and the formatters: sectors and LBAs of partition 1, geometry in use.
inline std::int32_t StartLba = 0;
inline std::int64_t PartStartLba = 0;  // a copy of StartLba, set last of all
inline std::int64_t PartSectors = 0;
inline std::int64_t DriveSectors = 0;
inline std::int32_t GeomHeads = 0;
inline std::int32_t GeomSpt = 0;
inline std::int64_t SecondPartLba = 0;

// Fills the entry at index `base` of SectorBuffer (always kTableOffset), the 0x55 0xAA behind the table, the disk
// signature (not with OptUsbFdd) and every result. DriveBytes is replaced by a smaller SizeLimit and reduced by the
// room for a second partition.
void BuildPartitionEntry(std::size_t base);
// Fills the entry of the small hidden partition behind partition 1 at index `base` (always kSecondEntryOffset), and
// SecondPartLba. Needs the results of BuildPartitionEntry.
void BuildSecondEntry(std::size_t base);
