// What the boot code of each FAT boot type loads, from where, and under which BIOSes.
#include <gtest/gtest.h>

#include <ostream>

#include "boot/prepared_drive.h"

namespace {

class FatBoot : public testing::TestWithParam<BootKind> {};
class FatBootMessage : public testing::TestWithParam<BootKind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, FatBoot, testing::ValuesIn(BootKinds()), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Kinds, FatBootMessage, testing::ValuesIn(BootKinds()), NameOfKind);

// Sectors per track and heads, a word each.
std::string GeometryIn(const BootReport& report) { return report.boot_sector.substr(0x18, 4); }

struct BiosCase {
  const char* label;
  Bios bios;
  bool checks_drive = false;  // for those alone that see that DL makes no sense
};

void ExpectBootsUnderEach(const PreparedDrive& drive, const std::vector<BiosCase>& cases) {
  for (const BiosCase& c : cases) {
    if (c.checks_drive <= drive.kind.checks_drive) {
      SCOPED_TRACE(c.label);
      ExpectBoots(drive, c.bios, DiskOf(drive.volume));
    }
  }
}

struct LayoutCase {
  const char* label;
  std::vector<std::string> keywords;
};

TEST_P(FatBoot, StartsTheLoaderFromEveryLayout) {
  std::vector<LayoutCase> cases = {{"partition", {}}, {"ZIP geometry", {"ZIP"}}};
  if (GetParam().keywords.front() != "DOSZIP") {  // whose second master boot record goes with the old boot records
    cases.push_back({"second master boot record", {"2MBR"}});
  }
  for (const LayoutCase& c : cases) {
    SCOPED_TRACE(c.label);
    PreparedDrive drive(GetParam(), "1G", c.keywords);
    PutLoader(drive, LoaderFor(GetParam()));
    ExpectBoots(drive);
  }
}

struct PlacementCase {
  const char* label;
  const char* size;
  std::uint32_t cluster_sectors;  // what the formatter chooses
  std::uint64_t lba;              // of the first cluster, or just above it; 0: the first free cluster
  std::int32_t step;
};

constexpr std::uint64_t kSectorsOf8Gb = 16450560;  // 1024 x 255 x 63, where CHS calls end

const std::vector<PlacementCase> kFat16Placements = {
    {"in one piece, 2 sectors", "60M", 2, 0, 1},
    {"each cluster apart, 2 sectors", "60M", 2, 0, 3},
    {"a FAT sector between clusters, 4 sectors", "127M", 4, 0, 257},
    {"backwards, 8 sectors", "250M", 8, 400000, -1},
    {"each cluster apart, 16 sectors", "500M", 16, 0, 2},
    {"backwards and apart, 32 sectors", "1000M", 32, 1900000, -5},
    {"each cluster apart, 64 sectors", "2000M", 64, 0, 7},
    {"each cluster apart, 128 sectors", "4000M", 128, 0, 2},
    {"near the end of 4 GB, 128 sectors", "4000M", 128, 8100000, -2},
};

const std::vector<PlacementCase> kFat32Placements = {
    {"in one piece, 8 sectors", "1G", 8, 0, 1},
    {"each cluster apart, 8 sectors", "1G", 8, 0, 3},
    {"a FAT sector between clusters, 8 sectors", "1G", 8, 0, 129},
    {"backwards, 8 sectors", "1G", 8, 1000000, -1},
    {"over the end of CHS calls, 16 sectors", "10G", 16, kSectorsOf8Gb - 100, 1},
    {"behind 8 GB, 32 sectors", "20G", 32, 30000000, 7},
    {"each cluster apart, 64 sectors", "40G", 64, 0, 2},
    {"over the end of 28-bit addresses, 64 sectors", "150G", 64, 0x10000000 - 200, 1},
    {"behind it, 64 sectors", "150G", 64, 0x10000000 + 1000000, -5},
};

