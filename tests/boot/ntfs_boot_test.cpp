// What the boot code of NTFS volumes loads, from where, and under which BIOSes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boot/boot_kind.h"
#include "boot/machine.h"
#include "boot/ntfs_drive.h"
#include "boot/ntfs_structures.h"

namespace {

constexpr std::size_t kVolumesOwn = 0x54;  // bytes of the boot sector
constexpr std::size_t kUsualBytes = 300001;
const std::string kBigIde = kIde + ",lcyls=1024,lheads=255,lsecs=63";

bool HasLba(const Bios& bios) { return (bios.peculiar & (kNoLba | kFalseLba)) == 0; }

void ExpectLoaded(const BootReport& report, const NtfsDrive& drive, const std::string& loader, const Bios& bios = {}) {
  ASSERT_TRUE(report.loaded) << "came over the debug port: " << report.text;
  EXPECT_EQ(report.cs, 0x2000U);
  EXPECT_EQ(report.ip, 0U);
  EXPECT_EQ(report.dx, bios.drive);
  EXPECT_EQ(report.ss | report.ds | report.es, 0U);
  EXPECT_EQ(report.sp, 0x7C00U);
  EXPECT_EQ(report.flags & 0x600U, 0x200U) << "interrupts on, direction flag clear";
  EXPECT_EQ(report.hash, HashOf(loader));
  std::string sector = ReadBytes(drive.image, drive.layout.first_lba * kSectorBytes, kVolumesOwn);
  const unsigned chs_mark = drive.layout.for_ntldr ? 0x90 : 0;
  sector[2] = static_cast<char>(HasLba(bios) ? 0x0E : chs_mark);
  sector.replace(0x18, 4, Little(63, 2) + Little(255, 2));
  sector.replace(0x1C, 4, Little(drive.layout.first_lba, 4));
  sector[0x24] = static_cast<char>(bios.drive);
  EXPECT_EQ(report.boot_sector.substr(0, kVolumesOwn), sector);
}

BootReport ExpectBoots(const NtfsDrive& drive, const std::string& loader, const Bios& bios = {}) {
  BootReport report = BootUnder(bios, drive.image, loader.size(), kBigIde);
  ExpectLoaded(report, drive, loader, bios);
  return report;
}

TEST(NtfsBoot, StartsTheLoaderFromTheBiosAlone) {
  const std::string loader = StubLoader(kUsualBytes);
  const NtfsDrive bootmgr({}, {{"bootmgr", loader}});
  ExpectLoaded(BootDirectly(bootmgr.image, kUsb), bootmgr, loader);
  const NtfsDrive ntldr({.for_ntldr = true}, {{"ntldr", loader}});
  ExpectLoaded(BootDirectly(ntldr.image, kIde), ntldr, loader);
}

TEST(NtfsBoot, StartsTheLoaderOfAPreparedDrive) {
  const std::pair<const char*, const char*> cases[] = {{"WIN7", "BOOTMGR"}, {"WIN7", "ntldr"}, {"NTLDR", "NTLDR"}};
  for (const auto& [words, name] : cases) {
    SCOPED_TRACE(words);
    const std::string loader = TrapLoader(kUsualBytes);
    const NtfsDrive drive("200M", words, {{name, loader}});
    EXPECT_TRUE(BytesByOthers(drive, name) == loader);
    ExpectBoots(drive, loader);
  }
}

struct PlaceCase {
  const char* label;
  NtfsLayout layout;
  Placement placement;
  std::uint32_t piece;
};

TEST(NtfsBoot, LoadsTheFileFromWhereverItIs) {
  constexpr std::uint32_t kSectors8GbIn64K = 128520;  // of 1024 x 255 x 63, in clusters
  const PlaceCase cases[] = {
      {"512 bytes, one piece", {.cluster_bytes = 512}, {100000, 1}, 1},
      {"512 bytes, pieces of 5", {.cluster_bytes = 512}, {90000, 9}, 5},
      {"4 KiB, each cluster apart", {}, {10000, 3}, 1},
      {"4 KiB, backwards and apart", {}, {16000, -70}, 1},
      {"4 KiB in 4 KiB records, pieces of 3", {.record_bytes = 4096}, {10000, -5}, 3},
      {"64 KiB", {.cluster_bytes = 65536}, {1000, -7}, 1},
      {"64 KiB in 4 KiB records", {.cluster_bytes = 65536, .record_bytes = 4096}, {900, 2}, 1},
      {"256 KiB", {.cluster_bytes = 262144, .mib = 256}, {900, -1}, 1},
      {"2 MiB", {.cluster_bytes = 2097152, .mib = 512}, {200, 1}, 1},
      {"over the end of CHS calls",
       {.cluster_bytes = 65536, .mib = 20480, .first_lba = 0},
       {kSectors8GbIn64K - 2, 1},
       1},
      {"behind 8 GB", {.mib = 20480, .first_lba = 0}, {5000000, -7}, 1},
      {"behind 32-bit addresses", {.cluster_bytes = 65536, .mib = 2200000, .first_lba = 0}, {35000000, 100}, 1},
  };
  for (const PlaceCase& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string loader = TrapLoader(kUsualBytes);
    NtfsDrive drive(c.layout, {{"BOOTMGR", loader}});
    Scatter(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, c.placement, c.piece);
    EXPECT_TRUE(BytesByOthers(drive, "BOOTMGR") == loader);
    const BootReport report = ExpectBoots(drive, loader, {.peculiar = kNoCrossing, .most_sectors = 127});
    EXPECT_LE(report.reads, kUsualBytes / c.layout.cluster_bytes + 30) << "clusters are read whole";
  }
}

TEST(NtfsBoot, LoadsFilesOfAnyLength) {
  for (const std::size_t bytes :
       {std::size_t{1}, std::size_t{600}, std::size_t{65535}, std::size_t{65537}, FactsOf(Contract::kNt).most_bytes}) {
    SCOPED_TRACE(bytes);
    const std::string loader = TrapLoader(bytes);
    ExpectBoots(NtfsDrive({}, {{"BOOTMGR", loader}}), loader);
  }
}

TEST(NtfsBoot, WorksUnderBiosesWithPeculiarities) {
  const std::pair<const char*, Bios> cases[] = {
      {"entered at 07C0:0000", {.entry_segment = 0x7C0}},
      {"drive number 0", {.drive = 0}},
      {"drive number 0, no LBA calls", {.drive = 0, .peculiar = kNoLba}},
      {"drive number 81h", {.drive = 0x81}},
      {"127 sectors at most, 64 KiB pages", {.peculiar = kNoCrossing, .most_sectors = 127}},
      {"no LBA calls, 64 KiB pages", {.peculiar = kNoLba | kNoCrossing}},
      {"no LBA calls, no geometry", {.peculiar = kNoLba | kNoGeometry}},
      {"LBA calls that fail", {.peculiar = kFalseLba}},
      {"LBA calls that fail, no geometry", {.drive = 0, .peculiar = kFalseLba | kNoGeometry}},
  };
  constexpr std::uint64_t kCylinder300 = std::uint64_t{300} * 255 * 63;
  const std::string loader = TrapLoader(kUsualBytes);
  NtfsDrive drive({.first_lba = kCylinder300, .for_ntldr = true}, {{"NTLDR", loader}});
  Scatter(drive, RecordOf(drive, "NTLDR"), kNtfsData, {10000, 2});
  for (const auto& [label, bios] : cases) {
    SCOPED_TRACE(label);
    ExpectBoots(drive, loader, bios);
  }
}

TEST(NtfsBoot, StartsAVolumeAnywhere) {
  constexpr std::size_t kTrackField = 0x18;
  constexpr std::size_t kHeadsField = 0x1A;
  constexpr std::size_t kHiddenField = 0x1C;
  constexpr std::uint64_t kFirstLbaOfTable = 0x1C6;
  constexpr std::uint64_t kOtherLba = 2048;
  const std::string loader = TrapLoader(kUsualBytes);
  const NtfsDrive drive({.first_lba = 5000001}, {{"BOOTMGR", loader}});
  const std::string boot_sector = ReadBytes(drive.image, drive.ClusterLba(0) * kSectorBytes, kSectorBytes);
  SetBootField(drive, kHiddenField, Little(0, 4));
  ExpectBoots(drive, loader);
  for (const std::size_t field : {kTrackField, kHeadsField}) {
    SetBootField(drive, 0, boot_sector);
    SetBootField(drive, field, Little(0, 2));
    ExpectBoots(drive, loader, {.drive = 0, .peculiar = kNoLba | kNoGeometry});
  }
  SetBootField(drive, 0, boot_sector);
  WriteBytes(drive.image, kFirstLbaOfTable, Little(kOtherLba, 4));
  WriteBytes(drive.image, kOtherLba * kSectorBytes, boot_sector);
  ExpectBoots(drive, loader);

  const NtfsDrive without_table({.first_lba = 0}, {{"BOOTMGR", loader}});
  ExpectBoots(without_table, loader, {.drive = 0});
  ExpectBoots(without_table, loader, {.first_dl = 0x5A});
}

// What a boot reads in turn.
std::vector<std::uint64_t> PlacesRead(const NtfsDrive& drive) {
  const std::uint32_t loader = RecordOf(drive, "BOOTMGR");
  return {drive.layout.first_lba + 3, LbaOf(drive, drive.mft, 0),
          LbaOf(drive, RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks), 0),
          LbaOf(drive, drive.mft, std::uint64_t{loader} * drive.layout.record_bytes),
          LbaOf(drive, RunsOf(drive, loader, kNtfsData), 50000)};
}

