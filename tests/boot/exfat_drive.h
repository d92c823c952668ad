// A drive with one partition and an exFAT volume in it, written cluster by cluster: files in any order of clusters,
// with or without their chain in the FAT, entries anywhere in the root directory. The allocation bitmap is kept up, so
// that fsck.exfat can judge.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "boot/fat_volume.h"
#include "support/run.h"

inline constexpr std::uint64_t kMib = 1ULL << 20U;
inline constexpr std::uint64_t kGib = 1ULL << 30U;
inline constexpr std::uint32_t kExfatEnd = 0xFFFFFFFF;  // of a chain
inline constexpr std::uint32_t kExfatBad = 0xFFFFFFF7;
inline constexpr std::size_t kExfatFirstFree = 3;  // root entries that the formatter leaves free, from this one on
inline constexpr std::size_t kFileEntries = 3;     // of a file with a name of up to 15 characters

struct ExfatLayout {
  std::uint32_t cluster_bytes = 4096;
  std::uint64_t bytes = kGib;      // of the volume
  std::uint64_t first_lba = 2048;  // 0: no partition table
  bool for_grldr = false;          // the boot code is patched to look for GRLDR
};

struct ExfatDrive {
  // A volume formatted by mkfs.exfat and then given this program's master boot record and boot code.
  explicit ExfatDrive(const ExfatLayout& wanted = {});
  // A drive of this size ("1G") that the program has prepared: DRIVE=1 SURE EXFAT and these words.
  ExfatDrive(const std::string& size, const std::vector<std::string>& keywords);

  ExfatLayout layout;
  ScratchFolder folder;
  std::string image;
  std::uint32_t fat_sector = 0;   // these two count from the volume's start
  std::uint32_t heap_sector = 0;  // cluster 2
  std::uint32_t fat_sectors = 0;
  std::uint32_t clusters = 0;
  std::uint32_t cluster_sectors = 0;
  std::vector<std::uint32_t> root;  // clusters of the root directory

  std::uint64_t FatLba(std::uint32_t cluster) const { return layout.first_lba + fat_sector + cluster / 128; }
  std::uint64_t ClusterLba(std::uint32_t cluster) const {
    return layout.first_lba + heap_sector + std::uint64_t{cluster - 2} * cluster_sectors;
  }
  // Takes the volume's layout from its boot sector.
  void ReadFields(const std::string& boot_sector);
  // The cluster that holds this LBA.
  std::uint32_t ClusterAt(std::uint64_t lba) const {
    return static_cast<std::uint32_t>((lba - ClusterLba(2)) / cluster_sectors) + 2;
  }
};

// A field of the boot sector, at this offset; the checksum is made good.
void SetBootField(const ExfatDrive& drive, std::size_t offset, std::string_view bytes);
// What fsck.exfat finds wrong; empty for a sound volume.
std::string FaultsOf(const ExfatDrive& drive);

void SetFatEntry(const ExfatDrive& drive, std::uint32_t cluster, std::uint32_t value);

// Where a file's bytes are.
struct ExfatStream {
  Placement placement = {};
  std::uint64_t bytes = 0;
  bool chained = true;  // in the FAT; else its clusters follow each other
};
// Writes a file's bytes, but no directory entry.
ExfatStream WriteFile(const ExfatDrive& drive, Placement placement, bool chained, std::string_view bytes);
// A file's directory entries, kFileEntries of them or more.
std::string FileEntries(std::u16string_view name, const ExfatStream& stream, std::uint8_t attributes = kArchive);
// The same, no longer in use.
std::string Deleted(std::string entries);
// Writes entries to the root directory, from entry number `index` on.
void PlaceEntries(const ExfatDrive& drive, std::size_t index, std::string_view entries);
// Gives the root directory these clusters behind its first one, and fills it up with deleted entries. The number of its
// entries.
std::size_t GrowRoot(ExfatDrive& drive, const std::vector<std::uint32_t>& more = {});