TEST_P(FatBoot, FollowsTheChainOfTheFile) {
  for (const PlacementCase& c : IsFat32(GetParam()) ? kFat32Placements : kFat16Placements) {
    SCOPED_TRACE(c.label);
    PreparedDrive drive(GetParam(), c.size);
    EXPECT_EQ(drive.volume.cluster_sectors, c.cluster_sectors);
    // What a loader of three or four sectors reads on by itself begins in one piece.
    const std::int32_t step = LoadsWholeFile(GetParam()) || c.cluster_sectors >= 4 ? c.step : 1;
    PutLoader(drive, LoaderFor(GetParam()), {c.lba == 0 ? 3 : drive.volume.ClusterAt(c.lba), step});
    ExpectBoots(drive);
  }
}

TEST_P(FatBoot, WorksUnderBiosesWithPeculiarities) {
  const std::vector<BiosCase> cases = {
      {"entered at 07C0:0000", {.entry_segment = 0x7C0}},
      {"drive number 0", {.drive = 0}},
      {"drive number 0, no LBA calls", {.drive = 0, .peculiar = kNoLba}},
      {"drive number 81h", {.drive = 0x81}},
      {"drive number 0Fh", {.drive = 0x0F}},
      {"127 sectors at most", {.most_sectors = 127}},
      {"64 KiB pages", {.peculiar = kNoCrossing}},
      {"no LBA calls, 64 KiB pages", {.peculiar = kNoLba | kNoCrossing}},
      {"no LBA calls, geometry of the volume", {.peculiar = kNoLba | kNoGeometry}},
      {"LBA calls that fail", {.peculiar = kFalseLba}},
      {"LBA calls that fail, geometry of the volume", {.peculiar = kFalseLba | kNoGeometry}},
  };
  PreparedDrive drive(GetParam(), "4000M");
  const std::uint64_t cylinder_300 = std::uint64_t{300} * drive.volume.heads * drive.volume.track_sectors;
  PutLoader(drive, LoaderFor(GetParam()), {drive.volume.ClusterAt(cylinder_300), 2});
  ExpectBootsUnderEach(drive, cases);
}

TEST_P(FatBoot, StartsAVolumeWithoutPartitionTable) {
  const std::vector<BiosCase> cases = {
      {"as a hard disk", {}},
      {"as a diskette", {.drive = 0}},
      {"as a diskette without LBA calls", {.drive = 0, .peculiar = kNoLba, .entry_segment = 0x7C0}},
      {"no drive number given", {.first_dl = 0x5A}, true},
  };
  PreparedDrive drive(GetParam(), "1G", {"USBFDD"});
  PutLoader(drive, LoaderFor(GetParam()), {100, 1});
  ExpectBootsUnderEach(drive, cases);
}

// A sector of the drive, and how its BIOS reads.
using Place = std::pair<std::uint64_t, std::uint16_t>;

TEST_P(FatBoot, TriesAgainAfterAFailedRead) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam(), 30001));
  const FatVolume& volume = drive.volume;
  const Place places[] = {{volume.first_lba, 0},
                          {volume.FatLba(3), 0},
                          {volume.RootLba(), kNoLba},
                          {volume.ClusterLba(3), 0},
                          {volume.ClusterLba(3) + 2, kNoLba}};
  for (const auto& [lba, peculiar] : places) {
    SCOPED_TRACE(testing::Message() << lba << " " << peculiar);
    ExpectBoots(drive, {.peculiar = peculiar, .faults = 1, .fault_lba = lba}, DiskOf(volume));
  }
}

struct GeometryCase {
  const char* label;
  const char* keyword;
  const char* geometry;
  std::uint32_t track;
  std::uint32_t heads;
  bool own;  // not the volume's
};

