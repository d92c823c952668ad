// Which of the system files of MS-DOS the boot code takes.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

constexpr const char* kIoName = "IO      SYS";
constexpr const char* kTextName = "MSDOS   SYS";
constexpr const char* kWinbootName = "WINBOOT SYS";

std::vector<BootKind> KindsOf(Contract contract) {
  std::vector<BootKind> kinds = BootKinds();
  std::erase_if(kinds, [&](const BootKind& kind) { return kind.contract != contract; });
  return kinds;
}

class Dos6Boot : public testing::TestWithParam<BootKind> {};
class Dos7Boot : public testing::TestWithParam<BootKind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, Dos6Boot, testing::ValuesIn(KindsOf(Contract::kDos6)), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Kinds, Dos7Boot, testing::ValuesIn(KindsOf(Contract::kDos7)), NameOfKind);

// A file of this name at this cluster; the loader's bytes lie there already, or nothing.
std::string File(const char* name, std::uint32_t cluster, std::size_t bytes) {
  return DirectoryEntry(name, kArchive, cluster, bytes);
}

TEST_P(Dos7Boot, TakesTheProgramByTheFirstNameOfItsList) {
  constexpr std::uint32_t kIo = 100;
  constexpr std::uint32_t kWinboot = 300;
  const std::size_t bytes = 5000;
  const std::uint32_t first = GetParam().label == "Fat16MsDos7" ? kWinboot : kIo;
  const std::string text = File(kTextName, 500, bytes);
  struct {
    const char* label;
    std::string entries;
    std::uint32_t cluster;
  } const cases[] = {
      {"IO.SYS alone", File(kIoName, kIo, bytes), kIo},
      {"WINBOOT.SYS alone", File(kWinbootName, kWinboot, bytes), kWinboot},
      {"WINBOOT.SYS and a text", text + File(kWinbootName, kWinboot, bytes), kWinboot},
      {"IO.SYS and a text", File(kIoName, kIo, bytes) + text, kIo},
      {"a text and IO.SYS", text + File(kIoName, kIo, bytes), kIo},
      {"both", text + File(kIoName, kIo, bytes) + File(kWinbootName, kWinboot, bytes), first},
      {"both, the other way round", File(kWinbootName, kWinboot, bytes) + File(kIoName, kIo, bytes) + text, first},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    PreparedDrive drive(GetParam());
    drive.loader = LoaderFor(GetParam(), bytes);
    drive.first_cluster = c.cluster;
    WriteFile(drive.volume, {kIo}, drive.loader);
    WriteFile(drive.volume, {kWinboot}, drive.loader);
    WriteFile(drive.volume, {500}, std::string(bytes, ';'));
    PlaceEntries(drive.volume, 1, c.entries);
    ExpectBoots(drive);
  }
}

TEST_P(Dos7Boot, StartsAFileOfFourSectors) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam(), FactsOf(Contract::kDos7).promised_bytes));
  ExpectBoots(drive);
}

TEST_P(Dos6Boot, FindsTheTwoFilesInEitherOrder) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam()), {300, 1});
  const std::string entries = EntriesOf(drive);
  PlaceEntries(drive.volume, 1, entries.substr(kEntryBytes) + entries.substr(0, kEntryBytes));
  ExpectBoots(drive);
}

TEST_P(Dos6Boot, NeedsBothFiles) {
  PreparedDrive drive(GetParam());
  PutLoader(drive, LoaderFor(GetParam()));
  const std::string entries = EntriesOf(drive);
  PlaceEntries(drive.volume, 2, std::string(kEntryBytes, '\0'));
  EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().missing) << "no MSDOS.SYS";
  PlaceEntries(drive.volume, 1, entries.substr(kEntryBytes) + std::string(kEntryBytes, '\0'));
  EXPECT_EQ(BootUnder({}, drive.image).text, GetParam().missing) << "no IO.SYS";
}

// On FAT32 DOSZIP is MSDOS with the geometry, media byte and drive number of a ZIP drive.
TEST(Fat32Zip, StartsMsDosOfAZipDrive) {
  BootKind kind = KindOf("Fat32MsDos");
  kind.keywords = {"FAT32", "DOSZIP"};
  PreparedDrive drive(kind);
  PutLoader(drive, LoaderFor(kind));
  for (const std::uint16_t peculiar : {std::uint16_t{0}, kNoLba}) {
    ExpectBoots(drive, {.drive = 0, .peculiar = peculiar}, DiskOf(drive.volume));
  }
}

}  // namespace
