// The preparation of a drive, from its texts down to each sector, with independent tools as judges of the result.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;

std::uint64_t Field(const std::string& bytes, std::size_t at, int size) {
  std::uint64_t value = 0;
  for (int i = size; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  }
  return value;
}

// The numbers in a FAT32 volume's boot sector.
struct Volume {
  std::uint64_t start, cluster, reserved, hidden, total, fat;
  std::uint64_t Root() const { return start + reserved + 2 * fat; }
};
Volume ReadVolume(const std::string& image, std::uint64_t start) {
  const std::string boot = ReadBytes(image, start * kSector, kSector);
  return {start,
          Field(boot, 0x0D, 1),
          Field(boot, 0x0E, 2),
          Field(boot, 0x1C, 4),
          Field(boot, 0x20, 4),
          Field(boot, 0x24, 4)};
}

TEST(Preparation, PrintsItsTexts) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  const RunResult run = RunKorventix({"--drive", "1=" + image + ",size=8000000000,vendor=Acme,product=Stick 3.0,fixed",
                                      "--no-wait", "DRIVE=1", "SURE", "FAT32", "WINPE", "VOLUME=MY STICK"});
  const std::string signature = ReadBytes(image, 0x1B8, 4);
  std::string digits;
  for (const char byte : signature) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    digits += {kDigits[static_cast<unsigned char>(byte) / 16], kDigits[static_cast<unsigned char>(byte) % 16], ' '};
  }
  std::string progress;
  for (int chunk = 1; chunk <= 30; ++chunk) {  // 15 chunks for each FAT of 15,234 sectors, the first sector alone
    const int in_fat = std::min(1 + 1024 * ((chunk - 1) % 15 + 1), 15'234);
    progress += std::to_string((in_fat + (chunk > 15 ? 15'234 : 0)) * 100 / (2 * 15'234)) + "% ";
  }
  EXPECT_EQ(run.out,
            "\r\nCOMMAND LINE: DRIVE=1 SURE FAT32 WINPE VOLUME=MY STICK\r\n"
            "\r\nKORVENTIX v1.0.0\r\n================\r\n"
            "\r\nVolume name requested=MY STICK"
            "\r\nAccessing Drive 1 - \"Acme Stick 30\" (8,000,000,000 bytes)\r\n"
            "\r\nUsing Cyl:Hd:Sec translation of 970:255:63"
            "\r\nPartition type = 0C hex  P1 ends at cylinder 971.123560535325"
            "\r\nPartition 1 starts at LBA 2048, size=15599052 sectors (Active)"
            "\r\nDisk Signature (1b8-1bb) = " +
                digits +
                "\r\n\r\n------ NOW PREPARING DRIVE 1 ----------\r\n"
                "\r\nNew MBR written OK"
                "\r\nClearing out old VBRs (LBA 1-100)"
                "\r\nClearing 30 sectors at VBR from LBA 2048"
                "\r\nFORMATTING AS FAT32"
                "\r\nFAT32 Boot type set to FAT32BOOTMGR"
                "\r\n15h Media Descriptor: F8h"
                "\r\n15h Media Descriptor: Hard Disk F8h"
                "\r\n40h Drive Number: 80h (hard disk)"
                "\r\nWriting FAT tables starting at 2292 = 0% " +
                progress +
                "\r\nWriting root directory starting at 32760"
                "\r\nVolume Name: MY STICK           "
                "\r\nWriting extended boot code to sector 2060"
                "\r\nWriting 2nd copy of extended boot code to sector 2066"
                "\r\n\r\nINFO: This device is classed as a Fixed Disk by Windows."
                "\r\nRemounting drive 1"
                "\r\nOperation completed OK\r\n"
                "\r\n\r\n");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(run.err, "");
}

TEST(Preparation, WritesItsSectorsAndNoOthers) {
  const struct {
    std::string line;
    std::uint64_t start;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> wiped;  // first and count, beside LBA 0 and the volume's own
  } cases[] = {
      {"DRIVE=1 SURE", 2048, {{1, 98}, {2048, 30}}},
      {"DRIVE=1 SURE FAT32 WINPE", 2048, {{1, 98}, {2048, 30}}},
      {"DRIVE=1 SURE FAT32 WINPE ZIP", 32, {{1, 98}}},
      {"DRIVE=1 SURE FAT32 WINPE USBFDD", 0, {{1, 98}, {2048, 30}}},
      {"DRIVE=1 SURE FAT32 WINPE 2MBR", 2048, {{1, 98}, {2047, 1}, {2048, 30}}},
      {"DRIVE=1 SURE WRITEMBRONLY", 2048, {}},
  };
  constexpr std::uint64_t kWatched = 16'384;  // sectors: all that a drive of 512 MB gets written, and more
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const std::string image = folder.File("usb.img");
    WriteBytes(image, 0, std::string(kWatched * kSector, '\xA5'));
    ASSERT_EQ(RunOnDrive(image, "size=512M", row.line).exit_code, 0) << row.line;
    std::vector<bool> written(kWatched);
    const auto mark = [&](std::uint64_t first, std::uint64_t count) {
      std::fill_n(written.begin() + static_cast<std::ptrdiff_t>(first), count, true);
    };
    mark(0, 1);
    for (const auto& [first, count] : row.wiped) {
      mark(first, count);
    }
    if (row.line.find("FAT32") != std::string::npos) {
      const Volume volume = ReadVolume(image, row.start);
      EXPECT_EQ(volume.hidden, row.start) << row.line;
      for (const std::uint64_t at : {0, 6}) {
        mark(volume.start + at, 3);
        mark(volume.start + at + 12, 1);
      }
      mark(volume.start + volume.reserved, 2 * volume.fat + volume.cluster);
      EXPECT_EQ(ReadBytes(image, volume.start * kSector, 3 * kSector),
                ReadBytes(image, (volume.start + 6) * kSector, 3 * kSector));
      EXPECT_EQ(ReadBytes(image, (volume.start + volume.reserved) * kSector, volume.fat * kSector),
                ReadBytes(image, (volume.start + volume.reserved + volume.fat) * kSector, volume.fat * kSector));
    }
    const std::string now = ReadBytes(image, 0, kWatched * kSector);
    for (std::uint64_t lba = 0; lba < kWatched; ++lba) {
      const bool untouched = now.compare(lba * kSector, kSector, std::string(kSector, '\xA5')) == 0;
      ASSERT_EQ(untouched, !written[lba]) << row.line << " LBA " << lba;
    }
  }
}