TEST(NtfsBoot, TriesAgainAfterAFailedRead) {
  const std::string loader = TrapLoader(kUsualBytes);
  const NtfsDrive drive({}, {{"BOOTMGR", loader}});
  std::uint16_t peculiar = 0;
  for (const std::uint64_t lba : PlacesRead(drive)) {
    SCOPED_TRACE(lba);
    ExpectBoots(drive, loader, {.peculiar = peculiar, .faults = 2, .fault_lba = lba});
    peculiar ^= kNoLba;
  }
}

// --- Finding the file. ---

const NtfsFile kOther = {"OTHER", "no loader"};

// Files whose names sort before and after those of the loaders, some only just.
std::vector<NtfsFile> Names(std::size_t before, std::size_t after) {
  std::vector<NtfsFile> files;
  for (std::size_t i = 0; i < before; ++i) {
    files.push_back({(i % 2 == 0 ? "bootm" : "Andere Datei ") + std::to_string(i), ""});
  }
  for (std::size_t i = 0; i < after; ++i) {
    files.push_back({(i % 2 == 0 ? "bootmgr" : "zuletzt \xC3\xA9") + std::to_string(i), ""});
  }
  return files;
}

// Where the entry of the loader's name is.
enum class Node { kLeaf, kInner, kRoot };

