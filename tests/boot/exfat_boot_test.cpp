// What the boot code of exFAT volumes loads, from where, and under which BIOSes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "boot/boot_kind.h"
#include "boot/exfat_drive.h"
#include "boot/machine.h"

namespace {

constexpr std::size_t kStartField = 0x40;
constexpr std::size_t kFatField = 0x50;
constexpr std::size_t kHeapField = 0x58;
constexpr std::size_t kRootField = 0x60;
constexpr std::size_t kFlagsField = 0x6A;
constexpr std::size_t kSectorShiftField = 0x6C;
constexpr std::size_t kClusterShiftField = 0x6D;
constexpr std::size_t kFatsField = 0x6E;
constexpr std::size_t kVolumesOwn = 0x79;  // bytes of the boot sector
constexpr std::size_t kUsualBytes = 300001;
constexpr std::uint64_t kSectorsOf8Gb = 16450560;  // 1024 x 255 x 63, where CHS calls end
constexpr std::uint64_t kWide = 1ULL << 32U;       // the first sector that takes more than 32 bits
constexpr char kHlt = '\xF4';                      // what formatters fill boot code with
const std::string kBigIde = kIde + ",lcyls=1024,lheads=255,lsecs=63";
const std::string kZipIde = kIde + ",lcyls=1024,lheads=64,lsecs=32";
const std::string kRestart = "\r\nPress any key to restart\r\n<key><int19>";
const std::string kMissing = "\r\nRemove disks or other media." + kRestart;
const std::string kUnreadable = "\r\nDisk error" + kRestart;

constexpr ExfatStream kOther{{5000}, 70000, false};

bool HasLba(const Bios& bios) { return (bios.peculiar & (kNoLba | kFalseLba)) == 0; }

// The volume's bytes of the boot sector, with what a loader finds in them instead of a BPB.
std::string SectorForLoader(const ExfatDrive& drive, const Bios& bios, const std::string& geometry) {
  std::string sector = ReadBytes(drive.image, drive.layout.first_lba * kSectorBytes, kVolumesOwn);
  sector[2] = HasLba(bios) ? 1 : 0;
  sector.replace(0x0B, 2, Little(kSectorBytes, 2));
  sector.replace(0x18, 4, geometry);
  sector.replace(0x1C, 4, Little(drive.layout.first_lba, 4));
  sector.replace(kStartField, 8, Little(drive.layout.first_lba, 8));
  sector[0x6F] = static_cast<char>(bios.drive);
  return sector;
}

void ExpectLoaded(const BootReport& report, const ExfatDrive& drive, const std::string& loader, const Bios& bios = {},
                  const std::string& geometry = Little(63, 2) + Little(255, 2)) {
  ASSERT_TRUE(report.loaded) << "came over the debug port: " << report.text;
  EXPECT_EQ(report.cs, 0x2000U);
  EXPECT_EQ(report.ip, 0U);
  EXPECT_EQ(report.dx, bios.drive);
  EXPECT_EQ(report.ss | report.ds | report.es, 0U);
  EXPECT_EQ(report.sp, 0x7C00U);
  EXPECT_EQ(report.flags & 0x600U, 0x200U) << "interrupts on, direction flag clear";
  EXPECT_EQ(report.hash, HashOf(loader));
  EXPECT_EQ(report.boot_sector.substr(0, kVolumesOwn), SectorForLoader(drive, bios, geometry));
}

BootReport ExpectBoots(const ExfatDrive& drive, const std::string& loader, const Bios& bios = {},
                       const std::string& device = kBigIde) {
  BootReport report = BootUnder(bios, drive.image, loader.size(), device);
  const bool zip = device == kZipIde && !HasLba(bios);
  ExpectLoaded(report, drive, loader, bios, zip ? Little(32, 2) + Little(64, 2) : Little(63, 2) + Little(255, 2));
  return report;
}

// Puts BOOTMGR on the drive; its entries are the first free ones.
std::string PutLoader(const ExfatDrive& drive, std::size_t bytes = kUsualBytes, Placement placement = {100},
                      bool chained = true, std::u16string_view name = u"BOOTMGR") {
  std::string loader = TrapLoader(bytes);
  PlaceEntries(drive, kExfatFirstFree, FileEntries(name, WriteFile(drive, placement, chained, loader)));
  return loader;
}

TEST(ExfatBoot, StartsTheLoaderFromTheBiosAlone) {
  for (const std::string& device : {kIde, kUsb}) {
    SCOPED_TRACE(device);
    const ExfatDrive drive;
    const std::string loader = StubLoader(kUsualBytes);
    PlaceEntries(drive, kExfatFirstFree, FileEntries(u"bootmgr", WriteFile(drive, {100, 2}, true, loader)));
    EXPECT_EQ(FaultsOf(drive), "");
    ExpectLoaded(BootDirectly(drive.image, device), drive, loader);
  }
}

TEST(ExfatBoot, StartsTheLoaderOfAPreparedDrive) {
  struct {
    std::vector<std::string> keywords;
    std::u16string loader;
  } const cases[] = {{{"BOOTMGR"}, u"BOOTMGR"}, {{"GRUB4DOS"}, u"grldr"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keywords.back());
    const ExfatDrive drive("1G", c.keywords);
    const std::string loader = PutLoader(drive, kUsualBytes, {100, 3}, true, c.loader);
    EXPECT_EQ(FaultsOf(drive), "");
    ExpectBoots(drive, loader);
    ExpectBoots(drive, loader, {.drive = 0, .peculiar = kNoLba});
  }
}

struct PlaceCase {
  const char* label;
  std::uint32_t cluster_bytes;
  std::uint64_t volume_bytes;
  std::uint64_t lba;  // of the first cluster, or just above it; 0: the first free one
  std::int32_t step;
  bool chained;
};

TEST(ExfatBoot, LoadsTheFileFromWhereverItIs) {
  const PlaceCase cases[] = {
      {"512 bytes, in one piece", 512, 64 * kMib, 0, 1, false},
      {"512 bytes, in one piece and chained", 512, 64 * kMib, 0, 1, true},
      {"512 bytes, each cluster apart", 512, 64 * kMib, 0, 3, true},
      {"512 bytes, a FAT sector between clusters", 512, 64 * kMib, 0, 129, true},
      {"512 bytes, backwards", 512, 64 * kMib, 100000, -1, true},
      {"4 KiB, in one piece", 4096, kGib, 0, 1, false},
      {"4 KiB, backwards and apart", 4096, kGib, 1000000, -5, true},
      {"64 KiB, in one piece", 65536, kGib, 0, 1, false},
      {"64 KiB, each cluster apart", 65536, kGib, 0, 2, true},
      {"128 KiB, in one piece", 131072, kGib, 0, 1, false},
      {"128 KiB, backwards", 131072, kGib, 1000000, -1, true},
      {"1 MiB", kMib, kGib, 1000000, 1, true},
      {"32 MiB", 32 * kMib, kGib, 1000000, 1, false},
      {"over the end of CHS calls", 65536, 20 * kGib, kSectorsOf8Gb - 100, 1, false},
      {"behind 8 GB, each cluster apart", 32768, 20 * kGib, 30000000, 7, true},
      {"over the end of 28-bit addresses", 131072, 150 * kGib, (1U << 28U) - 200, 1, true},
      {"over the end of 32-bit addresses", 131072, 2100 * kGib, kWide - 200, 1, false},
      {"behind it, backwards", 131072, 2100 * kGib, kWide + 10000000, -3, true},
  };
  for (const PlaceCase& c : cases) {
    SCOPED_TRACE(c.label);
    const ExfatDrive drive({.cluster_bytes = c.cluster_bytes, .bytes = c.volume_bytes});
    const std::string loader =
        PutLoader(drive, kUsualBytes, {c.lba == 0 ? drive.root[0] + 1 : drive.ClusterAt(c.lba), c.step}, c.chained);
    EXPECT_EQ(FaultsOf(drive), "");
    const BootReport report = ExpectBoots(drive, loader, {.peculiar = kNoCrossing, .most_sectors = 127});
    const std::size_t clusters = kUsualBytes / c.cluster_bytes + 1;
    const std::size_t fat_sectors = c.chained ? clusters * static_cast<unsigned>(std::abs(c.step)) / 128 + 2 : 0;
    EXPECT_LE(report.reads, clusters + fat_sectors + 20) << "FAT sectors are read once, clusters whole";
  }
}

TEST(ExfatBoot, LoadsFilesOfAnyLength) {
  const ExfatDrive drive;
  for (const std::size_t bytes :
       {std::size_t{1}, std::size_t{511}, std::size_t{512}, std::size_t{513}, std::size_t{65535}, std::size_t{65536},
        std::size_t{65537}, FactsOf(Contract::kNt).most_bytes}) {
    SCOPED_TRACE(bytes);
    ExpectBoots(drive, PutLoader(drive, bytes));
  }
}

// A cluster of the file, then one of the root directory has sectors on both sides of the volume's sector 2^32.
TEST(ExfatBoot, CarriesIntoTheUpperHalfOfASectorNumber) {
  constexpr std::uint32_t kSectorsInFront = 100;
  constexpr std::uint32_t kClusterSectors = 65536;
  constexpr std::uint32_t kAcross = static_cast<std::uint32_t>(kWide / kClusterSectors) + 1;
  ExfatDrive drive({.cluster_bytes = kClusterSectors * kSectorBytes, .bytes = 2100 * kGib});
  drive.heap_sector = kClusterSectors - kSectorsInFront;
  SetBootField(drive, kHeapField, Little(drive.heap_sector, 4));
  const std::string loader = TrapLoader(kUsualBytes);
  const struct {
    std::uint32_t file;
    std::uint32_t root;
    std::size_t place;  // of the entries
  } cases[] = {{kAcross, 5, 0}, {5, kAcross, (kSectorsInFront + 3) * kSectorBytes / kEntryBytes}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.root);
    drive.root = {c.root};
    SetBootField(drive, kRootField, Little(c.root, 4));
    for (std::size_t i = 0; i < c.place; ++i) {
      PlaceEntries(drive, i, std::string(kEntryBytes, 1));
    }
    PlaceEntries(drive, c.place, FileEntries(u"BOOTMGR", WriteFile(drive, {c.file}, false, loader)));
    ExpectBoots(drive, loader);
  }
}

