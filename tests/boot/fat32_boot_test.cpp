// What the boot code of a FAT32 drive for BOOTMGR loads, from where, and under which BIOSes.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

constexpr std::uint64_t kSectorsOf8Gb = 16450560;                             // 1024 x 255 x 63, where CHS calls end
constexpr std::uint64_t kSectorsOf137Gb = 0x10000000;                         // where 28-bit addresses end
constexpr std::size_t kLargestLoader = std::size_t{kMemoryKib - 128} * 1024;  // from 128 KiB up

// Sectors per track and heads, a word each.
std::string GeometryIn(const BootReport& report) { return report.boot_sector.substr(0x18, 4); }

struct DriveCase {
  const char* label;
  const char* size;
  std::vector<std::string> keywords;
  std::uint64_t volume_lba;
};

TEST(Fat32Boot, StartsTheLoaderFromTheBiosAlone) {
  const DriveCase cases[] = {
      {"partition", "1G", {}, kStartLba},
      {"second master boot record", "1G", {"2MBR"}, kStartLba},
      {"no partition table", "1G", {"USBFDD"}, 0},
      {"ZIP geometry", "1G", {"ZIP"}, kTranslatedStartLba},
  };
  const std::string loader = StubLoader(kUsualLoaderBytes);
  for (const DriveCase& c : cases) {
    const PreparedDrive drive(c.size, c.keywords, c.volume_lba);
    PutLoader(drive.volume, loader);
    for (const std::string& device : {kIde, kUsb}) {
      SCOPED_TRACE(std::string(c.label) + ", " + device);
      ExpectLoaded(BootDirectly(drive.image, device), drive.volume, loader);
    }
  }
}

TEST(Fat32Boot, LoadsFilesOfAnyLength) {
  const PreparedDrive drive("1G");
  for (const std::size_t bytes :
       {std::size_t{1}, std::size_t{511}, std::size_t{512}, std::size_t{513}, std::size_t{65535}, std::size_t{65536},
        std::size_t{65537}, kUsualLoaderBytes, kLargestLoader}) {
    SCOPED_TRACE(bytes);
    const std::string loader = TrapLoader(bytes);
    PutLoader(drive.volume, loader);
    ExpectLoaded(BootUnder({}, drive.image, bytes), drive.volume, loader);
  }
}

struct PlacementCase {
  const char* label;
  const char* size;
  std::uint32_t cluster_sectors;  // what the formatter chooses
  std::uint64_t lba;              // of the first cluster, or just above it; 0: the first free cluster
  std::int32_t step;
};

TEST(Fat32Boot, FollowsTheChainOfTheFile) {
  const PlacementCase cases[] = {
      {"in one piece, 8 sectors", "1G", 8, 0, 1},
      {"each cluster apart, 8 sectors", "1G", 8, 0, 3},
      {"a FAT sector between clusters, 8 sectors", "1G", 8, 0, 129},
      {"backwards, 8 sectors", "1G", 8, 1000000, -1},
      {"backwards and apart, 16 sectors", "10G", 16, 2000000, -2},
      {"over the end of CHS calls, 16 sectors", "10G", 16, kSectorsOf8Gb - 100, 1},
      {"each cluster apart, 32 sectors", "20G", 32, 0, 2},
      {"behind 8 GB, 32 sectors", "20G", 32, 30000000, 7},
      {"each cluster apart, 64 sectors", "40G", 64, 0, 2},
      {"over 137 GB, 64 sectors", "150G", 64, kSectorsOf137Gb - 200, 1},
      {"behind 137 GB, 64 sectors", "150G", 64, kSectorsOf137Gb + 1000000, -5},
  };
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  for (const PlacementCase& c : cases) {
    SCOPED_TRACE(c.label);
    const PreparedDrive drive(c.size);
    EXPECT_EQ(drive.volume.cluster_sectors, c.cluster_sectors);
    PutLoader(drive.volume, loader, {c.lba == 0 ? 3 : drive.volume.ClusterAt(c.lba), c.step});
    ExpectLoaded(BootUnder({}, drive.image, loader.size()), drive.volume, loader);
  }
}

