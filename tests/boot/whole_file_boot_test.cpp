// What the FAT boot code that loads its loader whole has to bear beyond what all has.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

std::vector<BootKind> WholeFileKinds() {
  std::vector<BootKind> kinds = BootKinds();
  std::erase_if(kinds, [](const BootKind& kind) { return !LoadsWholeFile(kind); });
  return kinds;
}

class WholeFileBoot : public testing::TestWithParam<BootKind> {};
class WholeFileMessage : public testing::TestWithParam<BootKind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, WholeFileBoot, testing::ValuesIn(WholeFileKinds()), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Kinds, WholeFileMessage, testing::ValuesIn(WholeFileKinds()), NameOfKind);

TEST_P(WholeFileBoot, StartsTheLoaderFromTheBiosAlone) {
  constexpr std::size_t kBytes = 66001;
  struct {
    const char* label;
    std::vector<std::string> keywords;
    std::string device;
  } const cases[] = {{"partition", {}, kIde}, {"partition on USB", {}, kUsb}, {"no partition table", {"USBFDD"}, kIde}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    PreparedDrive drive(GetParam(), "1G", c.keywords);
    PutLoader(drive, StubLoader(kBytes));
    ExpectLoaded(BootDirectly(drive.image, c.device), drive);
  }
}

TEST_P(WholeFileBoot, LoadsFilesOfAnyLength) {
  const ContractFacts& facts = FactsOf(GetParam().contract);
  PreparedDrive drive(GetParam());
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{511}, std::size_t{512}, std::size_t{513},
                                  std::size_t{65535}, std::size_t{65536}, std::size_t{65537}, facts.most_bytes}) {
    SCOPED_TRACE(bytes);
    PutLoader(drive, LoaderFor(GetParam(), bytes));
    ExpectBoots(drive);
  }
}

TEST_P(WholeFileMessage, RefusesABrokenChain) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam()));
  const std::uint32_t values[] = {0, 1, kBadCluster, drive.volume.LastCluster() + 1, kEndOfChain};
  for (const std::uint32_t value : values) {
    SCOPED_TRACE(value);
    SetFatEntry(drive.volume, 5, value);
    if (value < kBadCluster) {
      SetFatEntry(drive.volume, value, 6);  // whoever follows it finds the rest
    }
    EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().first + GetParam().unreadable);
  }
}

TEST_P(WholeFileMessage, RefusesAFileThatDoesNotFit) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, std::string(1 << 20, 'x'));
  for (const std::size_t bytes :
       {std::size_t{0}, FactsOf(GetParam().contract).too_many_bytes, std::size_t{0xFFFFFFFF}}) {
    SCOPED_TRACE(bytes);
    PlaceEntries(drive.volume, 1, DirectoryEntry(GetParam().loader, kArchive, 3, bytes));
    EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().first + GetParam().unreadable);
  }
  if (GetParam().contract == Contract::kNt) {
    PlaceEntries(drive.volume, 1, DirectoryEntry(GetParam().loader, kArchive, 3, 1));
    EXPECT_EQ(BootUnder({.memory_kib = 120}, drive.image).text, GetParam().unreadable) << "no memory at 2000:0000";
  }
}

TEST(CopiedDrive, BootsLikeTheOneThatItCameFrom) {
  PreparedDrive drive(KindOf("Fat32Bootmgr"), "300M");
  PutLoader(drive, LoaderFor(drive.kind));
  const std::string file = drive.folder.File("saved.bin");
  ASSERT_EQ(RunOnDrive(drive.image, "", "DRIVE=1 SURE USBTOFILE FILE=" + file).exit_code, 0);
  const std::string copy = drive.folder.File("copy.img");
  ASSERT_EQ(RunOnDrive(copy, "size=300M", "DRIVE=1 SURE FILETOUSB FILE=" + file).exit_code, 0);
  EXPECT_EQ(RunCommand({"cmp", drive.image, copy}).exit_code, 0);
  drive.image = copy;
  ExpectBoots(drive);
}

}  // namespace