TEST(ExfatBoot, StartsAVolumeAnywhere) {
  constexpr std::uint64_t kTypeOfTable = 0x1C2;
  ExfatDrive drive({.first_lba = 5000001});
  const std::string loader = PutLoader(drive);
  ExpectBoots(drive, loader);
  SetBootField(drive, kStartField, Little(0, 8));
  ExpectBoots(drive, loader);
  ExpectBoots(drive, loader, {.drive = 0x81, .peculiar = kNoLba, .entry_segment = 0x7C0});
  WriteBytes(drive.image, kTypeOfTable, Little(0, 1));
  EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable) << "an entry that isn't used";

  const ExfatDrive without_table({.first_lba = 0});
  ExpectBoots(without_table, PutLoader(without_table), {.drive = 0});
}

TEST(ExfatBoot, StartsAVolumeBehind32BitAddresses) {
  constexpr std::uint64_t kEntryLba = 2048;
  constexpr std::uint64_t kFirstLbaOfTable = 0x1C6;
  const ExfatDrive drive({.first_lba = kWide + 0x12345677});
  const std::string loader = PutLoader(drive);
  const std::string boot_sector = ReadBytes(drive.image, drive.layout.first_lba * kSectorBytes, kSectorBytes);
  WriteBytes(drive.image, kFirstLbaOfTable, Little(kEntryLba, 4));
  WriteBytes(drive.image, kEntryLba * kSectorBytes, boot_sector);
  ExpectBoots(drive, loader);
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image).text, kUnreadable);
}