TEST(Fat32Boot, TakesClusterSizesOfOtherFormatters) {
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  for (const int cluster_sectors : {1, 2, 4, 128}) {
    for (const std::int32_t step : {1, 2}) {
      SCOPED_TRACE(testing::Message() << cluster_sectors << " sectors, step " << step);
      const PreparedDrive drive("1G");
      const Fat32Volume volume = ChangeClusterSize(drive.volume, static_cast<std::uint8_t>(cluster_sectors));
      PutLoader(volume, loader, {3, step});
      const BootReport report = BootUnder({.peculiar = kNoCrossing, .most_sectors = 127}, drive.image, loader.size());
      ExpectLoaded(report, volume, loader);
      const std::size_t sectors = loader.size() / kSectorBytes + 1;
      EXPECT_LE(report.reads, sectors / static_cast<unsigned>(cluster_sectors) + 50)
          << "FAT sectors are read once, clusters whole";
    }
  }
}

TEST(Fat32Boot, StartsAVolumeAtTheEndOf32BitAddresses) {
  const PreparedDrive drive("1G");
  const Fat32Volume volume = MoveVolume(drive.volume, 0xFFFFF000);
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  PutLoader(volume, loader, {volume.LastCluster() - 1000, 1});
  ExpectLoaded(BootUnder({}, drive.image, loader.size()), volume, loader);
}

struct BiosCase {
  const char* label;
  Bios bios;
  std::uint8_t lba_mark = kLbaWorks;
};

TEST(Fat32Boot, WorksUnderBiosesWithPeculiarities) {
  const BiosCase cases[] = {
      {"nothing odd", {}},
      {"entered at 07C0:0000", {.entry_segment = 0x7C0}},
      {"drive number 0", {.drive = 0}},
      {"drive number 0, no LBA calls", {.drive = 0, .peculiar = kNoLba}, kChsOnly},
      {"drive number 81h", {.drive = 0x81}},
      {"drive number 0Fh", {.drive = 0x0F}},
      {"127 sectors at most", {.most_sectors = 127}},
      {"64 KiB pages", {.peculiar = kNoCrossing}},
      {"no LBA calls", {.peculiar = kNoLba}, kChsOnly},
      {"no LBA calls, 64 KiB pages", {.peculiar = kNoLba | kNoCrossing}, kChsOnly},
      {"no LBA calls, geometry of the volume", {.peculiar = kNoLba | kNoGeometry}, kChsOnly},
      {"LBA calls that fail", {.peculiar = kFalseLba}, kChsOnly},
      {"LBA calls that fail, geometry of the volume", {.peculiar = kFalseLba | kNoGeometry}, kChsOnly},
  };
  const PreparedDrive drive("4G");
  const std::string geometry = ",lcyls=522,lheads=255,lsecs=63";  // the volume's
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  PutLoader(drive.volume, loader, {drive.volume.ClusterAt(std::uint64_t{300} * 255 * 63), 2});  // a cylinder above 255
  for (const BiosCase& c : cases) {
    SCOPED_TRACE(c.label);
    const BootReport report = BootUnder(c.bios, drive.image, loader.size(), kIde + geometry);
    ExpectLoaded(report, drive.volume, loader, c.bios.drive, c.lba_mark);
    ASSERT_TRUE(report.loaded);
    EXPECT_EQ(GeometryIn(report), Little(63, 2) + Little(255, 2));
  }
}

TEST(Fat32Boot, TriesAgainAfterAFailedRead) {
  const PreparedDrive drive("1G");
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  PutLoader(drive.volume, loader);
  const std::uint64_t places[] = {kStartLba,
                                  kStartLba + 12,
                                  drive.volume.FatLba(3),
                                  drive.volume.ClusterLba(2),
                                  drive.volume.ClusterLba(3),
                                  drive.volume.ClusterLba(3) + 800};
  for (const std::uint64_t lba : places) {
    SCOPED_TRACE(lba);
    const BootReport report = BootUnder({.faults = 1, .fault_lba = lba}, drive.image, loader.size());
    ExpectLoaded(report, drive.volume, loader);
  }
}

struct GeometryCase {
  const char* label;
  const char* size;
  const char* keyword;
  const char* geometry;
  std::uint32_t track;
  std::uint32_t heads;
};