TEST(Preparation, KeepsSignatureAndTableWithWriteMbrOnly) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  ASSERT_EQ(RunOnDrive(image, "size=1G", "DRIVE=1 SURE").exit_code, 0);
  const std::string fresh = ReadBytes(image, 0, kSector);
  std::string old(kSector, '\x11');
  WriteBytes(image, 0, old);
  ASSERT_EQ(RunOnDrive(image, "", "DRIVE=1 SURE WRITEMBRONLY").exit_code, 0);
  EXPECT_EQ(ReadBytes(image, 0, kSector), fresh.substr(0, 0x1B8) + old.substr(0, 0x1FE - 0x1B8) + "\x55\xAA");
}

TEST(Preparation, PutsTheSecondMbrInFrontOfThePartition) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  const RunResult run = RunOnDrive(image, "size=1G", "DRIVE=1 SURE 2MBR");
  EXPECT_NE(run.out.find("----\r\nSLBA=2047\r\nNew MBR written OK"), std::string::npos);
  const std::string first = ReadBytes(image, 0, kSector);
  std::string second = ReadBytes(image, 2047 * kSector, kSector);
  EXPECT_EQ(Field(second, 0x1C6, 4), 2048U);
  second[0x1BF] = '\0';  // head 0, sector 63, LBA 2047, and the same length
  second[0x1C0] = 63;
  second.replace(0x1C6, 4, std::string("\xFF\x07\0\0", 4));
  EXPECT_EQ(first, second);
}