TEST(ExfatBoot, TakesTheFatInUse) {
  ExfatDrive drive;
  const std::string loader = PutLoader(drive, kUsualBytes, {100, 2});
  SetBootField(drive, kFatField, Little(drive.fat_sector - drive.fat_sectors, 4));
  SetBootField(drive, kFlagsField, Little(1, 2));
  SetBootField(drive, kFatsField, Little(2, 1));
  ExpectBoots(drive, loader);
  SetBootField(drive, kFatField, Little(drive.fat_sector, 4));
  SetBootField(drive, kFatsField, Little(1, 1));
  ExpectBoots(drive, loader);
}

TEST(ExfatBoot, WorksUnderBiosesWithPeculiarities) {
  struct {
    const char* label;
    Bios bios;
    std::string device = kBigIde;
  } const cases[] = {
      {"entered at 07C0:0000", {.entry_segment = 0x7C0}},
      {"drive number 0", {.drive = 0}},
      {"drive number 0, no LBA calls", {.drive = 0, .peculiar = kNoLba}},
      {"drive number 81h", {.drive = 0x81}},
      {"drive number 0Fh", {.drive = 0x0F}},
      {"127 sectors at most", {.most_sectors = 127}},
      {"64 KiB pages", {.peculiar = kNoCrossing}},
      {"no LBA calls, 64 KiB pages", {.peculiar = kNoLba | kNoCrossing}},
      {"no LBA calls, another geometry", {.peculiar = kNoLba}, kZipIde},
      {"no LBA calls, no geometry", {.peculiar = kNoLba | kNoGeometry}},
      {"LBA calls that fail", {.peculiar = kFalseLba}},
      {"LBA calls that fail, no geometry", {.drive = 0, .peculiar = kFalseLba | kNoGeometry}},
  };
  const ExfatDrive drive({.bytes = 4 * kGib});
  const std::string loader = PutLoader(drive, kUsualBytes, {drive.ClusterAt(1100000), 2});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    ExpectBoots(drive, loader, c.bios, c.device);
  }
}

