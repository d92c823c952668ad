// A drive with one partition and an NTFS volume in it, formatted by mkntfs, given this program's master boot record and
// boot code, and filled through ntfs-3g.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "boot/fat_volume.h"
#include "support/run.h"

struct NtfsLayout {
  std::uint32_t cluster_bytes = 4096;
  std::uint32_t record_bytes = 1024;  // or 4096, in clusters of no less
  std::uint64_t mib = 64;             // of the volume
  std::uint64_t first_lba = 2048;     // 0: no partition table
  bool for_ntldr = false;             // the boot code that looks for NTLDR alone
};

struct NtfsFile {
  std::string name;
  std::string bytes;
};

// Clusters that follow each other on the volume; kNtfsHole: none.
inline constexpr std::int64_t kNtfsHole = -1;
struct NtfsRun {
  std::uint32_t clusters = 0;
  std::int64_t first = 0;
};
using NtfsRuns = std::vector<NtfsRun>;

struct NtfsDrive {
  // A volume with these files, created in this order.
  explicit NtfsDrive(const NtfsLayout& wanted, const std::vector<NtfsFile>& files);
  // A drive of this size ("1G") that the program has prepared: DRIVE=1 SURE NTFS and these words, of which NTLDR comes
  // first; then filled with these files.
  NtfsDrive(const std::string& size, const std::string& words, const std::vector<NtfsFile>& files);

  NtfsLayout layout;
  ScratchFolder folder;
  std::string image;
  std::uint64_t bytes = 0;  // of the volume
  NtfsRuns mft;             // where $MFT is

  std::uint64_t ClusterLba(std::int64_t cluster) const {
    return layout.first_lba + static_cast<std::uint64_t>(cluster) * (layout.cluster_bytes / kSectorBytes);
  }
};

// A field of the boot sector, at this offset.
void SetBootField(const NtfsDrive& drive, std::size_t offset, std::string_view bytes);
// A file of the root directory as ntfscat sees it.
std::string BytesByOthers(const NtfsDrive& drive, const std::string& name);
