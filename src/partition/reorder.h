// Two commands that rewrite sector 0 of a drive and nothing else: another order of its partition table, and no table at
// all.
#pragma once

#include <cstdint>

// Swaps the table entries `slot` (2 to 4) and 1, or with 0 sorts all four by their first LBA; an entry whose first LBA
// is 0 is dropped then. Sector 0 is in SectorBuffer and DiskHandle is open. Asks first. Comes back only with
// OptNoWrite; else it ends the run: level 0, 2 when the user declines, 7 when the write fails.
void ReorderPartitions(std::int32_t drive, std::int16_t slot);

// Overwrites sector 0 with zeros. Asks first. Ends the run: level 0, 2 with OptNoWrite, 6 when the user declines, 7
// when the write fails.
[[noreturn]] void CleanDrive(std::int32_t drive);
