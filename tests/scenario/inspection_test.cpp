// USBINFO and FILEINFO on tables and volumes that others wrote; what is decoded agrees with what their tools say.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;

std::string Grouped(std::uint64_t value) {
  std::string text = std::to_string(value);
  for (std::size_t at = text.size(); at > 3; at -= 3) {
    text.insert(at - 3, ",");
  }
  return text;
}

// A row of the extents table.
std::string ExtentRow(const std::string& name, std::uint64_t first, std::uint64_t last, std::uint64_t sectors) {
  return name + (name == "PALL" ? " Start=" : "   Start=") + Grouped(first) + " (" + Grouped(first * kSector) +
         " bytes) End=" + Grouped(last) + " (" + Grouped(last * kSector) +
         " bytes) Size=" + Grouped(sectors * kSector) + "\r\n";
}

// All rows of the extents table in an output.
std::string ExtentRows(const std::string& output) {
  const std::size_t from = output.find("\r\n\r\nP") + 4;
  return output.substr(from, output.find("\r\nDisk Signature") - from);
}

RunResult FileInfo(const std::string& file, const std::string& more = "") {
  std::vector<std::string> arguments{"--drive",     "98=" + file + ".drive,size=1M", "--no-wait", "FILEINFO", "SURE",
                                     "FILE=" + file};
  for (const std::string& word : Words(more)) {
    arguments.push_back(word);
  }
  return RunKorventix(arguments);
}

TEST(Inspection, ShowsTheExtentsOfOthersTables) {
  const struct {
    std::string label;
    std::vector<std::string> tool;  // the image's name goes behind it
    std::string input, rows;
  } cases[] = {
      {"gap in slot 2",
       {"sfdisk", "-q"},
       "1: start=2048, size=1000, type=c\n3: start=5000, size=3000, type=7\n",
       ExtentRow("P1", 2048, 3047, 1000) + ExtentRow("P3", 5000, 7999, 3000) + ExtentRow("PALL", 2048, 7999, 5952)},
      {"extended with a logical one",
       {"sfdisk", "-q"},
       "2048,1000,c\n10000,50000,5\n12048,2000,83\n",
       ExtentRow("P1", 2048, 3047, 1000) + ExtentRow("PEXT", 10'000, 59'999, 49'999) +
           ExtentRow("PALL", 2048, 59'999, 57'952)},
      {"one GPT entry",
       {"sgdisk", "-o", "-n", "1:2048:4095"},
       "",
       ExtentRow("P1", 2048, 4095, 2048) + ExtentRow("PALL", 2048, 4095, 2048)},
      {"three GPT entries, the second number free",
       {"sgdisk", "-o", "-n", "1:2048:4095", "-n", "3:4096:8191", "-n", "4:10240:19999"},
       "",
       ExtentRow("P1", 2048, 4095, 2048) + ExtentRow("P2", 4096, 8191, 4096) + ExtentRow("P3", 10'240, 19'999, 9760) +
           ExtentRow("PALL", 2048, 19'999, 17'952)},
      {"entries elsewhere than LBA 2",
       {"sgdisk", "-o", "-j", "40", "-n", "1:2048:4095"},
       "",
       ExtentRow("P1", 1, 131'071, 131'071) + ExtentRow("PALL", 1, 131'071, 131'071)},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.label);
    const ScratchFolder folder;
    const std::string image = folder.File("table.img");
    SetFileSize(image, 64 << 20);
    std::vector<std::string> command = row.tool;
    command.push_back(image);
    ASSERT_EQ(RunCommand(command, row.input).exit_code, 0);
    const RunResult run = FileInfo(image);
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(ExtentRows(run.out), row.rows) << run.out;
    EXPECT_EQ(run.out.find("Sorry, Korventix can only parse") != std::string::npos, row.label.starts_with("entries"));
  }
}