TEST(Preparation, MakesVolumesThatOthersAccept) {
  const struct {
    std::string size;
    std::string line;
    std::uint64_t start;
    unsigned cluster;
  } cases[] = {
      {"300M", "", 2048, 8},       {"512M", "ZIP", 32, 8},      {"1G", "CHS", 32, 8},          {"8G", "", 2048, 8},
      {"10G", "", 2048, 16},       {"20G", "", 2048, 32},       {"40G", "FORCELBA", 2048, 64}, {"3G", "USBFDD", 0, 8},
      {"8G", "SIZE=600", 2048, 8}, {"256G", "NOACT", 2048, 64}, {"2T", "2MBR", 2048, 64},
  };
  for (const auto& row : cases) {
    const std::string label = row.size + " " + row.line;
    const ScratchFolder folder;
    const std::string image = folder.File("usb.img");
    ASSERT_EQ(
        RunOnDrive(image, "size=" + row.size, "DRIVE=1 SURE FAT32 WINPE " + row.line + " VOLUME=Stick 1").exit_code, 0);
    const Volume volume = ReadVolume(image, row.start);
    EXPECT_EQ(volume.cluster, row.cluster) << label;
    EXPECT_EQ((volume.Root() + volume.cluster + (row.start == 0 ? 2048 : 0)) % 2048, 0U) << label;

    if (row.start != 0) {
      const RunResult table = RunCommand({"sfdisk", "--dump", image});
      const std::uint64_t first = row.line == "2MBR" ? row.start - 1 : row.start;
      EXPECT_NE(table.out.find("start= " + std::string(11 - std::to_string(first).size(), ' ') + std::to_string(first) +
                               ", size= " + std::string(11 - std::to_string(volume.total).size(), ' ') +
                               std::to_string(volume.total) + ", type=c" + (row.line == "NOACT" ? "" : ", bootable")),
                std::string::npos)
          << label << table.out << table.err;
    }
    const std::string partition = folder.File("partition.img");
    ExtractBytes(image, row.start * kSector, volume.total * kSector, partition);
    if (row.size != "2T") {  // its FAT of 64 million clusters takes fsck.fat half a minute
      // The label stands in the root directory alone and the free clusters aren't counted: meant so.
      const std::string clusters = std::to_string((volume.total - volume.reserved - 2 * volume.fat) / volume.cluster);
      const std::string free = std::to_string(std::stoul(clusters) - 1);
      EXPECT_EQ(RunCommand({"fsck.fat", "-n", partition}).out,
                "fsck.fat 4.2 (2021-01-31)\n"
                "There is no label in boot sector, but there is volume label 'Stick 1' stored in root directory\n"
                "  Auto-copying volume label from root directory to boot sector.\n"
                "Free cluster summary uninitialized (should be " +
                    free + ")\n\nLeaving filesystem unchanged.\n" + partition + ": 1 files, 1/" + clusters +
                    " clusters\n")
          << label;
    }
    if (row.size != "300M") {
      const std::string file = folder.File("file");
      WriteBytes(file, 0, std::string(100'000, 'x') + label);
      EXPECT_EQ(RunCommand({"mcopy", "-i", partition, file, "::/FILE.BIN"}).exit_code, 0) << label;
      EXPECT_EQ(RunCommand({"mtype", "-i", partition, "::/FILE.BIN"}).out, std::string(100'000, 'x') + label);
      EXPECT_NE(RunCommand({"mlabel", "-i", partition, "-s", "::"}).out.find("Stick 1"), std::string::npos) << label;
    }
  }
}

TEST(Preparation, HoldsBothSidesOfTheLimitsOfDrives) {
  const struct {
    std::string size;
    std::string line;
    int level;
    std::string printed;
  } cases[] = {
      {"16450560", "", 0, "\r\nPartition 1 starts at LBA 2048, size=16002 sectors (Active)"},  // two cylinders
      {"279659008", "FAT32 WINPE", 1, "\r\nERROR: FAT32 must be at least 263MB. Use FAT16 instead."},
      {"279659520", "FAT32 WINPE", 0, " of 32:255:63"},  // 33 cylinders to use
      {"4310046208", "", 0, " of 521:255:63"},           // FAT16 just below 4 GiB
      {"8422686720", "NTFS", 0, " of 1022:255:63"},
      {"8430912000", "NTFS", 0, " of 1024:255:63"},
      {"2199023255552", "FAT32 WINPE", 0, "\r\nVolume Name: KORVENTIX"},
      {"3T", "NTFS", 0, "\r\nOperation completed OK"},
  };
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const RunResult run = RunOnDrive(folder.File("usb.img"), "size=" + row.size, "DRIVE=1 SURE " + row.line);
    EXPECT_EQ(run.exit_code, row.level) << row.size;
    EXPECT_NE(run.out.find(row.printed), std::string::npos) << row.size << run.out;
  }
}

TEST(Preparation, GoesOnAboveTheLimitOfFat32) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  const RunResult run = RunOnDrive(image, "size=3T", "DRIVE=1 SURE FAT32 WINPE");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_NE(run.out.find("\r\nFORMATTING AS FAT32\r\n\r\nINFO: This device"), std::string::npos);
  EXPECT_EQ(ReadBytes(image, 2048 * kSector, kSector), std::string(kSector, '\0'));
}

TEST(Preparation, RepeatsItselfWithASeed) {
  const ScratchFolder folder;
  std::vector<std::string> starts;
  for (const std::string seed : {"7", "7", "8"}) {
    const std::string image = folder.File(std::to_string(starts.size()));
    ASSERT_EQ(RunKorventix({"--drive", "1=" + image + ",size=1G", "--no-wait", "--seed", seed, "DRIVE=1", "SURE",
                            "FAT32", "WINPE"})
                  .exit_code,
              0);
    starts.push_back(ReadBytes(image, 0, 4 << 20));
  }
  EXPECT_EQ(starts[0], starts[1]);
  EXPECT_NE(starts[0], starts[2]);
}

}  // namespace
