// A FAT volume inside an image file, written cluster by cluster: files in any order of clusters, entries anywhere in
// the root directory, broken chains. Only the first FAT is kept up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kSectorBytes = 512;
inline constexpr std::size_t kEntryBytes = 32;
inline constexpr std::uint8_t kArchive = 0x20;
inline constexpr std::uint8_t kDirectory = 0x10;
inline constexpr std::uint8_t kLabel = 0x08;
inline constexpr std::uint8_t kLongName = 0x0F;
inline constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;  // a FAT12 or FAT16 entry takes its lower bits
inline constexpr std::uint32_t kBadCluster = 0x0FFFFFF7;

// Where a file's clusters lie: `first`, and each following one `step` further (which may be below 0).
struct Placement {
  std::uint32_t first = 3;
  std::int32_t step = 1;
};

struct FatVolume {
  std::string image;
  std::uint64_t first_lba = 0;
  std::uint32_t entry_bits = 0;  // of the FAT: 12, 16 or 32
  std::uint32_t cluster_sectors = 0;
  std::uint32_t reserved_sectors = 0;
  std::uint32_t fat_sectors = 0;
  std::uint32_t root_sectors = 0;  // of the root directory in front of the clusters: none on FAT32
  std::uint32_t total_sectors = 0;
  std::uint32_t track_sectors = 0;
  std::uint32_t heads = 0;

  std::uint64_t FatLba(std::uint32_t cluster) const {
    return first_lba + reserved_sectors + std::uint64_t{cluster} * entry_bits / 8 / kSectorBytes;
  }
  std::uint64_t DataLba() const { return first_lba + reserved_sectors + 2 * std::uint64_t{fat_sectors} + root_sectors; }
  std::uint64_t ClusterLba(std::uint32_t cluster) const {
    return DataLba() + std::uint64_t{cluster - 2} * cluster_sectors;
  }
  // The first sector of the root directory.
  std::uint64_t RootLba() const { return DataLba() - root_sectors; }
  // The cluster that holds this LBA of the drive.
  std::uint32_t ClusterAt(std::uint64_t lba) const {
    return static_cast<std::uint32_t>((lba - DataLba()) / cluster_sectors) + 2;
  }
  std::uint32_t LastCluster() const {
    return static_cast<std::uint32_t>((total_sectors - (DataLba() - first_lba)) / cluster_sectors) + 1;
  }
};

// A little-endian number as bytes, and back.
std::string Little(std::uint64_t value, std::size_t bytes);
std::uint32_t Number(std::string_view bytes);

// Takes the layout from the boot sector. A volume that calls itself FAT16 is one, however few its clusters.
FatVolume OpenVolume(const std::string& image, std::uint64_t first_lba);
// Empties a FAT32 volume and gives it another cluster size, which the formatter may not offer.
FatVolume ChangeClusterSize(FatVolume volume, std::uint8_t cluster_sectors);
// Moves the first partition of the drive, an empty FAT32 volume, to this LBA; the image grows as needed.
FatVolume MoveVolume(FatVolume volume, std::uint64_t lba);

// The upper four bits of a FAT32 entry, which mean nothing, are not left 0.
void SetFatEntry(const FatVolume& volume, std::uint32_t cluster, std::uint32_t value);
// The clusters of so many bytes, linked in the FAT up to the end mark.
std::vector<std::uint32_t> LinkChain(const FatVolume& volume, Placement placement, std::size_t bytes);
// Writes and links a file's bytes.
void WriteFile(const FatVolume& volume, Placement placement, std::string_view bytes);
// A directory entry; the name has its 11 characters.
std::string DirectoryEntry(std::string_view name, std::uint8_t attributes, std::uint32_t cluster, std::size_t bytes);
// Writes entries to the root directory, from entry number `index` on. `root` are its clusters on FAT32.
void PlaceEntries(const FatVolume& volume, std::size_t index, std::string_view entries,
                  const std::vector<std::uint32_t>& root = {2});
