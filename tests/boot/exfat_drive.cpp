#include "boot/exfat_drive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>

#include "boot/exfat_boot_code.h"

namespace {

constexpr std::size_t kVolumesOwn = 0x79;  // bytes of the boot sector that the boot code doesn't replace
constexpr std::size_t kStartField = 0x40;
constexpr std::size_t kLengthField = 0x48;
constexpr std::size_t kFatField = 0x50;
constexpr std::size_t kFatSectorsField = 0x54;
constexpr std::size_t kHeapField = 0x58;
constexpr std::size_t kClustersField = 0x5C;
constexpr std::size_t kRootField = 0x60;
constexpr std::size_t kClusterShiftField = 0x6D;
constexpr std::size_t kRegionBytes = 12 * kSectorBytes;
constexpr std::size_t kSummedBytes = 11 * kSectorBytes;
constexpr std::size_t kBehindVolume = kMib;                            // that no cluster's place is
constexpr std::size_t kEntriesOfCluster = kSectorBytes / kEntryBytes;  // times its sectors
constexpr std::size_t kNameCharacters = 15;                            // of an entry

std::size_t ClusterBytes(const ExfatDrive& drive) { return drive.cluster_sectors * kSectorBytes; }

// The boot region with its checksum, which leaves out flags and percent in use.
std::string Summed(std::string region) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kSummedBytes; ++i) {
    if (i != 0x6A && i != 0x6B && i != 0x70) {
      sum = std::rotr(sum, 1) + static_cast<std::uint8_t>(region[i]);
    }
  }
  for (std::size_t i = kSummedBytes; i < kRegionBytes; i += 4) {
    region.replace(i, 4, Little(sum, 4));
  }
  return region;
}

void WriteRegions(const ExfatDrive& drive, const std::string& region) {
  const std::uint64_t at = drive.layout.first_lba * kSectorBytes;
  WriteBytes(drive.image, at, Summed(region) + Summed(region));
}

// Copies what the formatter has written to the drive; the rest of the volume stays a hole.
void CopyVolume(const ExfatDrive& drive, const std::string& volume, std::uint64_t bytes) {
  const RunResult copied = RunCommand({"dd", "if=" + volume, "of=" + drive.image, "bs=64K", "conv=notrunc,sparse",
                                       "iflag=count_bytes", "oflag=seek_bytes", "count=" + std::to_string(bytes),
                                       "seek=" + std::to_string(drive.layout.first_lba * kSectorBytes)});
  EXPECT_EQ(copied.exit_code, 0) << copied.err;
}

// The sum of a directory entry set, and the hash of a name.
std::uint16_t RotatingSum(std::string_view bytes, bool of_entries) {
  std::uint16_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!of_entries || (i != 2 && i != 3)) {
      sum = static_cast<std::uint16_t>(std::rotr(sum, 1) + static_cast<std::uint8_t>(bytes[i]));
    }
  }
  return sum;
}

std::uint16_t HashOfName(std::u16string_view name) {
  std::string upper;
  for (const char16_t c : name) {
    upper += Little(c >= u'a' && c <= u'z' ? c - 0x20U : c, 2);
  }
  return RotatingSum(upper, false);
}

void Allocate(const ExfatDrive& drive, std::uint32_t cluster) {
  const std::uint64_t bit = cluster - 2;  // the bitmap lies at the start of the heap
  const std::uint64_t at = drive.ClusterLba(2) * kSectorBytes + bit / 8;
  WriteBytes(drive.image, at, Little(Number(ReadBytes(drive.image, at, 1)) | 1U << bit % 8, 1));
}

}  // namespace

ExfatDrive::ExfatDrive(const ExfatLayout& wanted) : layout(wanted), image(folder.File("drive.img")) {
  const std::string volume = folder.File("volume.img");
  SetFileSize(volume, layout.bytes);
  const RunResult made = RunCommand({"mkfs.exfat", "-c", std::to_string(layout.cluster_bytes), volume});
  EXPECT_EQ(made.exit_code, 0) << made.out << made.err;
  std::string region = ReadBytes(volume, 0, kRegionBytes);
  ReadFields(region);

  SetFileSize(image, layout.first_lba * kSectorBytes + layout.bytes + kBehindVolume);
  CopyVolume(*this, volume, (ClusterLba(root[0] + 1) - layout.first_lba) * kSectorBytes);
  std::filesystem::remove(volume);
  region.replace(kStartField, 8, Little(layout.first_lba, 8));
  WriteRegions(*this, region.substr(0, kVolumesOwn) + ExfatBootCode(layout.for_grldr).substr(kVolumesOwn));
  if (layout.first_lba != 0) {
    const std::uint64_t sectors = std::min(layout.bytes / kSectorBytes, std::uint64_t{0xFFFFFFFF});
    WriteBytes(image, 0,
               MasterBootRecord(static_cast<std::uint32_t>(layout.first_lba), static_cast<std::uint32_t>(sectors)));
  }
}