// The loader goes on with the geometry that its BIOS has.
TEST(Fat32Boot, PassesOnTheGeometryOfABiosWithoutLbaCalls) {
  const GeometryCase cases[] = {
      {"ZIP drive, BIOS of the same mind", "1G", "ZIP", ",lcyls=1024,lheads=64,lsecs=32", 32, 64},
      {"ZIP drive, BIOS with its own", "1G", "ZIP", ",lcyls=130,lheads=255,lsecs=63", 63, 255},
      {"CHS drive", "1G", "CHS", ",lcyls=1024,lheads=64,lsecs=32", 32, 64},
  };
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  for (const GeometryCase& c : cases) {
    SCOPED_TRACE(c.label);
    const PreparedDrive drive(c.size, {c.keyword}, kTranslatedStartLba);
    PutLoader(drive.volume, loader, {100, 3});
    const BootReport report =
        BootUnder({.drive = 0, .peculiar = kNoLba}, drive.image, loader.size(), kIde + c.geometry);
    ExpectLoaded(report, drive.volume, loader, 0, kChsOnly);
    ASSERT_TRUE(report.loaded);
    EXPECT_EQ(GeometryIn(report), Little(c.track, 2) + Little(c.heads, 2));
  }
}

TEST(Fat32Boot, StartsAVolumeWithoutPartitionTable) {
  const BiosCase cases[] = {
      {"as a hard disk", {}},
      {"as a diskette", {.drive = 0}},
      {"as a diskette without LBA calls", {.drive = 0, .peculiar = kNoLba, .entry_segment = 0x7C0}, kChsOnly},
      {"no drive number given", {.first_dl = 0x5A}},
  };
  const PreparedDrive drive("1G", {"USBFDD"}, 0);
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  PutLoader(drive.volume, loader, {3, 2});
  for (const BiosCase& c : cases) {
    SCOPED_TRACE(c.label);
    const BootReport report = BootUnder(c.bios, drive.image, loader.size());
    ExpectLoaded(report, drive.volume, loader, c.bios.drive, c.lba_mark);
  }
}

TEST(Fat32Boot, FindsTheLoaderAnywhereInTheRootDirectory) {
  const PreparedDrive drive("1G");
  const std::string loader = TrapLoader(kUsualLoaderBytes);
  const Fat32Volume& volume = drive.volume;
  WriteFile(volume, {3}, loader);
  const std::vector<std::uint32_t> root = {2, 50000, 777, 60000, 200};
  for (std::size_t i = 0; i < root.size(); ++i) {
    SetFatEntry(volume, root[i], i + 1 < root.size() ? root[i + 1] : kEndOfChain);
  }
  const std::size_t entries_per_cluster = volume.cluster_sectors * kSectorBytes / kEntryBytes;
  const std::size_t last = root.size() * entries_per_cluster - 1;
  for (std::size_t i = 1; i < last; ++i) {
    PlaceEntries(volume, root, i, DirectoryEntry("\xE5OOTMGR    ", kArchive, 5000, kUsualLoaderBytes));
  }
  PlaceEntries(volume, root, 1,
               DirectoryEntry(kLoaderName, kLabel, 0, 0) + DirectoryEntry(kLoaderName, kDirectory, 5000, 0) +
                   DirectoryEntry(kLoaderName, kLongName, 5000, kUsualLoaderBytes) +
                   DirectoryEntry("BOOTMGR EFI", kArchive, 5000, kUsualLoaderBytes));
  PlaceEntries(volume, root, last, DirectoryEntry(kLoaderName, kArchive, 3, loader.size()));
  ExpectLoaded(BootUnder({}, drive.image, loader.size()), volume, loader);
}

// --- What ends in a message. ---

constexpr const char* kDiskError = "\r\nDisk error\r\nPress any key to restart\r\n<key><int19>";
constexpr const char* kMissing = "\r\nBOOTMGR is missing\r\nPress any key to restart\r\n<key><int19>";

TEST(Fat32BootMessage, SaysThatADeadSectorCannotBeRead) {
  const PreparedDrive drive("1G");
  PutLoader(drive.volume, TrapLoader(kUsualLoaderBytes));
  const std::uint64_t places[] = {kStartLba + 12, drive.volume.FatLba(3), drive.volume.ClusterLba(2),
                                  drive.volume.ClusterLba(3) + 700};
  for (const std::uint64_t lba : places) {
    for (const std::uint16_t peculiar : {std::uint16_t{0}, kNoLba}) {
      SCOPED_TRACE(testing::Message() << lba << " " << peculiar);
      const Bios bios{.peculiar = peculiar, .faults = kAlways, .fault_lba = lba};
      EXPECT_EQ(BootUnder(bios, drive.image).text, kDiskError);
    }
  }
}

