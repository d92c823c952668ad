// A drive with one partition and an NTFS volume in it, formatted by mkntfs and filled through ntfs-3g, then given this
// program's master boot record and boot code, and changed structure by structure: attributes moved to other clusters and
// further records, indexes of its root directory made anew. What is moved isn't noted in the volume's bitmap.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "boot/fat_volume.h"
#include "support/run.h"

// Attributes of a file.
inline constexpr std::uint8_t kNtfsList = 0x20;
inline constexpr std::uint8_t kNtfsName = 0x30;
inline constexpr std::uint8_t kNtfsData = 0x80;
inline constexpr std::uint8_t kNtfsIndexRoot = 0x90;
inline constexpr std::uint8_t kNtfsIndexBlocks = 0xA0;
inline constexpr std::uint8_t kNtfsReparse = 0xC0;
// Records.
inline constexpr std::uint32_t kNtfsMft = 0;
inline constexpr std::uint32_t kNtfsRoot = 5;

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
  NtfsRuns mft;

  std::uint64_t ClusterLba(std::int64_t cluster) const {
    return layout.first_lba + static_cast<std::uint64_t>(cluster) * (layout.cluster_bytes / kSectorBytes);
  }
};

// A field of the boot sector, at this offset.
void SetBootField(const NtfsDrive& drive, std::size_t offset, std::string_view bytes);
// A file of the root directory as ntfscat sees it.
std::string BytesByOthers(const NtfsDrive& drive, const std::string& name);

// The record of the file with this name.
std::uint32_t RecordOf(const NtfsDrive& drive, const std::string& name);
// Changes a record's bytes, as they are without fixups.
void ChangeRecord(const NtfsDrive& drive, std::uint32_t record, const std::function<void(std::string&)>& change);
// Changes an attribute of a record; it may grow and shrink as long as it fits, and goes when it becomes empty.
void ChangeAttribute(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type,
                     const std::function<void(std::string&)>& change);

NtfsRuns RunsOf(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type);
void SetRuns(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type, const NtfsRuns& runs);
// The LBA of the sector that holds this byte of an attribute.
std::uint64_t LbaOf(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t byte);

// Moves an attribute's clusters but for the first `kept`: the k-th `piece` of them goes to placement.first + k *
// placement.step.
void Scatter(NtfsDrive& drive, std::uint32_t record, std::uint8_t type, Placement placement, std::uint32_t piece = 1,
             std::uint32_t kept = 0);
// Moves an attribute's extents to so many records of their own, from kNtfsSpareRecord on, and makes an attribute list of
// all that the file has; the list lies in cluster `list_cluster`, or in the record if that is 0. Of $MFT the first
// extent stays.
inline constexpr std::uint32_t kNtfsSpareRecord = 16;
void MoveToRecords(NtfsDrive& drive, std::uint32_t record, std::uint8_t type, std::uint32_t records,
                   std::int64_t list_cluster = 0);

// Changes a block of the root directory's index, as it is without fixups.
void ChangeIndexBlock(const NtfsDrive& drive, std::uint32_t number, const std::function<void(std::string&)>& change);
// Where in its block the entry with this name is, -1 if it is in none; and the block's number.
struct NtfsPlace {
  std::int64_t block = -1;
  std::size_t offset = 0;
  bool has_child = false;
};
NtfsPlace PlaceOf(const NtfsDrive& drive, const std::string& name);
// Makes the index a root alone with the entries of these names, in this order. The blocks stay on the volume.
void ShrinkIndex(const NtfsDrive& drive, const std::vector<std::string>& names);