TEST(ExfatBoot, TakesTheVolumesDriveNumberWhereTheBiosGivesNone) {
  const ExfatDrive drive({.first_lba = 0});
  ExpectBoots(drive, PutLoader(drive), {.first_dl = 0x5A});
}

// The volume's jump leads to byte 78h, of which the formatter makes what it likes.
TEST(ExfatBoot, BearsWhatStandsInFrontOfIt) {
  constexpr std::size_t kFirstOfCode = 0x78;
  const ExfatDrive drive;
  const std::string loader = PutLoader(drive);
  for (const unsigned byte : {0x33U, 0x8BU, 0xFAU}) {
    SCOPED_TRACE(byte);
    SetBootField(drive, kFirstOfCode, Little(byte, 1));
    ExpectBoots(drive, loader);
  }
  SetBootField(drive, kFirstOfCode, std::string(1, kHlt));
  const std::string stub = StubLoader(kUsualBytes);
  WriteFile(drive, {100}, true, stub);
  ExpectLoaded(BootDirectly(drive.image), drive, stub);
}

// A sector of the drive, and how its BIOS reads.
using Place = std::pair<std::uint64_t, std::uint16_t>;

TEST(ExfatBoot, TriesAgainAfterAFailedRead) {
  const ExfatDrive drive;
  const std::string loader = PutLoader(drive);
  const std::uint64_t root = drive.ClusterLba(drive.root[0]);
  const Place places[] = {
      {drive.layout.first_lba + 1, 0}, {drive.layout.first_lba + 2, kNoLba}, {root, kNoLba},
      {drive.FatLba(100), 0},          {drive.ClusterLba(100) + 3, 0},       {drive.ClusterLba(130) + 7, kNoLba}};
  for (const auto& [lba, peculiar] : places) {
    SCOPED_TRACE(testing::Message() << lba << " " << peculiar);
    ExpectBoots(drive, loader, {.peculiar = peculiar, .faults = 2, .fault_lba = lba});
  }
}

// --- The name. ---

// What is like the loader's entries and isn't them, as a sound volume may have it.
std::string Decoys(std::u16string_view name) {
  const std::u16string whole(name);
  const std::u16string shorter = whole.substr(0, whole.size() - 1);
  return FileEntries(whole + u"X", kOther) + FileEntries(whole + u".EFI", kOther) + FileEntries(shorter, kOther) +
         FileEntries(whole + u" of more than 15 characters", kOther) + FileEntries(shorter + u"S", kOther) +
         FileEntries(shorter + u"\u0152", kOther) + FileEntries(name, kOther, kDirectory) +
         Deleted(FileEntries(name, kOther));
}

