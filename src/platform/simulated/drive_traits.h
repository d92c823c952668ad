// What a simulated drive claims to be, and how it misbehaves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr std::uint32_t kDefaultSectorBytes = 512;

// Sectors of the drive, both inclusive.
struct SectorRange {
  std::uint64_t first;
  std::uint64_t last;
};

struct DriveTraits {
  std::uint64_t bytes = 0;  // the length that the drive claims; 0: that of its store
  std::uint32_t sector_bytes = kDefaultSectorBytes;
  bool usb = true;
  bool removable = true;
  bool read_only = false;
  std::string vendor = "Generic";  // at most 8 characters, 16, 4 and 20
  std::string product = "Flash Disk";
  std::string revision = "1.00";
  std::string serial;
  // Counterfeits, in bytes, whole sectors, 0 for none; wrap and absent exclude each other.
  std::uint64_t wrap_bytes = 0;    // the byte at address a is stored at a mod wrap_bytes
  std::uint64_t absent_bytes = 0;  // addresses from here up swallow writes and read as zeros
  std::uint64_t cache_bytes = 0;   // so many bytes written last are answered right, wherever they went
  std::vector<SectorRange> bad_reads;
  std::vector<SectorRange> bad_writes;
};
