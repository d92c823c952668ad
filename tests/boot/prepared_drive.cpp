#include "boot/prepared_drive.h"

#include <gtest/gtest.h>

namespace {

constexpr std::size_t kJumpEnd = 0x02;
constexpr std::size_t kGeometry = 0x18;
constexpr std::size_t kGeometryBytes = 4;
constexpr std::size_t kDriveByte = 0x40;
constexpr std::uint32_t kLowestStack = 0x1000;
constexpr std::uint32_t kHighestStack = 0x7C00;
constexpr std::uint32_t kInterruptFlag = 0x200;
constexpr std::uint32_t kDirectionFlag = 0x400;

}  // namespace

PreparedDrive::PreparedDrive(const std::string& size, const std::vector<std::string>& keywords,
                             std::uint64_t volume_lba)
    : image(folder.File("drive.img")) {
  std::vector<std::string> arguments = {
      "--drive", "1=" + image + ",size=" + size, "--no-wait", "DRIVE=1", "SURE", "FAT32", "WINPE"};
  arguments.insert(arguments.end(), keywords.begin(), keywords.end());
  const RunResult result = RunKorventix(arguments);
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  volume = OpenVolume(image, volume_lba);
}

void PutLoader(const Fat32Volume& volume, const std::string& loader, Placement placement) {
  WriteFile(volume, placement, loader);
  PlaceEntries(volume, {2}, 1, DirectoryEntry(kLoaderName, kArchive, placement.first, loader.size()));
}

void ExpectLoaded(const BootReport& report, const Fat32Volume& volume, const std::string& loader, std::uint8_t drive,
                  std::uint8_t lba_mark) {
  ASSERT_TRUE(report.loaded) << "came over the debug port: " << report.text;
  EXPECT_EQ(report.cs, 0x2000U);
  EXPECT_EQ(report.ip, 0U);
  EXPECT_EQ(report.ss, 0U);
  EXPECT_GE(report.sp, kLowestStack);
  EXPECT_LE(report.sp, kHighestStack);
  EXPECT_EQ(report.ds, 0U);
  EXPECT_EQ(report.es, 0U);
  EXPECT_EQ(report.dx, drive);
  EXPECT_EQ(report.flags & kInterruptFlag, kInterruptFlag);
  EXPECT_EQ(report.flags & kDirectionFlag, 0U);
  EXPECT_EQ(report.hash, HashOf(loader));
  std::string expected = ReadBytes(volume.image, volume.first_lba * kSectorBytes, report.boot_sector.size());
  expected[kJumpEnd] = static_cast<char>(lba_mark);
  expected[kDriveByte] = static_cast<char>(drive);
  if (lba_mark == kChsOnly) {
    expected.replace(kGeometry, kGeometryBytes, report.boot_sector.substr(kGeometry, kGeometryBytes));
  }
  EXPECT_EQ(report.boot_sector, expected);
}
