// What the format service of the simulated machine does to a volume. One source per system.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/host/format_tools.h"
#include "platform/simulated/simulated_drive.h"

// Has the system's tool format a sparse file in memory that is as long as the volume, and copies what the tool wrote,
// zeros too, to the volume's place, `position` on the drive (in bytes, whole sectors of 512). What the tool leaves
// alone keeps its bytes; nothing is flushed, as the boot code is still to come. The status that ends the job; nothing
// where the tool is missing or fails, the file can't be had, or the drive fails for another reason than its write
// protection.
std::optional<std::uint32_t> FormatSimulatedVolume(SimulatedDrive& drive, std::uint64_t position, std::uint64_t bytes,
                                                   FormatJob job);
