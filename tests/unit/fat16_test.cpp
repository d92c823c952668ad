#include "format/fat16.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "format/fat12.h"
#include "partition/mbr_builder.h"
#include "support/program.h"

namespace {

using std::string_literals::operator""s;

TEST(Fat16ClusterSectors, StepsAtItsLimits) {
  const std::vector<std::pair<std::int64_t, int>> cases{
      {553, 2},        {130'492, 2},    {130'493, 4},    {261'528, 4},     {261'529, 8},
      {523'600, 8},    {523'601, 16},   {1'047'744, 16}, {1'047'745, 32},  {2'096'032, 32},
      {2'096'033, 64}, {3'000'000, 64}, {4'192'608, 64}, {4'192'609, 128}, {8'386'849, 128},
  };
  for (const auto& [sectors, cluster] : cases) {
    EXPECT_EQ(int{Fat16ClusterSectors(sectors)}, cluster) << sectors;
  }
}

// A machine with an open drive of 16 GB and the results of the MBR builder.
class OpenDrive : public MachineDouble {
 public:
  OpenDrive() : MachineDouble(Drives()) {
    ResetProgram(*this);
    OptSure = true;
    DriveNumber = 1;
    StartLba = 2048;
    GeomHeads = 255;
    GeomSpt = 63;
    SizeSectorBuffer(512);
    EXPECT_TRUE(Open_Physical_Disk_hDrive(1));
  }

  // Runs a formatter; returns the level, or -1 when it came back.
  template <typename Formatter>
  static int Run(Formatter formatter) {
    try {
      formatter();
    } catch (const RunEnded& end) {
      return end.level;
    }
    return -1;
  }

  std::string Text(std::uint64_t lba, std::size_t at, std::size_t bytes) {
    const std::vector<std::uint8_t> sector = MachineDouble::DriveBytes(1, lba, 1);
    return {sector.begin() + static_cast<std::ptrdiff_t>(at), sector.begin() + static_cast<std::ptrdiff_t>(at + bytes)};
  }

 private:
  static std::vector<AttachedDrive> Drives() {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, 16ULL << 30));
    return drives;
  }
};

TEST(FormatFat16, HoldsItsLimits) {
  const std::string kWarning =
      "\r\nWARNING: DOS and Win9x cannot recognise FAT16 partitions over 2GB - use SIZE=2000 parameter or FAT32.";
  const std::string kRefusal =
      "\r\nFORMATTING AS FAT16\r\nERROR: FAT-16 must be between 300KiB and 4GiB. Specify FAT32 instead.\r\n\r\n";
  const struct {
    std::int64_t sectors;
    std::string boot_type;
    int level;
    std::string start;
  } cases[] = {
      {552, "FAT16BOOTMGR", 1, kRefusal},
      {553, "FAT16BOOTMGR", -1, "\r\nFORMATTING AS FAT16\r\nBoot type set to FAT16BOOTMGR"},
      {4'192'902, "FAT16NTLDR", -1, "\r\nFORMATTING AS FAT16\r\nBoot type set to FAT16NTLDR"},
      {4'192'903, "FAT16NTLDR", -1, "\r\nFORMATTING AS FAT16" + kWarning + "\r\nBoot type set to FAT16NTLDR"},
      {8'386'849, "FAT16FREEDOS", -1, "\r\nFORMATTING AS FAT16" + kWarning + "\r\nBoot type set to FAT16FREEDOS"},
      {8'386'850, "FAT16FREEDOS", 1, kRefusal},
  };
  for (const auto& row : cases) {
    OpenDrive machine;
    BootType = row.boot_type;
    PartSectors = row.sectors;
    EXPECT_EQ(machine.Run([] { FormatFat16("label"); }), row.level) << row.sectors;
    EXPECT_TRUE(machine.console.starts_with(row.start)) << row.sectors << machine.console;
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).empty(), row.level == 1) << row.sectors;
  }
}

TEST(FormatFat16, WritesTheBytesOfTheFormat) {
  const struct {
    bool zip, usb_fdd;
    std::string fields;  // 0Bh to 26h, for a volume of 3,000,000 sectors
    char media;
  } cases[] = {
      {false, false, "\0\x02\x40\x01\0\x02\0\x02\0\0\xF8\0\x01\x3F\0\xFF\0\0\x08\0\0\xC0\xC6\x2D\0\x80\0\x29"s, '\xF8'},
      {true, true, "\0\x02\x40\x01\0\x02\0\x02\0\0\xF0\0\x01\x3F\0\xFF\0\0\0\0\0\xC0\xC6\x2D\0\0\0\x29"s, '\xF0'},
  };
  for (const auto& row : cases) {
    OpenDrive machine;
    BootType = "FAT16BOOTMGR";
    PartSectors = 3'000'000;
    OptZip = row.zip;
    OptUsbFdd = row.usb_fdd;
    const std::uint64_t volume = row.usb_fdd ? 0 : 2048;
    machine.SetDriveBytes(1, volume, std::vector<std::uint8_t>(600 * 512, 0xA5));
    ASSERT_EQ(machine.Run([] { FormatFat16("My \xC4 label"); }), -1);
    EXPECT_EQ(machine.Text(volume, 0, 0x0B), "\xEB\x3C\x0EMSDOS5.0");
    EXPECT_EQ(machine.Text(volume, 0x0B, 28), row.fields);
    EXPECT_EQ(machine.Text(volume, 0x2B, 19), "NO NAME    FAT16   ");
    EXPECT_EQ(machine.Text(volume, 0x1FE, 2), "\x55\xAA");
    for (const std::uint64_t fat : {volume + 1, volume + 257}) {
      EXPECT_EQ(machine.Text(fat, 0, 512), row.media + "\xFF\xFF\xFF"s + std::string(508, '\0'));
      EXPECT_EQ(machine.Text(fat + 255, 0, 512), std::string(512, '\0'));
    }
    EXPECT_EQ(machine.Text(volume + 513, 0, 512),
              "My \xC4 label \x28"s + std::string(12, '\0') + "\x21\x28" + std::string(486, '\0'));
    EXPECT_EQ(machine.Text(volume + 544, 0, 512), std::string(512, '\0'));
    EXPECT_EQ(machine.Text(volume + 545, 0, 512), std::string(512, '\xA5'));
  }
}

TEST(FormatFat12, WritesTheBytesOfTheFormat) {
  OpenDrive machine;
  machine.SetDriveBytes(1, 70'000, std::vector<std::uint8_t>(64 * 512, 0xA5));
  ASSERT_EQ(machine.Run([] { FormatFat12("ignored", 70'000); }), -1);
  EXPECT_EQ(
      machine.Text(70'000, 0, 0x27),
      "\xEB\x3C\x90MSDOS5.0\0\x02\x01\x06\0\x02\0\x02\x3F\0\xF8\x01\0\x3F\0\xFF\0\x70\x11\x01\0\0\0\0\0\x80\0\x29"s);
  EXPECT_EQ(machine.Text(70'000, 0x2B, 19), "NO NAME    FAT12   ");
  for (const std::uint64_t fat : {70'006U, 70'007U}) {
    EXPECT_EQ(machine.Text(fat, 0, 512), "\xF8\xFF\xFF" + std::string(509, '\0'));
  }
  EXPECT_EQ(machine.Text(70'008, 0, 512), "PTN2       \x08" + std::string(500, '\0'));
  EXPECT_EQ(machine.Text(70'062, 0, 512), std::string(512, '\0'));
  EXPECT_EQ(machine.Text(70'063, 0, 512), std::string(512, '\xA5'));
}

}  // namespace
