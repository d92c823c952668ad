#include "format/fat32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "partition/mbr_builder.h"
#include "support/program.h"

namespace {

TEST(Fat32Layout, StepsAtItsLimits) {
  const struct {
    std::int64_t sectors, start;
    int cluster;
    std::uint32_t fat;
    int reserved;
  } cases[] = {
      {525'201, 2048, 8, 514, 1012},       // 513.89
      {15'599'052, 2048, 8, 15'234, 244},  // 15234.449
      {16'777'216, 2048, 8, 16'385, 2038},
      {16'777'217, 2048, 16, 8193, 2030},
      {33'554'432, 2048, 16, 16'385, 2030},
      {33'554'433, 2048, 32, 8193, 2014},
      {67'108'864, 2048, 32, 16'385, 2014},
      {67'108'865, 2048, 64, 8193, 1982},
      {4'294'967'294, 2048, 64, 524'289, 1982},
      {1'048'064, 2048, 8, 1024, 2040},  // 1024.5 goes to the even number
      {1'046'016, 2048, 8, 1022, 2044},  // 1022.5 too
      {1'026'048, 2048, 8, 1003, 34},    // just room for the extended code
      {1'027'072, 2048, 8, 1004, 2080},  // a gap of 32 has none
      {1'043'456, 2048, 8, 1020, 2048},  // no gap at all
      {2'070'496, 32, 8, 2023, 2058},
  };
  for (const auto& row : cases) {
    const Fat32Layout layout = ComputeFat32Layout(row.sectors, row.start);
    EXPECT_EQ(int{layout.cluster}, row.cluster) << row.sectors;
    EXPECT_EQ(layout.fat, row.fat) << row.sectors;
    EXPECT_EQ(int{layout.reserved}, row.reserved) << row.sectors;
  }
}

TEST(FormatFat32, WritesTheBytesOfTheFormat) {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, 1ULL << 40));
  MachineDouble machine(std::move(drives));
  ResetProgram(machine);
  DriveNumber = 1;
  BootType = "FAT32BOOTMGR";
  StartLba = 2048;
  PartSectors = 15'599'052;
  GeomHeads = 255;
  GeomSpt = 63;
  EXPECT_TRUE(Open_Physical_Disk_hDrive(1));
  FormatFat32("label");
  const auto text = [&](std::uint64_t lba, std::size_t at, std::size_t bytes) {
    const std::vector<std::uint8_t> sector = machine.DriveBytes(1, lba, 1);
    return std::string(sector.begin() + static_cast<std::ptrdiff_t>(at),
                       sector.begin() + static_cast<std::ptrdiff_t>(at + bytes));
  };
  using std::string_literals::operator""s;
  EXPECT_EQ(text(2048, 0, 0x43),
            "\xEB\x58\x90MSDOS5.1\0\x02\x08\xF4\0\x02\0\0\0\0\xF8\0\0\x3F\0\xFF\0\0\x08\0\0\xCC\x05\xEE\0"
            "\x82\x3B\0\0\0\0\0\0\x02\0\0\0\x01\0\x06\0\0\0\0\0\0\0\0\0\0\0\0\0\x80\0\x29"s);
  EXPECT_EQ(text(2048, 0x47, 19), "NO NAME    FAT32   ");
  EXPECT_EQ(text(2048, 0x1FE, 2), "\x55\xAA");
  EXPECT_EQ(text(2049, 0, 512), "RRaA" + std::string(480, '\0') + "rrAa\xFF\xFF\xFF\xFF\x03\0\0\0"s +
                                    std::string(12, '\0') + "\0\0\x55\xAA"s);
  EXPECT_EQ(text(2050, 0, 512), std::string(508, '\0') + "\0\0\x55\xAA"s);
  for (const std::uint64_t fat : {2292U, 17'526U}) {
    EXPECT_EQ(text(fat, 0, 512), "\xF8\xFF\xFF\x0F\xFF\xFF\xFF\x0F\xFF\xFF\xFF\x0F" + std::string(500, '\0'));
  }
  EXPECT_EQ(text(32'760, 0, 512), "label      \x28"s + std::string(12, '\0') + "\x21\x28" + std::string(486, '\0'));
}

}  // namespace
