#include "platform/simulated/format_volume.h"

// The tools belong to other systems.
std::optional<std::uint32_t> FormatSimulatedVolume(SimulatedDrive& /*drive*/, std::uint64_t /*position*/,
                                                   std::uint64_t /*bytes*/,
                                                   // NOLINTNEXTLINE(performance-unnecessary-value-param): as elsewhere
                                                   FormatJob /*job*/) {
  return std::nullopt;
}