Node NodeOf(const NtfsDrive& drive, const std::string& name) {
  const NtfsPlace place = PlaceOf(drive, name);
  if (place.block < 0) {
    return Node::kRoot;
  }
  return place.has_child ? Node::kInner : Node::kLeaf;
}

TEST(NtfsBoot, FindsTheLoaderAmongOthers) {
  const struct {
    const char* label;
    NtfsLayout layout;
    std::size_t before, after;
    const char* name;
    Node node;
  } cases[] = {
      {"none", {.record_bytes = 4096}, 0, 0, "Bootmgr", Node::kLeaf},
      {"one each", {}, 1, 1, "BOOTMGR", Node::kLeaf},
      {"in the root", {}, 7, 20, "bootmgr", Node::kRoot},
      {"between root and leaf", {}, 49, 40, "BOOTMGR", Node::kInner},
      {"hundreds before", {.cluster_bytes = 512}, 400, 0, "BOOTMGR", Node::kLeaf},
      {"hundreds after", {.cluster_bytes = 65536}, 0, 400, "bootmgr", Node::kLeaf},
      {"thousands around", {.cluster_bytes = 2048}, 3000, 2000, "BOOTMGR", Node::kLeaf},
      {"thousands around, 4 KiB records", {.record_bytes = 4096}, 2000, 3000, "BootMgr", Node::kLeaf},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string loader = TrapLoader(1000);
    std::vector<NtfsFile> files = Names(c.before, c.after);
    files.insert(files.begin() + static_cast<std::ptrdiff_t>(c.before), {c.name, loader});
    const NtfsDrive drive(c.layout, files);
    EXPECT_EQ(NodeOf(drive, c.name), c.node);
    ExpectBoots(drive, loader);
  }
}