TEST(Fat32BootMessage, SaysThatTheLoaderIsMissing) {
  const std::pair<const char*, std::string> cases[] = {
      {"empty root directory", ""},
      {"other file", DirectoryEntry("BOOTMGR EXE", kArchive, 3, 100)},
      {"label", DirectoryEntry(kLoaderName, kLabel, 3, 100)},
      {"directory", DirectoryEntry(kLoaderName, kDirectory, 3, 100)},
      {"behind the end mark", std::string(kEntryBytes, '\0') + DirectoryEntry(kLoaderName, kArchive, 3, 100)},
  };
  for (const auto& [label, entries] : cases) {
    SCOPED_TRACE(label);
    const PreparedDrive drive("1G");
    PlaceEntries(drive.volume, {2}, 1, entries);
    EXPECT_EQ(BootUnder({}, drive.image).text, kMissing);
  }
}

TEST(Fat32BootMessage, SaysThatTheLoaderIsMissingFromAFullRootDirectory) {
  const PreparedDrive drive("1G");
  for (std::size_t i = 1; i < drive.volume.cluster_sectors * kSectorBytes / kEntryBytes; ++i) {
    PlaceEntries(drive.volume, {2}, i, DirectoryEntry("OTHER      ", kArchive, 3, 100));
  }
  EXPECT_EQ(BootUnder({}, drive.image).text, kMissing);
  SetFatEntry(drive.volume, 2, 2);
  EXPECT_EQ(BootUnder({}, drive.image).text, kDiskError) << "a root directory that runs in a circle";
}

TEST(Fat32BootMessage, RefusesABrokenChain) {
  const PreparedDrive drive("1G");
  PutLoader(drive.volume, TrapLoader(kUsualLoaderBytes));
  const std::uint32_t values[] = {0, 1, kBadCluster, drive.volume.LastCluster() + 1, kEndOfChain};
  for (const std::uint32_t value : values) {
    SCOPED_TRACE(value);
    SetFatEntry(drive.volume, 40, value);
    if (value < kBadCluster) {
      SetFatEntry(drive.volume, value, 41);  // whoever follows it finds the rest
    }
    EXPECT_EQ(BootUnder({}, drive.image).text, kDiskError);
  }
}

TEST(Fat32BootMessage, TakesTheLastClusterForOneOfTheVolume) {
  const PreparedDrive drive("1G");
  const std::string loader = TrapLoader(100);
  PutLoader(drive.volume, loader, {drive.volume.LastCluster()});
  ExpectLoaded(BootUnder({}, drive.image, loader.size()), drive.volume, loader);
}

TEST(Fat32BootMessage, RefusesAFileThatDoesNotFit) {
  const PreparedDrive drive("1G");
  for (const std::size_t bytes : {std::size_t{0}, kLargestLoader + 1, std::size_t{0xFFFFFFFF}}) {
    SCOPED_TRACE(bytes);
    PlaceEntries(drive.volume, {2}, 1, DirectoryEntry(kLoaderName, kArchive, 3, bytes));
    EXPECT_EQ(BootUnder({}, drive.image).text, kDiskError);
  }
  PlaceEntries(drive.volume, {2}, 1, DirectoryEntry(kLoaderName, kArchive, 3, 1));
  EXPECT_EQ(BootUnder({.memory_kib = 120}, drive.image).text, kDiskError) << "no memory at the place of the loader";
}

TEST(Fat32BootMessage, NeverWrapsACylinder) {
  const PreparedDrive drive("20G");
  PutLoader(drive.volume, TrapLoader(kUsualLoaderBytes), {drive.volume.ClusterAt(kSectorsOf8Gb + 1000)});
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image).text, kDiskError);
}

TEST(Fat32BootMessage, KnowsItsExtendedSector) {
  const PreparedDrive drive("1G");
  PutLoader(drive.volume, TrapLoader(kUsualLoaderBytes));
  WriteBytes(drive.image, (kStartLba + 12) * kSectorBytes, std::string(kSectorBytes, '\0'));
  EXPECT_EQ(BootUnder({}, drive.image).text, kDiskError);
}

}  // namespace
