#include "boot/fat32_volume.h"

#include <algorithm>

#include "support/run.h"

namespace {

constexpr std::uint64_t kClusterField = 0x0D;
constexpr std::uint64_t kHiddenField = 0x1C;
constexpr std::uint64_t kFatSectorsField = 0x24;
constexpr std::uint64_t kFirstLbaOfTable = 0x1C6;
constexpr std::uint32_t kRootCluster = 2;
constexpr std::uint32_t kReservedBits = 0xA0000000;  // of a FAT entry: to be looked past

std::size_t ClusterBytes(const Fat32Volume& volume) { return volume.cluster_sectors * kSectorBytes; }

}  // namespace

std::string Little(std::uint64_t value, std::size_t bytes) {
  std::string result(bytes, '\0');
  for (char& byte : result) {
    byte = static_cast<char>(value & 0xFF);
    value >>= 8;
  }
  return result;
}

std::uint32_t Number(std::string_view bytes) {
  std::uint32_t result = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    result = result << 8 | static_cast<std::uint8_t>(bytes[i]);
  }
  return result;
}

Fat32Volume OpenVolume(const std::string& image, std::uint64_t first_lba) {
  const std::string sector = ReadBytes(image, first_lba * kSectorBytes, kSectorBytes);
  return {.image = image,
          .first_lba = first_lba,
          .cluster_sectors = Number(sector.substr(kClusterField, 1)),
          .reserved_sectors = Number(sector.substr(0x0E, 2)),
          .fat_sectors = Number(sector.substr(kFatSectorsField, 4)),
          .total_sectors = Number(sector.substr(0x20, 4))};
}

Fat32Volume ChangeClusterSize(Fat32Volume volume, std::uint8_t cluster_sectors) {
  const std::string empty_root(ClusterBytes(volume), '\0');
  WriteBytes(volume.image, volume.ClusterLba(kRootCluster) * kSectorBytes, empty_root);
  volume.cluster_sectors = cluster_sectors;
  volume.fat_sectors = volume.total_sectors / (128 * volume.cluster_sectors) + 1;
  const std::uint64_t boot_sector = volume.first_lba * kSectorBytes;
  WriteBytes(volume.image, boot_sector + kClusterField, Little(cluster_sectors, 1));
  WriteBytes(volume.image, boot_sector + kFatSectorsField, Little(volume.fat_sectors, 4));
  PlaceEntries(volume, {kRootCluster}, 0, DirectoryEntry("OTHER SIZE ", kLabel, 0, 0));
  return volume;
}

Fat32Volume MoveVolume(Fat32Volume volume, std::uint64_t lba) {
  const std::string head =
      ReadBytes(volume.image, volume.first_lba * kSectorBytes, volume.reserved_sectors * kSectorBytes);
  volume.first_lba = lba;
  SetFileSize(volume.image, (lba + volume.total_sectors) * kSectorBytes);
  WriteBytes(volume.image, lba * kSectorBytes, head);
  WriteBytes(volume.image, lba * kSectorBytes + kHiddenField, Little(lba, 4));
  WriteBytes(volume.image, kFirstLbaOfTable, Little(lba, 4));
  PlaceEntries(volume, {kRootCluster}, 0, DirectoryEntry("MOVED      ", kLabel, 0, 0));
  return volume;
}

void SetFatEntry(const Fat32Volume& volume, std::uint32_t cluster, std::uint32_t value) {
  WriteBytes(volume.image, volume.FatLba(cluster) * kSectorBytes + std::uint64_t{cluster % 128} * 4,
             Little(value | kReservedBits, 4));
}

std::vector<std::uint32_t> LinkChain(const Fat32Volume& volume, Placement placement, std::size_t bytes) {
  std::vector<std::uint32_t> clusters;
  std::uint32_t cluster = placement.first;
  for (std::size_t done = 0; done < bytes; done += ClusterBytes(volume)) {
    if (!clusters.empty()) {
      SetFatEntry(volume, clusters.back(), cluster);
    }
    clusters.push_back(cluster);
    cluster += static_cast<std::uint32_t>(placement.step);  // wraps for a step below 0
  }
  if (!clusters.empty()) {
    SetFatEntry(volume, clusters.back(), kEndOfChain);
  }
  return clusters;
}

void WriteFile(const Fat32Volume& volume, Placement placement, std::string_view bytes) {
  for (const std::uint32_t cluster : LinkChain(volume, placement, bytes.size())) {
    WriteBytes(volume.image, volume.ClusterLba(cluster) * kSectorBytes, bytes.substr(0, ClusterBytes(volume)));
    bytes.remove_prefix(std::min(bytes.size(), ClusterBytes(volume)));
  }
}

std::string DirectoryEntry(std::string_view name, std::uint8_t attributes, std::uint32_t cluster, std::size_t bytes) {
  return std::string(name) + Little(attributes, 1) + std::string(8, '\0') + Little(cluster >> 16, 2) +
         std::string(4, '\0') + Little(cluster & 0xFFFF, 2) + Little(bytes, 4);
}

void PlaceEntries(const Fat32Volume& volume, const std::vector<std::uint32_t>& root, std::size_t index,
                  std::string_view entries) {
  const std::size_t per_cluster = ClusterBytes(volume) / kEntryBytes;
  for (; !entries.empty(); ++index, entries.remove_prefix(kEntryBytes)) {
    const std::uint64_t cluster_at = volume.ClusterLba(root.at(index / per_cluster)) * kSectorBytes;
    WriteBytes(volume.image, cluster_at + index % per_cluster * kEntryBytes, entries.substr(0, kEntryBytes));
  }
}
