#include "partition/mbr_builder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "console/number_text.h"
#include "console/random_source.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "support/program.h"

namespace {

enum Option : unsigned {
  kFat32 = 1,
  kNtfs = 2,
  kZip = 4,
  kChs = 8,
  k2Ptn = 16,
  kForceLba = 32,
  kNoAct = 64,
  kUsbFdd = 128,
};

// Builds the table of a drive with that many usable bytes into SectorBuffer; returns what was printed.
std::string Build(unsigned options, std::int64_t drive_bytes, std::int64_t size_limit = 0) {
  MachineDouble machine({});
  ResetProgram(machine);
  UseFat32 = (options & kFat32) != 0;
  UseNtfs = (options & kNtfs) != 0;
  UseFat16 = !UseFat32 && !UseNtfs;
  OptZip = (options & kZip) != 0;
  OptChs = (options & kChs) != 0;
  Opt2Ptn = (options & k2Ptn) != 0;
  OptForceLba = (options & kForceLba) != 0;
  OptNoAct = (options & kNoAct) != 0;
  OptUsbFdd = (options & kUsbFdd) != 0;
  OptSure = true;
  ::DriveBytes = drive_bytes;
  SizeLimit = size_limit;
  SizeSectorBuffer(512);
  SeedRandom(1);
  BuildPartitionEntry(kTableOffset);
  if (Opt2Ptn && !OptZip) {
    BuildSecondEntry(kSecondEntryOffset);
  }
  return machine.console;
}

std::string Entry(std::size_t base) {
  std::string text;
  for (std::size_t i = 0; i < sizeof(PartitionEntry); ++i) {
    text += (i > 0 ? " " : "") + HexPad(SectorBuffer[base + i], 2);
  }
  return text;
}

constexpr std::int64_t kCylinder = 8'225'280;
constexpr std::int64_t kUsable8G = 7'986'746'880;        // of 8,000,000,000 bytes
constexpr std::int64_t kUsable16G = 31'230'360LL * 512;  // of 16,000,000,000 bytes
constexpr std::int64_t kUsable1G = 1'927'800LL * 512;    // of 1,000,000,000 bytes

TEST(BuildPartitionEntry, FillsTheEntry) {
  const struct {
    std::string label;
    unsigned options;
    std::int64_t drive_bytes, size_limit;
    std::string entry;
  } cases[] = {
      {"FAT32 within 1023 cylinders", kFat32, kUsable8G, 0, "80 01 01 00 0C FE FF CA 00 08 00 00 CC 05 EE 00"},
      {"NTFS", kNtfs, kUsable8G, 0, "80 20 21 00 0E FE FF CA 00 08 00 00 0B FE ED 00"},
      {"ZIP", kZip, kUsable1G, 0, "80 01 01 00 0E 3F E0 AC 20 00 00 00 E0 67 1D 00"},
      {"room for a second partition", k2Ptn, kUsable8G, 0, "80 01 01 00 0E FE FF C9 00 08 00 00 0B C7 ED 00"},
      {"less than the second partition's room", k2Ptn, kUsable8G, 512,
       "80 01 01 00 0E FE 3F 00 00 08 00 00 82 3E 00 00"},
      {"1023 cylinders", kFat32, 1023 * kCylinder, 0, "80 01 01 00 0C FE FF FE 00 08 00 00 00 C5 FA 00"},
      {"1024 cylinders", kFat32, 1024 * kCylinder, 0, "80 01 01 00 0C FE FF FF 00 08 00 00 00 FC FA 00"},
      {"NTFS with CHS", kNtfs | kChs, kUsable1G, 0, "80 01 01 00 06 3F E0 AC 20 00 00 00 E0 67 1D 00"},
      {"FORCELBA", kFat32 | kForceLba | kNoAct, kUsable1G, 0, "00 01 01 00 0C FE FF FF 00 08 00 00 39 6A 1D 00"},
  };
  for (const auto& row : cases) {
    Build(row.options, row.drive_bytes, row.size_limit);
    EXPECT_EQ(Entry(kTableOffset), row.entry) << row.label;
    EXPECT_EQ(SectorBuffer[0x1FE] + 256 * SectorBuffer[0x1FF], 0xAA55) << row.label;
  }
}

TEST(BuildPartitionEntry, ChoosesTheZipGeometry) {
  const struct {
    unsigned options;
    std::int64_t sectors;
    int heads, spt;
  } cases[] = {
      {kZip, 2'097'152, 64, 32},   {kZip, 2'097'153, 128, 32},           {kZip, 4'194'304, 128, 32},
      {kZip, 4'194'305, 255, 32},  {kZip, 16'450'560, 255, 32},          {kZip, 16'450'561, 255, 63},
      {kChs, 16'450'560, 255, 32}, {kZip | kUsbFdd, 4'194'304, 128, 32}, {kZip | kUsbFdd, 4'194'305, 255, 63},
  };
  for (const auto& row : cases) {
    Build(row.options, row.sectors * 512);
    EXPECT_EQ(GeomHeads, row.heads) << row.sectors;
    EXPECT_EQ(GeomSpt, row.spt) << row.sectors;
    EXPECT_EQ(StartLba, 32);
  }
}

TEST(BuildPartitionEntry, SaysWhatItDecides) {
  EXPECT_TRUE(Build(kFat32, kUsable8G, 943'718'400)
                  .starts_with("\r\nDrive size is 7616.75537109375MiB\r\nInformation: Partition size reduced to 900MiB "
                               "(943718400 bytes)\r\nUsing Cyl:Hd:Sec translation of 113:255:63"));
  EXPECT_TRUE(Build(kFat32, kUsable8G, kUsable8G + 1)
                  .starts_with("\r\nDrive size is 7616.75537109375MiB\r\nWARNING: Partition size NOT changed to "
                               "7616.75537204742MiB\r\nUsing Cyl"));
  EXPECT_TRUE(Build(kFat32, kUsable8G, kUsable8G).starts_with("\r\nUsing Cyl"));
  const std::string floppy = Build(kUsbFdd | kChs, kUsable1G);
  EXPECT_TRUE(floppy.starts_with("\r\nUsing 64 Heads per cylinder and 32 sectors per track\r\nUsing Cyl"));
  EXPECT_EQ(floppy.find("Partition 1 starts"), std::string::npos);
  EXPECT_EQ(SectorBuffer[0x1B8] + SectorBuffer[0x1B9] + SectorBuffer[0x1BA] + SectorBuffer[0x1BB], 0);
}

TEST(BuildSecondEntry, FollowsPartitionOne) {
  const struct {
    std::string label;
    unsigned options;
    std::int64_t drive_bytes;
    std::string entry;
  } cases[] = {
      {"FAT16, the count runs from the CHS start", k2Ptn, kUsable8G, "00 00 C1 CA 21 20 E0 CA 0B CF ED 00 00 08 00 00"},
      {"NTFS ends on a cylinder", k2Ptn | kNtfs, kUsable8G, "00 00 C1 CA 21 00 FF CA 4A C7 ED 00 3F 00 00 00"},
      {"beyond 1023 cylinders", k2Ptn | kFat32, kUsable16G, "00 FE FF FF 21 FE FF FF 59 89 DC 01 3F 00 00 00"},
      {"FORCELBA on a small drive", k2Ptn | kForceLba, kUsable1G, "00 00 01 77 21 FE FF FF 78 33 1D 00 00 08 00 00"},
      {"1022 whole cylinders", k2Ptn, 1024 * kCylinder, "00 00 C1 FF 21 20 E0 FF 00 CD FA 00 00 08 00 00"},
  };
  for (const auto& row : cases) {
    Build(row.options, row.drive_bytes);
    EXPECT_EQ(Entry(kSecondEntryOffset), row.entry) << row.label;
    EXPECT_EQ(SecondPartLba, StartLba + PartSectors) << row.label;
  }
}

}  // namespace