TEST(NtfsBoot, FindsANameOverTheEndOfASector) {
  constexpr std::size_t kFixup = kSectorBytes - 2;
  constexpr std::size_t kNameInEntry = 0x52;
  const std::string loader = TrapLoader(1000);
  const NtfsDrive drive({}, {{std::string(59, 'A'), ""}, {"BOOTMGR", loader}});
  const std::size_t name = (PlaceOf(drive, "BOOTMGR").offset + kNameInEntry) % kSectorBytes;
  ASSERT_TRUE(name <= kFixup && name + 2 * std::string("BOOTMGR").size() > kFixup) << name;
  ExpectBoots(drive, loader);
}

TEST(NtfsBoot, TakesBootmgrBeforeNtldr) {
  const std::string bootmgr = TrapLoader(5000);
  const std::string ntldr = TrapLoader(7000);
  const NtfsDrive both({}, {{"NTLDR", ntldr}, {"BOOTMGR", bootmgr}});
  ExpectBoots(both, bootmgr);
  const NtfsDrive for_ntldr({.for_ntldr = true}, {{"BOOTMGR", bootmgr}, {"NTLDR", ntldr}});
  ExpectBoots(for_ntldr, ntldr);
  NtfsDrive without({}, {{"BOOTMGR2", bootmgr}, {"BOOTMG", bootmgr}, {"NTLDR", ntldr}});
  ExpectBoots(without, ntldr);
  ShrinkIndex(without, {"BOOTMG", "BOOTMGR2", "NTLDR"});
  ExpectBoots(without, ntldr);
}

// --- Structures that mkntfs and ntfs-3g would not lay out so. ---

using Change = void (*)(NtfsDrive& drive);

constexpr Placement kApart{12000, -5};

constexpr std::size_t kListBytes = 0x10;  // of an attribute list in a record
constexpr std::size_t kListValue = 0x18;
constexpr std::size_t kListRecord = 0x10;  // of an entry
constexpr std::size_t kListEntryBytes = 0x28;

TEST(NtfsBoot, FollowsWhatIsInPieces) {
  struct {
    const char* label;
    NtfsLayout layout;
    Change change;
  } const cases[] = {
      {"$MFT, each cluster apart", {}, [](NtfsDrive& drive) { Scatter(drive, kNtfsMft, kNtfsData, kApart, 1, 2); }},
      {"$MFT, records in pieces",
       {.cluster_bytes = 512},
       [](NtfsDrive& drive) { Scatter(drive, kNtfsMft, kNtfsData, kApart, 3, 2); }},
      {"$MFT with an attribute list",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, kNtfsMft, kNtfsData, kApart, 1, 6);
         MoveToRecords(drive, kNtfsMft, kNtfsData, 3);
       }},
      {"$MFT with an attribute list in a cluster",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, kNtfsMft, kNtfsData, kApart, 1, 6);
         MoveToRecords(drive, kNtfsMft, kNtfsData, 3, 15000);
       }},
      {"index", {}, [](NtfsDrive& drive) { Scatter(drive, kNtfsRoot, kNtfsIndexBlocks, kApart); }},
      {"index, blocks in pieces",
       {.cluster_bytes = 1024},
       [](NtfsDrive& drive) { Scatter(drive, kNtfsRoot, kNtfsIndexBlocks, kApart, 3); }},
      {"index with an attribute list",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, kNtfsRoot, kNtfsIndexBlocks, kApart);
         MoveToRecords(drive, kNtfsRoot, kNtfsIndexBlocks, 2);
       }},
      {"index with an attribute list in a cluster",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, kNtfsRoot, kNtfsIndexBlocks, kApart);
         MoveToRecords(drive, kNtfsRoot, kNtfsIndexBlocks, 2, 15000);
       }},
      {"root of the index in another record, and another index",
       {},
       [](NtfsDrive& drive) {
         MoveToRecords(drive, kNtfsRoot, kNtfsIndexRoot, 1);
         ChangeAttribute(drive, kNtfsRoot, kNtfsList, [&](std::string& list) {
           std::string entry = list.substr(list.find(static_cast<char>(kNtfsIndexRoot), kListValue), kListEntryBytes);
           SetField(entry, kListRecord, RecordOf(drive, "BOOTMGR"), 6);
           list += entry;
           SetField(list, kListBytes, list.size() - kListValue, 4);
         });
       }},
      {"file with an attribute list",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, kApart);
         MoveToRecords(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, 4);
       }},
      {"file with an attribute list in a cluster",
       {},
       [](NtfsDrive& drive) {
         Scatter(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, kApart);
         MoveToRecords(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, 4, 15000);
       }},
  };
  const std::string loader = TrapLoader(kUsualBytes);
  std::vector<NtfsFile> files = Names(100, 100);
  files.push_back({"BOOTMGR", loader});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    NtfsDrive drive(c.layout, files);
    c.change(drive);
    EXPECT_TRUE(BytesByOthers(drive, "BOOTMGR") == loader);
    ExpectBoots(drive, loader, {.peculiar = kNoCrossing});
  }
}