// The loader goes on with the geometry that its BIOS has.
TEST_P(FatBoot, PassesOnTheGeometryOfABiosWithoutLbaCalls) {
  const GeometryCase cases[] = {
      {"ZIP drive, BIOS of the same mind", "ZIP", ",lcyls=1024,lheads=64,lsecs=32", 32, 64, false},
      {"ZIP drive, BIOS with its own", "ZIP", ",lcyls=130,lheads=255,lsecs=63", 63, 255, true},
      {"CHS drive", "CHS", ",lcyls=1024,lheads=64,lsecs=32", 32, 64, false},
  };
  for (const GeometryCase& c : cases) {
    if (c.own && !GetParam().asks_geometry) {
      continue;
    }
    SCOPED_TRACE(c.label);
    PreparedDrive drive(GetParam(), "1G", {c.keyword});
    PutLoader(drive, LoaderFor(GetParam()), {100, 3});
    const BootReport report = ExpectBoots(drive, {.drive = 0, .peculiar = kNoLba}, kIde + c.geometry);
    ASSERT_TRUE(report.loaded);
    if (GetParam().contract != Contract::kFreeDos) {
      EXPECT_EQ(GeometryIn(report), Little(c.track, 2) + Little(c.heads, 2));
    }
  }
}

TEST_P(FatBoot, FindsTheLoaderAnywhereInTheRootDirectory) {
  PreparedDrive drive(GetParam());
  const std::vector<std::uint32_t> root = {2, 50000, 777, 60000, 200};
  PutLoader(drive, LoaderFor(GetParam()));
  const std::string entries = EntriesOf(drive);
  const std::size_t places = FillRoot(drive, root);
  PlaceEntries(drive.volume, places - entries.size() / kEntryBytes, entries, root);
  ExpectBoots(drive);
}

// --- What ends in a message. ---

TEST_P(FatBootMessage, SaysThatADeadSectorCannotBeRead) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam()));
  const FatVolume& volume = drive.volume;
  std::vector<Place> places = {{volume.RootLba(), 0}, {volume.ClusterLba(3) + 1, 0}, {volume.ClusterLba(3), kNoLba}};
  if (LoadsWholeFile(GetParam())) {
    places.emplace_back(volume.FatLba(3), 0);
  }
  for (const auto& [lba, peculiar] : places) {
    SCOPED_TRACE(testing::Message() << lba << " " << peculiar);
    const Bios bios{.peculiar = peculiar, .faults = kAlways, .fault_lba = lba};
    EXPECT_EQ(BootUnder(bios, drive.image, 1, DiskOf(volume)).text, GetParam().first + GetParam().unreadable);
  }
}

TEST_P(FatBootMessage, SaysThatTheLoaderIsMissing) {
  const std::string& name = GetParam().loader;
  const std::pair<const char*, std::string> cases[] = {
      {"empty root directory", ""},
      {"other file", DirectoryEntry(name.substr(0, 8) + "EXE", kArchive, 3, 5000)},
      {"label", DirectoryEntry(name, kLabel, 3, 5000)},
      {"directory", DirectoryEntry(name, kDirectory, 3, 5000)},
      {"behind the end mark", std::string(kEntryBytes, '\0') + DirectoryEntry(name, kArchive, 3, 5000)},
  };
  const PreparedDrive drive(GetParam());
  for (const auto& [label, entries] : cases) {
    SCOPED_TRACE(label);
    PlaceEntries(drive.volume, 1, std::string(2 * kEntryBytes, '\0'));
    PlaceEntries(drive.volume, 1, entries);
    EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().first + GetParam().missing);
  }
}

TEST_P(FatBootMessage, SaysThatTheLoaderIsMissingFromAFullRootDirectory) {
  const PreparedDrive drive(GetParam());
  FillRoot(drive, {2});
  EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().first + GetParam().missing);
}

TEST_P(FatBootMessage, TakesTheLastClusterForOneOfTheVolume) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam(), 2048), {drive.volume.LastCluster()});
  ExpectBoots(drive);
}

TEST_P(FatBootMessage, NeverWrapsACylinder) {
  constexpr std::uint64_t kGeometryField = 0x18;
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam()), {drive.volume.ClusterAt(1024 * 16 * 63 + 500000)});
  WriteBytes(drive.image, drive.volume.first_lba * kSectorBytes + kGeometryField, Little(63, 2) + Little(16, 2));
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image, 1, kIde + ",lcyls=1024,lheads=16,lsecs=63").text,
            GetParam().first + GetParam().unreadable);
}

}  // namespace
