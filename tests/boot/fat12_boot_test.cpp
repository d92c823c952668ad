// What the boot code of the small second partition loads, once that partition is the active one.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

constexpr std::uint64_t kFirstStatus = 0x1BE;
constexpr std::uint64_t kSecondStatus = 0x1CE;
constexpr std::uint64_t kSecondLba = kSecondStatus + 8;
constexpr std::uint32_t kLastCluster = 24;  // 23 clusters of a sector each
constexpr std::size_t kMostBytes = 23 * kSectorBytes;

struct SecondPartition : PreparedDrive {
  // The boot code is that of FAT16 for BOOTMGR, but for the FAT.
  explicit SecondPartition(const std::string& size = "1G", const std::vector<std::string>& keywords = {"2PTN"})
      : PreparedDrive(KindOf("Fat16Bootmgr"), size, keywords) {
    volume = OpenVolume(image, Number(ReadBytes(image, kSecondLba, 4)));
    EXPECT_EQ(volume.entry_bits, 12U);
    EXPECT_EQ(volume.LastCluster(), kLastCluster);
    WriteBytes(image, kFirstStatus, Little(0, 1));
    WriteBytes(image, kSecondStatus, Little(0x80, 1));
  }
};

TEST(Fat12Boot, StartsTheLoaderOfTheSecondPartition) {
  struct {
    const char* label;
    const char* size;
    std::vector<std::string> keywords;
    Bios bios;
  } const cases[] = {
      {"behind FAT16", "1G", {"2PTN"}, {}},
      {"behind FAT32", "1G", {"FAT32", "2PTN"}, {.drive = 0x81, .entry_segment = 0x7C0}},
      {"behind 8 GB", "20G", {"FAT32", "2PTN"}, {}},
      {"no LBA calls", "1G", {"2PTN"}, {.peculiar = kNoLba}},
      {"LBA calls that fail", "1G", {"2PTN"}, {.peculiar = kFalseLba}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    SecondPartition drive(c.size, c.keywords);
    PutLoader(drive, LoaderFor(drive.kind, kMostBytes), {2, 1});
    ExpectBoots(drive, c.bios, kIde + ",lcyls=1024,lheads=255,lsecs=63");
  }
}

TEST(Fat12Boot, FollowsTheChainOfTheFile) {
  struct {
    std::size_t bytes;
    Placement placement;
  } const cases[] = {
      {1, {2}},           {512, {kLastCluster}},    {513, {3, 2}},
      {11 * 512, {2, 2}}, {11 * 512 - 1, {23, -2}}, {kMostBytes, {24, -1}},
  };
  SecondPartition drive;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bytes << " bytes from " << c.placement.first << " by " << c.placement.step);
    PutLoader(drive, LoaderFor(drive.kind, c.bytes), c.placement);
    ExpectBoots(drive);
  }
}

TEST(Fat12Boot, FindsTheLastEntryOfTheRootDirectory) {
  SecondPartition drive;
  PutLoader(drive, LoaderFor(drive.kind, 5000));
  PlaceEntries(drive.volume, FillRoot(drive) - 1, EntriesOf(drive));
  ExpectBoots(drive);
}

TEST(Fat12BootMessage, SaysWhatIsWrong) {
  SecondPartition drive;
  EXPECT_EQ(BootUnder({}, drive.image).text, drive.kind.missing);
  PutLoader(drive, LoaderFor(drive.kind, 5000));
  for (const std::uint64_t lba : {drive.volume.FatLba(3), drive.volume.RootLba(), drive.volume.ClusterLba(4)}) {
    SCOPED_TRACE(lba);
    EXPECT_EQ(BootUnder({.faults = kAlways, .fault_lba = lba}, drive.image, 1, DiskOf(drive.volume)).text,
              drive.kind.unreadable);
    ExpectBoots(drive, {.faults = 1, .fault_lba = lba});
  }
  for (const std::uint32_t value : {std::uint32_t{0}, std::uint32_t{1}, kLastCluster + 1, kBadCluster, kEndOfChain}) {
    SCOPED_TRACE(value);
    SetFatEntry(drive.volume, 5, value);
    EXPECT_EQ(BootUnder({}, drive.image).text, drive.kind.unreadable);
  }
}

}  // namespace
