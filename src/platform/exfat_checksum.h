// The checksum of an exFAT boot region, after the exFAT file system standard. It stands below the port since a machine
// that tells a volume its place needs it too.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "platform/byte_order.h"
#include "platform/platform.h"

inline constexpr std::size_t kExfatSectorBytes = 512;
inline constexpr std::size_t kExfatRegionSectors = 12;
inline constexpr std::size_t kExfatRegionBytes = kExfatRegionSectors * kExfatSectorBytes;

// Fills the last of the region's 12 sectors with the sum over the 11 in front of it, 128 times. Volume flags and
// percent in use change while the volume is used and don't count.
inline void StoreExfatChecksum(ByteSpan region) {
  constexpr std::size_t kVolumeFlags = 0x6A;  // two bytes
  constexpr std::size_t kPercentInUse = 0x70;
  constexpr std::size_t kSumOffset = kExfatRegionBytes - kExfatSectorBytes;
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kSumOffset; ++i) {
    if (i != kVolumeFlags && i != kVolumeFlags + 1 && i != kPercentInUse) {
      sum = std::rotr(sum, 1) + region[i];
    }
  }
  for (std::size_t i = kSumOffset; i < kExfatRegionBytes; i += sizeof sum) {
    Store32(&region[i], sum);
  }
}