// Changes a field of the data attribute of BOOTMGR, or of NTLDR.
void SetDataField(const NtfsDrive& drive, std::size_t offset, std::uint64_t value, std::size_t width,
                  const char* name = "BOOTMGR") {
  ChangeAttribute(drive, RecordOf(drive, name), kNtfsData,
                  [&](std::string& data) { SetField(data, offset, value, width); });
}

constexpr std::size_t kFlags = 0x0C;  // of an attribute
constexpr std::size_t kRealBytes = 0x30;
constexpr std::size_t kWrittenBytes = 0x38;

TEST(NtfsBoot, MakesZerosOfWhatIsNotThere) {
  constexpr std::size_t kCluster = 4096;
  const std::string loader = TrapLoader(kUsualBytes);
  std::string sparse = loader;
  sparse.replace(10 * kCluster, 30 * kCluster, 30 * kCluster, '\0');
  NtfsDrive drive({}, {{"BOOTMGR", loader}});
  NtfsRuns runs = RunsOf(drive, RecordOf(drive, "BOOTMGR"), kNtfsData);
  ASSERT_EQ(runs.size(), 1U);
  const NtfsRun whole = runs[0];
  runs = {{10, whole.first}, {30, kNtfsHole}, {whole.clusters - 40, whole.first + 40}};
  SetRuns(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, runs);
  EXPECT_TRUE(BytesByOthers(drive, "BOOTMGR") == sparse);
  ExpectBoots(drive, sparse);

  constexpr std::size_t kWritten = 150007;
  SetRuns(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, {whole});
  SetDataField(drive, kWrittenBytes, kWritten, 8);
  const std::string short_written = loader.substr(0, kWritten) + std::string(kUsualBytes - kWritten, '\0');
  EXPECT_TRUE(BytesByOthers(drive, "BOOTMGR") == short_written);
  ExpectBoots(drive, short_written);
}

// --- What ends in a message. ---

const std::string kRestart = "\r\nPress Ctrl+Alt+Del to restart\r\n<halt>";
const std::string kUnreadable = "\r\nA disk read error occurred" + kRestart;
const std::string kMissing = "\r\nBOOTMGR is missing" + kRestart;
const std::string kCompressed = "\r\nBOOTMGR is compressed" + kRestart;
const std::string kNtldrCompressed = "\r\nNTLDR is compressed" + kRestart;

struct MessageCase {
  const char* label;
  const std::string& text;
  Change change;
};

void ExpectMessages(const std::vector<MessageCase>& cases) {
  std::vector<NtfsFile> files = Names(20, 20);
  files.push_back({"BOOTMGR", TrapLoader(kUsualBytes)});
  for (const MessageCase& c : cases) {
    SCOPED_TRACE(c.label);
    NtfsDrive drive({}, files);
    c.change(drive);
    EXPECT_EQ(BootUnder({}, drive.image).text, c.text);
  }
}

TEST(NtfsBootMessage, SaysThatTheLoaderIsMissing) {
  ExpectMessages({
      {"only in a block that isn't used", kMissing,
       [](NtfsDrive& drive) {
         ShrinkIndex(drive, {"bootm0", "bootmgr2"});
       }},
      {"a directory", kMissing,
       [](NtfsDrive& drive) {
         constexpr std::size_t kAttributes = 0x48;
         const NtfsPlace place = PlaceOf(drive, "BOOTMGR");
         ChangeIndexBlock(drive, place.block,
                          [&](std::string& block) { SetField(block, place.offset + kAttributes, 0x10000000, 4); });
       }},
  });
  const NtfsDrive for_ntldr({.for_ntldr = true}, {{"BOOTMGR", "no loader"}});
  EXPECT_EQ(BootUnder({}, for_ntldr.image).text, "\r\nNTLDR is missing" + kRestart);
}