TEST(Inspection, ShowsTwelveGptEntries) {
  const ScratchFolder folder;
  const std::string image = folder.File("table.img");
  SetFileSize(image, 64 << 20);
  std::vector<std::string> command{"sgdisk", "-o"};
  std::string rows;
  for (std::uint64_t n = 1; n <= 14; ++n) {
    const std::uint64_t first = n * 2048;
    command.insert(command.end(), {"-n", std::to_string(n) + ":" + std::to_string(first) + ":+1M"});
    rows += n <= 8 ? ExtentRow("P" + std::to_string(n), first, first + 2047, 2048) : "";
  }
  command.push_back(image);
  ASSERT_EQ(RunCommand(command).exit_code, 0);
  EXPECT_EQ(ExtentRows(FileInfo(image).out), rows + ExtentRow("PALL", 2048, 9 * 2048 - 1, 8 * 2048));
}

TEST(Inspection, ReadsAGptFromASecondSlot) {
  const ScratchFolder folder;
  const std::string image = folder.File("table.img");
  SetFileSize(image, 64 << 20);
  ASSERT_EQ(RunCommand({"sgdisk", "-o", "-n", "1:4096:8191", "-n", "2:8192:+1M", image}).exit_code, 0);
  const std::string protective = ReadBytes(image, 0x1BE, 16);
  const std::string real("\0\0\0\0\x0C\0\0\0\0\x08\0\0\0\x04\0\0", 16);  // 1024 sectors from 2048 on
  WriteBytes(image, 0x1BE, real + protective);
  EXPECT_EQ(ExtentRows(FileInfo(image).out), ExtentRow("P1", 2048, 3071, 1024) + ExtentRow("P2", 4096, 8191, 4096) +
                                                 ExtentRow("P3", 8192, 10'239, 2048) +
                                                 ExtentRow("PALL", 2048, 10'239, 8192));
}

TEST(Inspection, ShowsTheTable) {
  const ScratchFolder folder;
  const std::string image = folder.File("table.img");
  SetFileSize(image, 64 << 20);
  ASSERT_EQ(RunCommand({"sfdisk", "-q", image}, "label-id: 0x12345678\n2048,1000,c,*\n4096,,7\n").exit_code, 0);
  const std::string out = FileInfo(image).out;
  EXPECT_NE(out.find("\r\nDisk Signature bytes (1B8h-1BBh) = 78 56 34 12"
                     "\r\n\r\nMBR Partition 1   SIZE=0.488MiB   Type: 0C FAT32LBA (2047GB max)  *ACTIVE*"
                     "\r\nSTART POS   = CYL:0 HD:32 SEC:33       END POS = CYL:0 HD:48 SEC:24\r\n"
                     "START (LBA) = 2,048 (00000800) SIZE (LBA) = 1,000 (000003E8) [End=3,047]"
                     "\r\n\r\nMBR Partition 2   SIZE=62MiB   Type: 07 NTFS\\exFAT       \r\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("MBR Partition 4   SIZE=0MiB   Type: 00        \r\nSTART POS   = CYL:0 HD:0 SEC:0       END POS = "
                     "CYL:0 HD:0 SEC:0\r\nSTART (LBA) = 0 (00000000) SIZE (LBA) = 0 (00000000)\r\n"),
            std::string::npos)
      << out;
}

// The number behind a label in a tool's output.
std::uint64_t NumberBehind(const std::string& text, const std::string& label) {
  const std::size_t at = text.find(label);
  return at == std::string::npos ? UINT64_MAX
                                 : std::stoull(text.substr(text.find_first_of("0123456789", at + label.size())));
}

TEST(Inspection, DecodesFatVolumes) {
  const struct {
    std::string fat, size, type;
  } cases[] = {{"12", "4M", "FAT16"}, {"16", "64M", "FAT16"}, {"32", "300M", "FAT32"}};
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const std::string image = folder.File("volume.img");
    ASSERT_EQ(RunCommand({"truncate", "-s", row.size, image}).exit_code, 0);
    ASSERT_EQ(RunCommand({"mkfs.fat", "-F", row.fat, "-n", "LABEL", "-i", "DEADBEEF", "-h", "100", image}).exit_code,
              0);
    const std::string out = FileInfo(image).out;
    const std::string judge = RunCommand({"fsck.fat", "-n", "-v", image}).out;
    EXPECT_NE(out.find("\r\nBPB TYPE=" + row.type + "\r\n000B Bytes Per Sector = 512 (0200h)"), std::string::npos)
        << out;
    EXPECT_NE(out.find("Volume ID Serial No. = 3735928559 (DEADBEEFh)"), std::string::npos);
    EXPECT_NE(out.find("Volume Label = LABEL      \r\n"), std::string::npos);
    EXPECT_EQ(NumberBehind(out, "Number of FATs = "), 2U);
    // "First FAT starts at byte 16384 (sector 32)", "Data area starts at byte ... (sector ...)"
    EXPECT_EQ(NumberBehind(out, "First FAT begins at LBA "),
              100 + NumberBehind(judge, "First FAT starts at byte ") / 512);
    const std::uint64_t data = 100 + NumberBehind(judge, "Data area starts at byte ") / 512;
    if (row.fat == "32") {  // named cluster 0, and placed behind the root directory's cluster
      EXPECT_EQ(NumberBehind(out, "First file data (cluster 0) begins at LBA "),
                data + NumberBehind(out, "Sectors Per Cluster = "));
    } else {
      EXPECT_EQ(NumberBehind(out, "First file data (cluster #2) begins at LBA "), data);
    }
  }
}

TEST(Inspection, DecodesNtfsAndExfatVolumes) {
  const ScratchFolder folder;
  const std::string ntfs = folder.File("ntfs.img");
  SetFileSize(ntfs, 64 << 20);
  ASSERT_EQ(RunCommand({"mkntfs", "-q", "-F", "-Q", "-p", "2048", "-H", "255", "-S", "63", ntfs}).exit_code, 0);
  std::string out = FileInfo(ntfs).out;
  std::string judge = RunCommand({"ntfsinfo", "-m", ntfs}).out;
  EXPECT_NE(
      out.find("BPB TYPE=NTFS\r\n000B Bytes Per Sector = 512 (0200h)\r\n000D Sectors Per Cluster = 8 (08h)\r\n0015 "
               "Media Descriptor = 248 (F8h) HDD"),
      std::string::npos)
      << out;
  const std::string mft = out.substr(out.find("$MFT file = ") + 12, 16);
  EXPECT_EQ(std::stoull(mft, nullptr, 16), NumberBehind(judge, "LCN of Data Attribute for FILE_MFT:")) << judge;

  const std::string exfat = folder.File("exfat.img");
  SetFileSize(exfat, 64 << 20);
  ASSERT_EQ(RunCommand({"mkfs.exfat", exfat}).exit_code, 0);
  out = FileInfo(exfat).out;
  judge = RunCommand({"dump.exfat", exfat}).out;
  EXPECT_NE(out.find("\r\nEXFAT\r\n0040h Partition Offset = 0000000000000000h"), std::string::npos) << out;
  EXPECT_EQ(NumberBehind(out, "0050h 1st FAT sector = "), NumberBehind(judge, "FAT Offset(sector offset):")) << judge;
  EXPECT_EQ(NumberBehind(out, "Cluster Heap at "), NumberBehind(judge, "Cluster Heap Offset (sector offset):"));
  EXPECT_EQ(NumberBehind(out, "005Ch No. Clusters in Heap = "), NumberBehind(judge, "Cluster Count:"));
  EXPECT_EQ(NumberBehind(out, "0060h First Cluster of Root Dir = "),
            NumberBehind(judge, "Root Cluster (cluster offset):"));
}

TEST(Inspection, ShowsADrive) {
  const ScratchFolder folder;
  const std::string image = folder.File("usb.img");
  ASSERT_EQ(RunOnDrive(image, "size=8G,serial=42", "DRIVE=1 SURE FAT32 WINPE").exit_code, 0);
  RunResult run = RunOnDrive(image, "serial=42", "USBINFO DRIVE=1 SURE");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_NE(
      run.out.find("bytes)\r\nDrive 1  Generic Flash Disk  F/W Rev.=100  Serial No.=42\r\n"
                   "Reported size 8,589,934,592 bytes (8GiB)  Last LBA 16,777,215\r\n"
                   "Dalmerion Max 8,578,967,040 bytes (7.989GiB)  Last LBA 16,755,794\r\n\r\n\r\nP1   Start=2,048 "),
      std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\r\nDALL Start=0 (0 bytes) End=16,777,215 (8,589,934,592 bytes) Size=8,589,934,592\r\n"),
            std::string::npos);
  EXPECT_NE(run.out.find("[Sector 5]  0MB"), std::string::npos);
  EXPECT_EQ(run.out.find("[Sector 6]"), std::string::npos);

  const struct {
    std::string line, first, last;
    int level;
  } cases[] = {
      {"USBSTART=P1 LENGTH=1", "\r\nBPB TYPE=FAT32\r\n", "[Sector 2048]", 0},
      {"USBSTART=16777215 LENGTH=1SEC", "[Sector 16777215]  8191MB", "[Sector 16777215]", 0},
      {"USBSTART=5000 LENGTH=100000", "[Sector 5000]", "[Sector 5099]", 0},
      {"USBSTART=P2", "Invalid partition table on drive 1", "", 6},
      {"USBSTART=16777215 LENGTH=2SEC",
       "\r\nError accessing sector 16777215 on Drive 1\r\n\r\nERROR: The drive cannot find", "", 6},
      {"USBSTART=-1 LENGTH=1", "\r\nError accessing sector -1 on Drive 1\r\n\r\nERROR: An attempt was made", "", 6},
  };
  for (const auto& row : cases) {
    run = RunOnDrive(image, "", "DRIVE=1 DRIVEINFO SURE " + row.line);
    EXPECT_EQ(run.exit_code, row.level) << row.line;
    EXPECT_NE(run.out.find(row.first), std::string::npos) << row.line << run.out;
    const std::size_t last = run.out.rfind("[Sector");
    EXPECT_EQ(last == std::string::npos ? "" : run.out.substr(last, row.last.size()), row.last) << row.line;
  }
}

TEST(Inspection, TakesFilesOfEveryKind) {
  const ScratchFolder folder;
  const auto make = [&](const std::string& name, std::uint64_t bytes) {
    SetFileSize(folder.File(name), bytes);
    return folder.File(name);
  };
  const struct {
    std::string file, more;
    int level;
    std::string printed;
  } cases[] = {
      {make("empty", 0), "", 0,
       "\r\n\r\n============= SECTOR DATA ================\r\n\r\n\r\n========= END OF SECTOR DATA "
       "================\r\n"},
      {make("with blanks.bin", 100), "", 0, " is 100 bytes long (100 Bytes).\r\n"},
      {make("\xC3\xA9\xE2\x82\xAC.bin", 3071), "", 0, "\xC3\x89\xE2\x82\xAC.BIN is 3,071 bytes long (2.999 KiB)."},
      {make("b3072", 3072), "LENGTH=5000", 0, " is 3,072 bytes long (3 KiB)."},
      {make("b3073", 3073), "LENGTH=5000", 0, " is 3,073 bytes long (3 KiB)."},
      {make("large", (5ULL << 30) + 1), "FILESTART=5GB LENGTH=1", 0,
       "\r\nFile Start Byte 5368709120 (Sector 10,485,760)\r\n\r\n============= SECTOR DATA "
       "================\r\n\r\n\r\n"
       "[Sector 10485760]  5120MB\r\n0000 00 \r\n"},
      {make("Case.bin", 512).replace(folder.File("").size(), 8, "cASE.BIN"), "", 0, "CASE.BIN is 512 bytes long"},
      {make("end", 1000), "FILESTART=900 LENGTH=200", 6, "\r\nFile read error!"},
      {folder.File("missing"), "", 1, " does not exist!"},
      {folder.File(""), "", 6, "\r\nERROR: Could not open file "},
      {folder.File("end"), "FILESTART=-5", 6, "\r\nPosition too large? -5 \r\nERROR: An attempt was made to move"},
      {folder.File("end"), "FILESTART=P1", 6, "\r\nRequested partition table entry in file "},
  };
  for (const auto& row : cases) {
    const RunResult run = FileInfo(row.file, row.more);
    EXPECT_EQ(run.exit_code, row.level) << row.file << run.out;
    EXPECT_NE(run.out.find(row.printed), std::string::npos) << row.file << row.more << run.out;
    EXPECT_EQ(run.err, "");
  }
  const RunResult run = RunOnDrive(folder.File("drive"), "size=1M", "FILEINFO SURE");
  EXPECT_EQ(run.exit_code, 6);
  EXPECT_TRUE(run.out.ends_with("LENGTH=P1\r\n\r\n\r\n")) << run.out;
  EXPECT_NE(run.out.find("==\r\n\r\n\r\n---"), std::string::npos);
}

}  // namespace
