// The FAT32 formatter: writes a complete, empty volume onto the open drive, from 263 MB up to 2 TB. Layout after
// Microsoft's FAT specification, version 1.03; the data area starts on a 1 MiB boundary of the drive.
#pragma once

#include <cstdint>
#include <string>

// The limits of a volume's size in sectors.
inline constexpr std::int64_t kFat32LeastSectors = 525'201;
inline constexpr std::int64_t kFat32MostSectors = 4'294'967'294;

// A volume's numbers, all in sectors.
struct Fat32Layout {
  std::uint8_t cluster;    // sectors per cluster: 8, 16, 32 or 64
  std::uint32_t fat;       // sectors per FAT
  std::uint16_t reserved;  // sectors in front of the first FAT, 34 to 2081
};

// The layout of a volume of `sectors` sectors (within the limits) whose partition starts at `start_lba`.
Fat32Layout ComputeFat32Layout(std::int64_t sectors, std::int64_t start_lba);

// Formats the partition of the MBR builder's results with the boot code of BootType. The handle must be open and the
// volumes locked. Prints its progress. Returns when the volume is complete, or, with nothing written, when it would be
// above the limit; ends the run with level 1 when it is below the limit or BootType has no image, and with level 7 when
// a sector can't be written.
void FormatFat32(const std::string& label);

// Writes `sectors` zero sectors from `lba` on in one transfer, through SectorBuffer, which keeps their size. Ends the
// run with level 7 when they can't be written.
void ZeroSectors(std::uint64_t lba, std::uint32_t sectors);

// Writes the second sector of boot code, and its copy, for the boot types that have one. Ends the run with level 7 when
// they can't be written.
void WriteExtendedBootCode();
