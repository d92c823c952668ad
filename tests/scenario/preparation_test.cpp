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

std::string PadLeft(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

// The numbers in a FAT16 or FAT32 volume's boot sector.
struct Volume {
  std::uint64_t start, cluster, reserved, hidden, total, fat;
  bool fat32;
  std::uint64_t overhead;  // sectors in front of cluster 2
};
Volume ReadVolume(const std::string& image, std::uint64_t start) {
  const std::string boot = ReadBytes(image, start * kSector, kSector);
  const bool fat32 = Field(boot, 0x16, 2) == 0;
  Volume volume{start,
                Field(boot, 0x0D, 1),
                Field(boot, 0x0E, 2),
                Field(boot, 0x1C, 4),
                Field(boot, 0x20, 4),
                fat32 ? Field(boot, 0x24, 4) : Field(boot, 0x16, 2),
                fat32,
                0};
  volume.overhead = volume.reserved + 2 * volume.fat + Field(boot, 0x11, 2) / 16;
  return volume;
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
      {"DRIVE=1 SURE WINPE", 2048, {{1, 98}, {2048, 545}}},
      {"DRIVE=1 SURE XP CHS", 32, {{1, 98}, {32, 545}}},
      {"DRIVE=1 SURE FREEDOS 2PTN SIZE=5", 2048, {{1, 98}, {2048, 545}, {18'050, 63}}},
      {"DRIVE=1 SURE WRITEMBRONLY", 2048, {}},
  };
  constexpr std::uint64_t kWatched = 20'000;  // sectors: all that a drive of 512 MB gets written, and more
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

// The partition stands in the table as an independent reader sees it.
void ExpectPartition(const std::string& image, std::uint64_t first, std::uint64_t sectors, const std::string& ending) {
  const auto column = [](std::uint64_t number) { return PadLeft(std::to_string(number), 12); };
  const RunResult table = RunCommand({"sfdisk", "--dump", image});
  EXPECT_NE(table.out.find("start=" + column(first) + ", size=" + column(sectors) + ", type=" + ending + "\n"),
            std::string::npos)
      << table.out << table.err;
}

// fsck.fat has nothing to say but what the layout itself causes: the label stands in the root directory alone, and
// FAT32's free clusters aren't counted.
void ExpectSound(const std::string& partition, const Volume& volume, const std::string& label) {
  const std::uint64_t clusters = (volume.total - volume.overhead) / volume.cluster;
  const std::string free =
      volume.fat32 ? "Free cluster summary uninitialized (should be " + std::to_string(clusters - 1) + ")\n" : "";
  EXPECT_EQ(RunCommand({"fsck.fat", "-n", partition}).out,
            "fsck.fat 4.2 (2021-01-31)\n"
            "There is no label in boot sector, but there is volume label '" +
                label +
                "' stored in root directory\n"
                "  Auto-copying volume label from root directory to boot sector.\n" +
                free + "\nLeaving filesystem unchanged.\n" + partition + ": 1 files, " + (volume.fat32 ? "1/" : "0/") +
                std::to_string(clusters) + " clusters\n");
}

// mtools reads the label, and writes and reads a file.
void ExpectUsable(const std::string& partition, const ScratchFolder& folder, const std::string& label) {
  const std::string file = folder.File("file");
  const std::string content = std::string(10'000, 'x') + partition;
  WriteBytes(file, 0, content);
  EXPECT_EQ(RunCommand({"mcopy", "-i", partition, file, "::/FILE.BIN"}).exit_code, 0);
  EXPECT_EQ(RunCommand({"mtype", "-i", partition, "::/FILE.BIN"}).out, content);
  EXPECT_NE(RunCommand({"mlabel", "-i", partition, "-s", "::"}).out.find(label), std::string::npos);
}

TEST(Preparation, MakesVolumesThatOthersAccept) {
  const struct {
    std::string size, line;
    std::uint64_t start;
    unsigned cluster;
    std::string type;
  } cases[] = {
      {"300M", "FAT32 WINPE", 2048, 8, "c, bootable"},  // below 65,525 clusters, which mtools refuses
      {"512M", "FAT32 WIN7 ZIP", 32, 8, "c, bootable"},
      {"8G", "FAT32 WINPE", 2048, 8, "c, bootable"},
      {"20G", "FAT32 WINPE", 2048, 32, "c, bootable"},
      {"40G", "FAT32 WINPE FORCELBA", 2048, 64, "c, bootable"},
      {"3G", "FAT32 FREEDOS USBFDD", 0, 8, ""},
      {"8G", "FAT32 WINPE SIZE=600", 2048, 8, "c, bootable"},
      {"256G", "FAT32 WINPE NOACT", 2048, 64, "c"},
      {"2T", "FAT32 WINPE 2MBR", 2048, 64, "c, bootable"},
      {"18M", "WINPE", 2048, 2, "e, bootable"},
      {"150M", "XP", 2048, 8, "e, bootable"},
      {"700M", "BOOTMGR CHS", 32, 32, "6, bootable"},
      {"2G", "WINPE USBFDD", 0, 64, ""},
      {"8G", "VISTA SIZE=4090", 2048, 128, "e, bootable"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.size + " " + row.line);
    const ScratchFolder folder;
    const std::string image = folder.File("usb.img");
    ASSERT_EQ(RunOnDrive(image, "size=" + row.size, "DRIVE=1 SURE " + row.line + " VOLUME=Stick 1").exit_code, 0);
    const Volume volume = ReadVolume(image, row.start);
    EXPECT_EQ(volume.cluster, row.cluster);
    if (volume.fat32) {  // the first free cluster begins on a boundary of 1 MiB
      EXPECT_EQ(((row.start == 0 ? 2048 : row.start) + volume.overhead + volume.cluster) % 2048, 0U);
    }
    if (row.start != 0) {
      ExpectPartition(image, row.line.ends_with("2MBR") ? row.start - 1 : row.start, volume.total, row.type);
    }
    const std::string partition = folder.File("partition.img");
    ExtractBytes(image, row.start * kSector, volume.total * kSector, partition);
    if (row.size != "2T") {  // its FAT of 64 million clusters takes fsck.fat half a minute
      ExpectSound(partition, volume, "Stick 1");
    }
    if (row.size != "300M") {
      ExpectUsable(partition, folder, "Stick 1");
    }
  }
}

TEST(Preparation, MakesASecondPartition) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  ASSERT_EQ(RunOnDrive(image, "size=1G", "DRIVE=1 SURE WINPE 2PTN VOLUME=Stick 1").exit_code, 0);
  const std::uint64_t second = Field(ReadBytes(image, 0x1D6, 4), 0, 4);
  ExpectPartition(image, second, 2048, "21");
  const std::string partition = folder.File("partition.img");
  ExtractBytes(image, second * kSector, 63 * kSector, partition);
  EXPECT_EQ(Field(ReadBytes(partition, 0x1C, 4), 0, 4), second);
  ExpectUsable(partition, folder, "PTN2");
}

TEST(Preparation, HoldsBothSidesOfTheLimitsOfDrives) {
  const struct {
    std::string size, line;
    int level;
    std::string printed;
  } cases[] = {
      {"16450560", "", 0, "\r\nPartition 1 starts at LBA 2048, size=16002 sectors (Active)"},  // two cylinders
      {"279659008", "FAT32 WINPE", 1, "\r\nERROR: FAT32 must be at least 263MB. Use FAT16 instead."},
      {"279659520", "FAT32 WINPE", 0, " of 32:255:63"},  // 33 cylinders to use
      {"4310046208", "", 0, " of 521:255:63"},           // FAT16 just below 4 GiB
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

// A run on a drive of 1 GB with a seed; what it has written.
std::string Written(const std::string& seed, const std::string& line) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  std::vector<std::string> arguments{"--drive", "1=" + image + ",size=1G", "--no-wait", "--seed", seed, "DRIVE=1",
                                     "SURE"};
  for (const std::string& word : Words(line)) {
    arguments.push_back(word);
  }
  EXPECT_EQ(RunKorventix(arguments).exit_code, 0) << line;
  return ReadBytes(image, 0, 16 << 20);
}

TEST(Preparation, RepeatsItselfWithASeed) {
  for (const std::string line : {"FAT32 WINPE", "FREEDOS 2PTN", "DOSZIP 2MBR", "FIRSTPART"}) {
    const std::string seeded = Written("7", line);
    EXPECT_TRUE(seeded == Written("7", line + " DEBUG")) << line;
    EXPECT_EQ(seeded == Written("8", line), line == "FIRSTPART") << line;
  }
}

}  // namespace
