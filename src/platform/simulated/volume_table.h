// The volumes that a drive's own tables describe. Safe on any bytes: what makes no sense is no volume.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/simulated/simulated_drive.h"

struct VolumeExtent {
  std::uint64_t first_sector;
  std::uint64_t sectors;  // above 0, inside the drive
};

// In the order of the table. A removable drive has its first used primary partition; a fixed drive the primary ones,
// the logical ones and those of a GPT. Where sector 0 is no table but a boot record, the whole drive is the volume.
std::vector<VolumeExtent> ReadVolumeExtents(SimulatedDrive& drive);

// The size in bytes of the file system whose boot record lies at byte `position` of the drive: its clusters, of NTFS
// its sectors. Nothing where there is no file system.
std::optional<std::uint64_t> FileSystemBytes(SimulatedDrive& drive, std::uint64_t position);
