// The FAT16 formatter: writes a complete, empty volume onto the open drive, from 300 KiB up to 4 GiB. Layout after
// Microsoft's FAT specification, version 1.03, with one reserved sector, two FATs of 256 sectors and a root directory
// of 32 sectors at every size.
#pragma once

#include <cstdint>
#include <string>

// The limits of a volume's size in sectors.
inline constexpr std::int64_t kFat16LeastSectors = 553;
inline constexpr std::int64_t kFat16MostSectors = 8'386'849;

// Sectors per cluster, 2 to 128, of a volume of `sectors` sectors within the limits.
std::uint8_t Fat16ClusterSectors(std::int64_t sectors);

// Formats the partition of the MBR builder's results with the boot code of BootType. The handle must be open and the
// volumes locked. Prints its progress. Ends the run with level 1 when the size is out of range or BootType has no
// image, and with level 7 when a sector can't be written.
void FormatFat16(const std::string& label);