// The same as a damaged volume may have it: of the loader's entries not all are there.
std::string BrokenDecoys(std::u16string_view name) {
  const std::string whole = FileEntries(name, kOther);
  const std::string file = whole.substr(0, kEntryBytes);
  const std::string stream = whole.substr(kEntryBytes, kEntryBytes);
  const std::string characters = whole.substr(2 * kEntryBytes);
  return stream + characters + file + characters + file + Deleted(stream) + characters + Deleted(file) + stream +
         characters + file + stream + file + characters;
}

TEST(ExfatBoot, TellsTheLoaderFromWhatIsLikeIt) {
  struct {
    bool for_grldr;
    std::u16string image_name;
    std::u16string name;
  } const cases[] = {
      {false, u"BOOTMGR", u"BOOTMGR"}, {false, u"BOOTMGR", u"bootmgr"}, {false, u"BOOTMGR", u"BootMgR"},
      {true, u"GRLDR", u"GRLDR"},      {true, u"GRLDR", u"grldr"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name.begin(), c.name.end()));
    const ExfatDrive drive({.for_grldr = c.for_grldr});
    const std::string entries = FileEntries(c.name, WriteFile(drive, {100, 3}, true, TrapLoader(kUsualBytes)));
    const std::string other = Decoys(c.image_name) + BrokenDecoys(c.image_name) +
                              FileEntries(c.for_grldr ? u"BOOTMGR" : u"GRLDR", kOther) +
                              FileEntries(u"GRLDRGR", kOther);
    PlaceEntries(drive, kExfatFirstFree, other + entries);
    ExpectBoots(drive, TrapLoader(kUsualBytes));
  }
}

TEST(ExfatBoot, FindsTheLoaderAnywhereInTheRootDirectory) {
  struct {
    std::uint32_t cluster_bytes;
    std::vector<std::uint32_t> more_root;
    std::vector<std::size_t> places;  // entry numbers
  } const cases[] = {
      {4096, {}, {14, 15}},                                 // over the edge of a sector
      {4096, {9000, 5000, 200000, 5001}, {126, 127, 637}},  // over that of a cluster, at the end
      {512, {3000, 2000, 2001, 100000}, {15, 30, 77}},
      {65536, {300}, {2047, 4093}},
  };
  for (const auto& c : cases) {
    ExfatDrive drive({.cluster_bytes = c.cluster_bytes, .bytes = c.cluster_bytes * std::uint64_t{262144}});
    GrowRoot(drive, c.more_root);
    const std::string loader = TrapLoader(kUsualBytes);
    const std::string entries = FileEntries(u"BOOTMGR", WriteFile(drive, {100, 3}, true, loader));
    EXPECT_EQ(FaultsOf(drive), "");
    PlaceEntries(drive, kExfatFirstFree, FileEntries(u"OTHERS.", kOther));  // its flags are none of the directory's
    for (const std::size_t place : c.places) {
      SCOPED_TRACE(testing::Message() << c.cluster_bytes << " " << place);
      PlaceEntries(drive, place, entries);
      ExpectBoots(drive, loader);
      PlaceEntries(drive, place, Deleted(entries));
    }
  }
}

TEST(ExfatBootMessage, SaysThatTheLoaderIsMissing) {
  ExfatDrive drive;
  EXPECT_EQ(BootUnder({}, drive.image).text, kMissing) << "empty root directory";
  PlaceEntries(drive, kExfatFirstFree, std::string(kEntryBytes, '\0') + FileEntries(u"BOOTMGR", kOther));
  EXPECT_EQ(BootUnder({}, drive.image).text, kMissing) << "behind the end mark";
  GrowRoot(drive, {7000, 6000});
  PlaceEntries(drive, kExfatFirstFree, Decoys(u"BOOTMGR") + BrokenDecoys(u"BOOTMGR"));
  EXPECT_EQ(BootUnder({}, drive.image).text, kMissing) << "full root directory";
}

// --- What can't be read or makes no sense. ---

