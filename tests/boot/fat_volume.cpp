#include "boot/fat_volume.h"

#include <algorithm>

#include "support/run.h"

namespace {

constexpr std::uint64_t kClusterField = 0x0D;
constexpr std::uint64_t kReservedField = 0x0E;
constexpr std::uint64_t kRootEntriesField = 0x11;
constexpr std::uint64_t kShortTotalField = 0x13;
constexpr std::uint64_t kShortFatField = 0x16;
constexpr std::uint64_t kTrackField = 0x18;
constexpr std::uint64_t kHeadsField = 0x1A;
constexpr std::uint64_t kHiddenField = 0x1C;
constexpr std::uint64_t kTotalField = 0x20;
constexpr std::uint64_t kFatSectorsField = 0x24;  // FAT32
constexpr std::uint64_t kTypeField = 0x36;        // FAT12 and FAT16
constexpr std::uint64_t kFirstLbaOfTable = 0x1C6;
constexpr std::uint32_t kReservedBits = 0xA0000000;  // of a FAT entry: to be looked past

std::size_t ClusterBytes(const FatVolume& volume) { return volume.cluster_sectors * kSectorBytes; }

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

FatVolume OpenVolume(const std::string& image, std::uint64_t first_lba) {
  const std::string sector = ReadBytes(image, first_lba * kSectorBytes, kSectorBytes);
  const auto field = [&](std::uint64_t offset, std::size_t bytes) { return Number(sector.substr(offset, bytes)); };
  const std::uint32_t short_fat = field(kShortFatField, 2);
  const std::uint32_t short_total = field(kShortTotalField, 2);
  const std::uint32_t short_bits = sector.substr(kTypeField, 5) == "FAT12" ? 12 : 16;
  return {.image = image,
          .first_lba = first_lba,
          .entry_bits = short_fat == 0 ? 32 : short_bits,
          .cluster_sectors = field(kClusterField, 1),
          .reserved_sectors = field(kReservedField, 2),
          .fat_sectors = short_fat == 0 ? field(kFatSectorsField, 4) : short_fat,
          .root_sectors = static_cast<std::uint32_t>(field(kRootEntriesField, 2) * kEntryBytes / kSectorBytes),
          .total_sectors = short_total == 0 ? field(kTotalField, 4) : short_total,
          .track_sectors = field(kTrackField, 2),
          .heads = field(kHeadsField, 2)};
}

FatVolume ChangeClusterSize(FatVolume volume, std::uint8_t cluster_sectors) {
  const std::string empty_root(ClusterBytes(volume), '\0');
  WriteBytes(volume.image, volume.RootLba() * kSectorBytes, empty_root);
  volume.cluster_sectors = cluster_sectors;
  volume.fat_sectors = volume.total_sectors / (128 * volume.cluster_sectors) + 1;
  const std::uint64_t boot_sector = volume.first_lba * kSectorBytes;
  WriteBytes(volume.image, boot_sector + kClusterField, Little(cluster_sectors, 1));
  WriteBytes(volume.image, boot_sector + kFatSectorsField, Little(volume.fat_sectors, 4));
  PlaceEntries(volume, 0, DirectoryEntry("OTHER SIZE ", kLabel, 0, 0));
  return volume;
}

FatVolume MoveVolume(FatVolume volume, std::uint64_t lba) {
  const std::string head =
      ReadBytes(volume.image, volume.first_lba * kSectorBytes, volume.reserved_sectors * kSectorBytes);
  volume.first_lba = lba;
  SetFileSize(volume.image, (lba + volume.total_sectors) * kSectorBytes);
  WriteBytes(volume.image, lba * kSectorBytes, head);
  WriteBytes(volume.image, lba * kSectorBytes + kHiddenField, Little(lba, 4));
  WriteBytes(volume.image, kFirstLbaOfTable, Little(lba, 4));
  PlaceEntries(volume, 0, DirectoryEntry("MOVED      ", kLabel, 0, 0));
  return volume;
}

void SetFatEntry(const FatVolume& volume, std::uint32_t cluster, std::uint32_t value) {
  const std::uint64_t bit = std::uint64_t{cluster} * volume.entry_bits;
  const std::uint64_t position = (volume.first_lba + volume.reserved_sectors) * kSectorBytes + bit / 8;
  if (volume.entry_bits == 32) {
    WriteBytes(volume.image, position, Little(value | kReservedBits, 4));
  } else if (volume.entry_bits == 16) {
    WriteBytes(volume.image, position, Little(value, 2));
  } else {
    const std::uint32_t shift = bit % 8;
    const std::uint32_t others = Number(ReadBytes(volume.image, position, 2)) & ~(0xFFFU << shift);
    WriteBytes(volume.image, position, Little(others | (value & 0xFFF) << shift, 2));
  }
}

std::vector<std::uint32_t> LinkChain(const FatVolume& volume, Placement placement, std::size_t bytes) {
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

void WriteFile(const FatVolume& volume, Placement placement, std::string_view bytes) {
  for (const std::uint32_t cluster : LinkChain(volume, placement, bytes.size())) {
    WriteBytes(volume.image, volume.ClusterLba(cluster) * kSectorBytes, bytes.substr(0, ClusterBytes(volume)));
    bytes.remove_prefix(std::min(bytes.size(), ClusterBytes(volume)));
  }
}

std::string DirectoryEntry(std::string_view name, std::uint8_t attributes, std::uint32_t cluster, std::size_t bytes) {
  return std::string(name) + Little(attributes, 1) + std::string(8, '\0') + Little(cluster >> 16, 2) +
         std::string(4, '\0') + Little(cluster & 0xFFFF, 2) + Little(bytes, 4);
}

void PlaceEntries(const FatVolume& volume, std::size_t index, std::string_view entries,
                  const std::vector<std::uint32_t>& root) {
  const std::size_t per_cluster = ClusterBytes(volume) / kEntryBytes;
  for (; !entries.empty(); ++index, entries.remove_prefix(kEntryBytes)) {
    const std::uint64_t at = volume.entry_bits == 32 ? volume.ClusterLba(root.at(index / per_cluster)) * kSectorBytes +
                                                           index % per_cluster * kEntryBytes
                                                     : volume.RootLba() * kSectorBytes + index * kEntryBytes;
    WriteBytes(volume.image, at, entries.substr(0, kEntryBytes));
  }
}
