// What the master boot record makes of partition tables and drives.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

constexpr std::uint64_t kTable = 0x1BE;
constexpr std::uint64_t kEntry = 16;
constexpr std::uint64_t kFirstLbaField = 8;
constexpr std::uint64_t kMagic = 0x1FE;
constexpr const char* kInvalid = "Invalid partition table<halt>";
constexpr const char* kUnreadable = "Error loading operating system<halt>";
constexpr const char* kNoSystem = "Missing operating system<halt>";

struct TableCase {
  const char* label;
  std::uint64_t offset;  // in LBA 0
  std::string bytes;
  const char* text;
};

TEST(MbrBoot, SaysWhatIsWrongWithTheTable) {
  const TableCase cases[] = {
      {"no active entry", kTable, Little(0, 1), kInvalid},
      {"empty table", kTable, std::string(4 * kEntry, '\0'), kInvalid},
      {"bad status alone", kTable, Little(0x01, 1), kInvalid},
      {"two active entries", kTable + 3 * kEntry, Little(0x80, 1), kInvalid},
      {"bad status ahead of the active entry", kTable, Little(0x01, 1) + std::string(15, '\0') + Little(0x80, 1),
       kInvalid},
      {"bad status behind it", kTable + 2 * kEntry, Little(0x7F, 1), kInvalid},
      {"sector without magic", kTable + kFirstLbaField, Little(kStartLba + 3, 4), kNoSystem},
      {"sector that isn't there", kTable + kFirstLbaField, Little(0xFFFFFFF0, 4), kUnreadable},
  };
  for (const TableCase& c : cases) {
    SCOPED_TRACE(c.label);
    const PreparedDrive drive(KindOf("Fat32Bootmgr"));
    WriteBytes(drive.image, c.offset, c.bytes);
    EXPECT_EQ(BootUnder({}, drive.image).text, c.text);
  }
}

TEST(MbrBoot, SaysWhatIsWrongWithTheDrive) {
  const PreparedDrive drive(KindOf("Fat32Bootmgr"));
  for (const std::uint16_t peculiar : {std::uint16_t{0}, kNoLba, kFalseLba}) {
    SCOPED_TRACE(peculiar);
    const Bios dead{.peculiar = peculiar, .faults = kAlways, .fault_lba = kStartLba};
    EXPECT_EQ(BootUnder(dead, drive.image).text, kUnreadable);
  }
  WriteBytes(drive.image, kTable + kFirstLbaField, Little(0x10000000, 4));
  EXPECT_EQ(BootUnder({.peculiar = kNoLba}, drive.image).text, kUnreadable) << "behind the last cylinder";
  WriteBytes(drive.image, kTable + kFirstLbaField, Little(kStartLba, 4));
  WriteBytes(drive.image, kStartLba * kSectorBytes + kMagic, Little(0, 2));
  EXPECT_EQ(BootUnder({}, drive.image).text, kNoSystem);
}

// The volume's boot sector is one instruction here, which reports what the master boot record hands over.
TEST(MbrBoot, HandsOverDriveAndEntry) {
  constexpr std::uint64_t kLba = 5000000;  // a cylinder above 255
  const PreparedDrive drive(KindOf("Fat32Bootmgr"), "4G");
  WriteBytes(drive.image, kLba * kSectorBytes, "\xCC");
  WriteBytes(drive.image, kLba * kSectorBytes + kMagic, Little(0xAA55, 2));
  WriteBytes(drive.image, kTable + kFirstLbaField, Little(kLba, 4));
  const std::string entry = ReadBytes(drive.image, kTable, kEntry);
  const Bios bioses[] = {{.drive = 0x80},
                         {.drive = 0x00, .entry_segment = 0x7C0},
                         {.drive = 0x55, .peculiar = kNoLba},
                         {.drive = 0x81, .peculiar = kFalseLba},
                         {.drive = 0x00, .peculiar = kNoLba | kNoGeometry},
                         {.faults = 4, .fault_lba = kLba},
                         {.peculiar = kNoLba, .faults = 4, .fault_lba = kLba}};
  for (std::uint64_t row = 0; row < 4; ++row) {
    WriteBytes(drive.image, kTable, std::string(4 * kEntry, '\0'));
    WriteBytes(drive.image, kTable + row * kEntry, entry);
    for (const Bios& bios : bioses) {
      SCOPED_TRACE(testing::Message() << row << " " << int{bios.drive} << " " << bios.peculiar << " " << bios.faults);
      const BootReport report = BootUnder(bios, drive.image, 1, kIde + ",lcyls=522,lheads=255,lsecs=63");
      ASSERT_TRUE(report.loaded) << report.text;
      EXPECT_EQ(report.cs * 16 + report.ip, 0x7C00U);
      EXPECT_EQ(report.ds, 0U);
      EXPECT_EQ(report.si, 0x7BE + row * kEntry);
      EXPECT_EQ(report.bp, report.si);
      EXPECT_EQ(report.dx & 0xFF, bios.drive);
      EXPECT_NE(report.flags & 0x200, 0U) << "interrupts on";
      EXPECT_EQ(report.flags & 0x400, 0U) << "direction flag";
    }
  }
}

}  // namespace
