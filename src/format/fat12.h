// The FAT12 formatter: the small second partition, whose size and layout are fixed by its boot image.
#pragma once

#include <cstdint>
#include <string>

// Formats the 63 sectors from `lba` on; its label is always "PTN2", whatever `label` says. The handle must be open. A
// failed boot sector is reported and the routine goes on; a failed FAT or label ends the run with level 7.
void FormatFat12(const std::string& label, std::uint64_t lba);