ExfatDrive::ExfatDrive(const std::string& size, const std::vector<std::string>& keywords)
    : image(folder.File("drive.img")) {
  std::vector<std::string> arguments = {"--drive", "1=" + image + ",size=" + size, "--no-wait", "DRIVE=1", "SURE",
                                        "EXFAT"};
  arguments.insert(arguments.end(), keywords.begin(), keywords.end());
  const RunResult result = RunKorventix(arguments);
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  const std::string boot_sector = ReadBytes(image, layout.first_lba * kSectorBytes, kSectorBytes);
  ReadFields(boot_sector);
  layout.bytes = std::uint64_t{Number(boot_sector.substr(kLengthField, 4))} * kSectorBytes;
}

void ExfatDrive::ReadFields(const std::string& boot_sector) {
  const auto field = [&](std::size_t offset) { return Number(boot_sector.substr(offset, 4)); };
  fat_sector = field(kFatField);
  fat_sectors = field(kFatSectorsField);
  heap_sector = field(kHeapField);
  clusters = field(kClustersField);
  cluster_sectors = 1U << Number(boot_sector.substr(kClusterShiftField, 1));
  root = {field(kRootField)};
}

void SetBootField(const ExfatDrive& drive, std::size_t offset, std::string_view bytes) {
  std::string region = ReadBytes(drive.image, drive.layout.first_lba * kSectorBytes, kRegionBytes);
  WriteRegions(drive, region.replace(offset, bytes.size(), bytes));
}

std::string FaultsOf(const ExfatDrive& drive) {
  const std::string volume = drive.folder.File("volume.img");
  ExtractBytes(drive.image, drive.layout.first_lba * kSectorBytes, drive.layout.bytes, volume);
  const RunResult checked = RunCommand({"fsck.exfat", "-n", volume});
  std::filesystem::remove(volume);
  const bool sound = checked.exit_code == 0 && checked.out.find(": clean.") != std::string::npos && checked.err.empty();
  return sound ? "" : checked.out + checked.err;
}

void SetFatEntry(const ExfatDrive& drive, std::uint32_t cluster, std::uint32_t value) {
  WriteBytes(drive.image, (drive.layout.first_lba + drive.fat_sector) * kSectorBytes + std::uint64_t{cluster} * 4,
             Little(value, 4));
}

ExfatStream WriteFile(const ExfatDrive& drive, Placement placement, bool chained, std::string_view bytes) {
  const ExfatStream stream{placement, bytes.size(), chained};
  std::uint32_t cluster = placement.first;
  while (!bytes.empty()) {
    const std::uint32_t next = cluster + static_cast<std::uint32_t>(placement.step);  // wraps for a step below 0
    WriteBytes(drive.image, drive.ClusterLba(cluster) * kSectorBytes, bytes.substr(0, ClusterBytes(drive)));
    bytes.remove_prefix(std::min(bytes.size(), ClusterBytes(drive)));
    Allocate(drive, cluster);
    if (chained) {
      SetFatEntry(drive, cluster, bytes.empty() ? kExfatEnd : next);
    }
    cluster = next;
  }
  return stream;
}

std::string FileEntries(std::u16string_view name, const ExfatStream& stream, std::uint8_t attributes) {
  const std::size_t name_entries = (name.size() + kNameCharacters - 1) / kNameCharacters;
  std::string entries = Little(0x85, 1) + Little(1 + name_entries, 1) + Little(0, 2) + Little(attributes, 28);
  entries += Little(0xC0, 1) + Little(stream.chained ? 1 : 3, 2) + Little(name.size(), 1) +
             Little(HashOfName(name), 4) + Little(stream.bytes, 12) + Little(stream.placement.first, 4) +
             Little(stream.bytes, 8);
  for (std::size_t i = 0; i < name_entries * kNameCharacters; ++i) {
    entries += (i % kNameCharacters == 0 ? Little(0xC1, 2) : "") + Little(i < name.size() ? name[i] : 0, 2);
  }
  return entries.replace(2, 2, Little(RotatingSum(entries, true), 2));
}

std::string Deleted(std::string entries) {
  for (std::size_t i = 0; i < entries.size(); i += kEntryBytes) {
    entries[i] = static_cast<char>(entries[i] & 0x7F);
  }
  return entries;
}

void PlaceEntries(const ExfatDrive& drive, std::size_t index, std::string_view entries) {
  const std::size_t per_cluster = drive.cluster_sectors * kEntriesOfCluster;
  for (; !entries.empty(); ++index, entries.remove_prefix(kEntryBytes)) {
    const std::uint64_t cluster = drive.ClusterLba(drive.root.at(index / per_cluster)) * kSectorBytes;
    WriteBytes(drive.image, cluster + index % per_cluster * kEntryBytes, entries.substr(0, kEntryBytes));
  }
}

std::size_t GrowRoot(ExfatDrive& drive, const std::vector<std::uint32_t>& more) {
  for (const std::uint32_t cluster : more) {
    SetFatEntry(drive, drive.root.back(), cluster);
    SetFatEntry(drive, cluster, kExfatEnd);
    Allocate(drive, cluster);
    drive.root.push_back(cluster);
  }
  const std::size_t entries = drive.root.size() * drive.cluster_sectors * kEntriesOfCluster;
  const std::string deleted = Deleted(FileEntries(u"BOOTMGR", {{}, 512}));
  for (std::size_t i = kExfatFirstFree; i < entries; i += kFileEntries) {
    PlaceEntries(drive, i, std::string_view(deleted).substr(0, (entries - i) * kEntryBytes));
  }
  return entries;
}