TEST(NtfsBootMessage, SaysThatTheLoaderIsCompressed) {
  ExpectMessages({
      {"compressed", kCompressed, [](NtfsDrive& drive) { SetDataField(drive, kFlags, 0x0001, 2); }},
      {"encrypted", kCompressed, [](NtfsDrive& drive) { SetDataField(drive, kFlags, 0x4000, 2); }},
      {"kept elsewhere", kCompressed,
       [](NtfsDrive& drive) {
         ChangeAttribute(drive, RecordOf(drive, "BOOTMGR"), kNtfsInformation,
                         [](std::string& attribute) { SetField(attribute, 0, kNtfsReparse, 4); });
       }},
  });
  for (const bool for_ntldr : {false, true}) {
    const NtfsDrive drive({.for_ntldr = for_ntldr}, {{"NTLDR", TrapLoader(kUsualBytes)}});
    SetDataField(drive, kFlags, 0x0001, 2, "NTLDR");
    EXPECT_EQ(BootUnder({}, drive.image).text, kNtldrCompressed);
  }
  const NtfsDrive small({}, {{"BOOTMGR", TrapLoader(300)}});
  SetDataField(small, kFlags, 0x0001, 2);
  ExpectBoots(small, TrapLoader(300));
}

TEST(NtfsBootMessage, SaysThatADeadSectorCannotBeRead) {
  const NtfsDrive drive({}, {{"BOOTMGR", TrapLoader(kUsualBytes)}});
  std::uint16_t peculiar = kNoLba;
  for (const std::uint64_t lba : PlacesRead(drive)) {
    SCOPED_TRACE(lba);
    const Bios bios{.peculiar = peculiar, .faults = kAlways, .fault_lba = lba};
    EXPECT_EQ(BootUnder(bios, drive.image, 1, kBigIde).text, kUnreadable);
    peculiar ^= kNoLba;
  }
  WriteBytes(drive.image, (drive.layout.first_lba + 8) * kSectorBytes, std::string(kSectorBytes, '\0'));
  EXPECT_EQ(BootUnder({}, drive.image).text, kUnreadable) << "not all of the boot code";
}

TEST(NtfsBootMessage, NeverWrapsACylinder) {
  NtfsDrive drive({.mib = 20480, .first_lba = 0}, {{"BOOTMGR", TrapLoader(kUsualBytes)}});
  Scatter(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, {3000000, 1});
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image, 1, kBigIde).text, kUnreadable);
}

// Spoils the last word of the sector.
void Tear(const NtfsDrive& drive, std::uint64_t lba) {
  const std::uint64_t at = (lba + 1) * kSectorBytes - 2;
  WriteBytes(drive.image, at, Little(Number(ReadBytes(drive.image, at, 2)) ^ 0x100U, 2));
}

std::uint64_t LbaOfRecord(const NtfsDrive& drive, std::uint32_t record) {
  return LbaOf(drive, drive.mft, std::uint64_t{record} * drive.layout.record_bytes);
}

TEST(NtfsBootMessage, RefusesWhatWasWrittenInPart) {
  ExpectMessages({
      {"$MFT", kUnreadable, [](NtfsDrive& drive) { Tear(drive, LbaOfRecord(drive, kNtfsMft)); }},
      {"root directory", kUnreadable, [](NtfsDrive& drive) { Tear(drive, LbaOfRecord(drive, kNtfsRoot) + 1); }},
      {"file", kUnreadable, [](NtfsDrive& drive) { Tear(drive, LbaOfRecord(drive, RecordOf(drive, "BOOTMGR"))); }},
      {"block of the index", kUnreadable,
       [](NtfsDrive& drive) {
         const std::uint64_t block = static_cast<std::uint64_t>(PlaceOf(drive, "BOOTMGR").block);
         Tear(drive, LbaOf(drive, RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks), block * 4096 + 7 * kSectorBytes));
       }},
  });
}