TEST(ExfatBootMessage, SaysThatADeadSectorCannotBeRead) {
  const ExfatDrive drive;
  PutLoader(drive);
  const std::uint64_t root = drive.ClusterLba(drive.root[0]);
  const Place places[] = {
      {drive.layout.first_lba + 1, 0}, {drive.layout.first_lba + 2, kNoLba}, {root, 0},
      {drive.FatLba(100), 0},          {drive.FatLba(100), kNoLba},          {drive.ClusterLba(120) + 1, 0},
      {drive.ClusterLba(120), kNoLba}};
  for (const auto& [lba, peculiar] : places) {
    SCOPED_TRACE(testing::Message() << lba << " " << peculiar);
    const Bios bios{.peculiar = peculiar, .faults = kAlways, .fault_lba = lba};
    EXPECT_EQ(BootUnder(bios, drive.image, 1, kBigIde).text, kUnreadable);
  }
  for (const std::uint64_t sector : {2U, 1U}) {
    WriteBytes(drive.image, (drive.layout.first_lba + sector) * kSectorBytes, std::string(kSectorBytes, kHlt));
    EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable) << "a formatter's extended sector";
  }
}

TEST(ExfatBootMessage, NeverWrapsACylinder) {
  const ExfatDrive drive({.cluster_bytes = 32768, .bytes = 20 * kGib});
  PutLoader(drive, kUsualBytes, {drive.ClusterAt(kSectorsOf8Gb + 5000000)});
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image, 1, kBigIde).text, kUnreadable);
}

TEST(ExfatBootMessage, RefusesABrokenChain) {
  ExfatDrive drive;
  PutLoader(drive);
  for (const std::uint32_t next : {0U, 1U, drive.clusters + 2, kExfatBad, kExfatEnd}) {
    SCOPED_TRACE(next);
    SetFatEntry(drive, 130, next);
    EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable);
  }
  SetFatEntry(drive, 130, 131);
  ExpectBoots(drive, TrapLoader(kUsualBytes));

  GrowRoot(drive, {700, 600, 500, 400});
  for (const std::uint32_t next : {1U, drive.clusters + 2, kExfatBad, drive.root[0], 600U, 400U}) {
    SCOPED_TRACE(next);
    SetFatEntry(drive, 400, next);
    EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable) << "root directory";
  }
}

TEST(ExfatBootMessage, RefusesAFileThatDoesNotFit) {
  const ExfatDrive drive;
  const std::uint64_t too_many = FactsOf(Contract::kNt).too_many_bytes;
  for (const bool chained : {false, true}) {
    for (const std::uint64_t bytes : {std::uint64_t{0}, too_many, kWide + 5000}) {
      SCOPED_TRACE(bytes);
      PlaceEntries(drive, kExfatFirstFree, FileEntries(u"BOOTMGR", {{100}, bytes, chained}));
      EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable);
    }
  }
  for (const std::uint32_t first : {1U, drive.clusters + 2, drive.clusters - 5, 0xFFFFFFFFU}) {
    SCOPED_TRACE(first);
    PlaceEntries(drive, kExfatFirstFree, FileEntries(u"BOOTMGR", {{first}, kUsualBytes, false}));
    EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable) << "past the last cluster";
  }
  PutLoader(drive, 1);
  EXPECT_EQ(BootUnder({.memory_kib = 120}, drive.image).text, kUnreadable) << "no memory at 2000:0000";
  ExpectBoots(drive, PutLoader(drive, 4096, {drive.clusters + 1}));
}

TEST(ExfatBootMessage, RefusesABootSectorThatMakesNoSense) {
  const ExfatDrive drive;
  const std::string sectors = TrapLoader(4096);
  PutLoader(drive, 4096);
  const struct {
    std::size_t offset;
    std::string bytes;
  } cases[] = {{kSectorShiftField, Little(12, 1)},
               {kSectorShiftField, Little(8, 1)},
               {kClusterShiftField, Little(17, 1)},
               {kClusterShiftField, Little(255, 1)},
               {kRootField, Little(0, 4)},
               {kRootField, Little(1, 4)},
               {kRootField, Little(drive.clusters + 2, 4)},
               {kRootField, Little(kExfatEnd, 4)},
               {kHeapField, Little(0xFFFFFFFF, 4)},
               {kStartField, Little(1ULL << 40U, 8)}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.offset << " " << Number(c.bytes));
    const std::string sound = ReadBytes(drive.image, drive.layout.first_lba * kSectorBytes + c.offset, c.bytes.size());
    SetBootField(drive, c.offset, c.bytes);
    EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image).text, kUnreadable);
    SetBootField(drive, c.offset, sound);
  }
  ExpectBoots(drive, sectors);
}

}  // namespace