TEST(NtfsBootMessage, RefusesWhatMakesNoSense) {
  ExpectMessages({
      {"sectors of another size", kUnreadable, [](NtfsDrive& drive) { SetBootField(drive, 0x0B, Little(4096, 2)); }},
      {"clusters of another size", kUnreadable, [](NtfsDrive& drive) { SetBootField(drive, 0x0D, Little(0xF0, 1)); }},
      {"records of another size", kUnreadable, [](NtfsDrive& drive) { SetBootField(drive, 0x40, Little(0xF3, 1)); }},
      {"records of a wrong size", kUnreadable, [](NtfsDrive& drive) { SetBootField(drive, 0x40, Little(0xF5, 1)); }},
      {"deleted record", kUnreadable,
       [](NtfsDrive& drive) {
         ChangeRecord(drive, RecordOf(drive, "BOOTMGR"), [](std::string& record) { SetField(record, 0x16, 0, 2); });
       }},
      {"bad record", kUnreadable,
       [](NtfsDrive& drive) {
         ChangeRecord(drive, RecordOf(drive, "BOOTMGR"), [](std::string& record) { record.replace(0, 4, "BAAD"); });
       }},
      {"fixups for half of a record", kUnreadable,
       [](NtfsDrive& drive) {
         ChangeRecord(drive, RecordOf(drive, "BOOTMGR"), [](std::string& record) { SetField(record, 0x06, 2, 2); });
       }},
      {"extents that don't follow each other", kUnreadable,
       [](NtfsDrive& drive) {
         Scatter(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, kApart);
         MoveToRecords(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, 2);
         ChangeAttribute(drive, kNtfsSpareRecord + 1, kNtfsData,
                         [](std::string& extent) { SetField(extent, 0x10, Number(extent.substr(0x10, 4)) + 1, 8); });
       }},
      {"attribute without length", kUnreadable,
       [](NtfsDrive& drive) {
         ChangeRecord(drive, RecordOf(drive, "BOOTMGR"),
                      [](std::string& record) { SetField(record, Number(record.substr(0x14, 2)) + 4, 0, 4); });
       }},
      {"no data but those of another stream", kUnreadable, [](NtfsDrive& drive) { SetDataField(drive, 0x09, 1, 1); }},
      {"other block of the index", kUnreadable,
       [](NtfsDrive& drive) {
         ChangeIndexBlock(drive, PlaceOf(drive, "BOOTMGR").block,
                          [](std::string& block) { SetField(block, 0x10, 77, 8); });
       }},
      {"root of the index that is below itself", kUnreadable,
       [](NtfsDrive& drive) {
         const NtfsPlace place = PlaceOf(drive, "BOOTMGR");
         ChangeIndexBlock(drive, place.block, [&](std::string& block) {
           // The first entry becomes one without a name, and with the block itself as its child.
           const std::size_t first = 0x18 + Number(block.substr(0x18, 4));
           SetField(block, first + 8, 0x18, 2);
           SetField(block, first + 0x0C, 3, 2);
           SetField(block, first + 0x10, Number(block.substr(0x10, 4)), 8);
         });
       }},
      {"entry without length", kUnreadable,
       [](NtfsDrive& drive) {
         const NtfsPlace place = PlaceOf(drive, "bootm0");
         ChangeIndexBlock(drive, place.block, [&](std::string& block) { SetField(block, place.offset + 8, 0, 2); });
       }},
      {"cluster behind the volume", kUnreadable,
       [](NtfsDrive& drive) {
         SetBootField(drive, 0x28, Little(104000, 8));
         SetRuns(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, {{40, 12000}, {1, 13000}, {40, 12500}});
       }},
      {"too few clusters", kUnreadable,
       [](NtfsDrive& drive) {
         SetRuns(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, {{50, 12000}});
       }},
      {"empty file", kUnreadable, [](NtfsDrive& drive) { SetDataField(drive, kRealBytes, 0, 8); }},
      {"file that is too large", kUnreadable,
       [](NtfsDrive& drive) {
         SetRuns(drive, RecordOf(drive, "BOOTMGR"), kNtfsData, {{300, 12000}});
         SetDataField(drive, kRealBytes, FactsOf(Contract::kNt).too_many_bytes, 8);
       }},
      {"file of more than 4 GB", kUnreadable,
       [](NtfsDrive& drive) { SetDataField(drive, kRealBytes, (std::uint64_t{1} << 32U) + 5000, 8); }},
  });
  const NtfsDrive empty({}, {{"BOOTMGR", ""}});
  EXPECT_EQ(BootUnder({}, empty.image).text, kUnreadable);
  const NtfsDrive sound({}, {{"BOOTMGR", TrapLoader(kUsualBytes)}});
  EXPECT_EQ(BootUnder({.memory_kib = 120}, sound.image).text, kUnreadable) << "no memory at 2000:0000";
}

}  // namespace
