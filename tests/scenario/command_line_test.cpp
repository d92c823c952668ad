// The command line as a user types it: what is echoed, refused, and with which exit code. No drive is needed for most
// of it; where one is, it is an image that must stay as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

const std::string kBanner = "\r\nKORVENTIX v1.0.0\r\n================\r\n";

// Runs a command line that names no drive, or none that is there.
RunResult RunLine(const std::string& line) {
  const ScratchFolder folder;
  std::vector<std::string> arguments = Words(line);
  arguments.insert(arguments.begin(), {"--drive", "98=" + folder.File("other.img") + ",size=1M", "--no-wait"});
  return RunKorventix(arguments);
}

TEST(CommandLine, IsRefusedWithItsMessage) {
  const struct {
    std::string line;
    int level;
    std::string behind_banner;
  } cases[] = {
      {"LISTEN", 3, "\r\n\r\n"},  // a keyword matches a longer word
      {"DRIVE=1 2PTN USBFDD", 1, "ERROR: Cannot specify USBFDD and 2PTN options!"},
      {"DRIVE=1 NTFS USBFDD", 1, "ERROR: Cannot specify USBFDD and NTFS options!"},
      {"DRIVE=1 NTFS DOSZIP", 1, "ERROR: Cannot specify DOS and NTFS options (use BOOTMGR)!"},
      {"DRIVE=1 USBFDD EXFAT WIN7", 1, "ERROR: Cannot specify USBFDD and EXFAT options!"},
      {"DRIVE=1 USBFDD EXFAT", 1,
       "\r\nWARNING: Defaulting to installing BOOTMGR bootsectors.\r\nERROR: Cannot specify USBFDD and EXFAT options!"},
      {"DRIVE=1 FIRSTPART=5", 1, "ERROR: FIRSTPART value must be between 2 and 4!"},
      {"DRIVE=1 LIST", 3, "\r\n\r\n"},
  };
  for (const auto& row : cases) {
    const RunResult run = RunLine(row.line);
    EXPECT_EQ(run.out, "\r\nCOMMAND LINE: " + row.line + "\r\n" + kBanner + row.behind_banner + "\r\n\r\n") << row.line;
    EXPECT_EQ(run.exit_code, row.level) << row.line;
    EXPECT_EQ(run.err, "") << row.line;
  }
}

TEST(CommandLine, TakesTheVolumeNameLast) {
  // Refused above the banner; the label reaches to the end of the line.
  RunResult run = RunLine("DRIVE=1 VOLUME=MY DATA DRIVE=1");
  EXPECT_EQ(
      run.out,
      "\r\nCOMMAND LINE: DRIVE=1 VOLUME=MY DATA DRIVE=1\r\n\r\nERROR: Volume name longer than 11 characters (must "
      "be last parameter on command line)!\r\n\r\n");
  EXPECT_EQ(run.exit_code, 1);

  // Keywords in the label don't count, and its own case is kept. A character is a byte of code page 1252.
  run = RunLine("DRIVE=1 VOLUME=My NTFS K\xC3\xA9y");
  EXPECT_EQ(run.out, "\r\nCOMMAND LINE: DRIVE=1 VOLUME=My NTFS K\xC3\xA9y\r\n" + kBanner +
                         "\r\nVolume name requested=My NTFS K\xC3\xA9y\r\nAccessing Drive 1 - \"\" (0 bytes)\r\n"
                         "\r\nDrive 1 is not a USB drive!\r\n\r\n");
  EXPECT_EQ(run.exit_code, 4);
}

TEST(CommandLine, ShowsTheUsageWithoutADrive) {
  const struct {
    std::string line, ending;
  } cases[] = {
      {"", "Write error.\r\nMaybe need a DRIVE=n,  FIND, LIST or FILEINFO parameter?\r\n\r\n"},
      {"SURE DRIVE=", "Write error.\r\n\r\n\r\n"},
  };
  for (const auto& row : cases) {
    const RunResult run = RunLine(row.line);
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(run.out.starts_with("\r\nCOMMAND LINE: " + row.line + "\r\n" + kBanner +
                                    "\r\n\r\nSyntax:\r\n KORVENTIX [DRIVE"));
    EXPECT_TRUE(run.out.ends_with(row.ending)) << row.line;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 5 + 8 + 28 + 75 + 2) << row.line;
  }
  EXPECT_EQ(RunLine("DRIVE= SURE").exit_code, 4);  // a blank is a value
}

TEST(CommandLine, SelectsTheDrive) {
  const struct {
    std::string text, number;
    int level;
  } cases[] = {
      {"DRIVE=01", "1", 2},   {"DRIVE=1.", "1", 2},  {"DRIVE=+1", "1", 2},  {"DRIVE=1", "1", 2},
      {"USBDRIVE=1", "1", 2}, {"DRIVE=-1", "-1", 4}, {"DRIVE=A", "0", 4},   {"DRIVE=1A", "0", 4},
      {"DRIVE=..", "0", 4},   {"DRIVE=12", "12", 4}, {"DRIVE=1\t", "0", 4}, {"DRIVE=123", "12", 4},
  };
  const ScratchFolder folder;
  for (const auto& row : cases) {
    const RunResult run = RunOnDrive(folder.File("usb.img"), "size=100M", "NOWRITE SURE " + row.text);
    EXPECT_NE(run.out.find("\r\nAccessing Drive " + row.number + " - "), std::string::npos) << row.text;
    EXPECT_EQ(run.exit_code, row.level) << row.text;
  }
}

TEST(CommandLine, DerivesTheBootType) {
  const struct {
    std::string line, boot_type, zip;
  } cases[] = {
      {"", "", "False"},
      {"DOSZIP", "FAT16ZIP", "True"},
      {"MSDOS", "FAT16MSDOS", "False"},
      {"WINPE XP", "FAT16BOOTMGR", "False"},  // the table's order decides, not the line's
      {"VISTA FREEDOS", "FAT16FREEDOS", "False"},
      {"XP NTFS", "NTFSNTLDR", "False"},
      {"NTFS FREEDOS", "", "False"},
      {"NTFSNTLDR", "", "False"},
      {"EXFAT DOSZIP", "EXFATBOOTMGR", "True"},
      {"EXFAT GRUB4DOS", "EXFATBOOTMGR", "False"},
      {"GRUB4DOS", "", "False"},
      {"FAT32", "FAT32MSDOS", "False"},
      {"FAT32 ZIP=1 XP", "FAT32NTLDR", "True"},
      {"NTFS FAT32 EXFAT WIN7", "FAT32BOOTMGR", "False"},
  };
  for (const auto& row : cases) {
    const RunResult run = RunLine("DEBUG 2PTN " + row.line);
    EXPECT_NE(
        run.out.find("\r\nOSTYPE=" + row.boot_type + " ZIP=" + row.zip + " 2PTN=True FORCELBA=False USBFDD=False\r\n"),
        std::string::npos)
        << row.line << run.out;
  }
}

TEST(CommandLine, ReadsTheSize) {
  const struct {
    std::string line;
    std::string reduced;  // empty where the whole drive is taken
  } cases[] = {
      {"SIZE=900", "900MiB (943718400 bytes)"},
      {"SIZE=0.5", "0.5MiB (524288 bytes)"},
      {"SIZE=12.3456789", "12.3456783294678MiB (12945382 bytes)"},
      {"SIZE=1e3", "1MiB (1048576 bytes)"},
      {"SIZE=900 512M", "488.28125MiB (512000000 bytes)"},
      {"SIZE=big", ""},
      {"SIZE=-5", ""},
      {"SIZE=.", ""},
  };
  const ScratchFolder folder;
  for (const auto& row : cases) {
    const RunResult run = RunOnDrive(folder.File("usb.img"), "size=2G", "DRIVE=1 NOWRITE SURE " + row.line);
    const std::string reduced = "\r\nInformation: Partition size reduced to " + row.reduced + "\r\nUsing Cyl";
    EXPECT_EQ(run.out.find("Partition size reduced") != std::string::npos, !row.reduced.empty()) << row.line;
    EXPECT_EQ(run.out.find(reduced) != std::string::npos, !row.reduced.empty()) << row.line << run.out;
  }
}

TEST(CommandLine, RefusesBeforeAnythingIsWritten) {
  const struct {
    std::string size, line, input;
    int level;
    std::string ending;
  } cases[] = {
      {"8G", "DRIVE=1 SURE", "", 1, "\r\nError: Cannot exceed 4GB for FAT16. Use FAT32, exFAT or NTFS?"},
      {"8G", "DRIVE=1 SURE SIZE=4097", "", 1, "Use FAT32, exFAT or NTFS?"},
      {"8G", "DRIVE=1 NOWRITE SIZE=4096", "", 2, "\r\nMBR Sector not written to disk - aborting..."},
      {"8G", "DRIVE=1 FAT32 WINPE", "no\n", 2, "\r\nUser aborted!"},
      {"70G", "DRIVE=1 FAT32 WINPE", "ok\nn\n", 2, "\r\nUser aborted!"},
      {"65000000000", "DRIVE=1 FAT32 WINPE", "cancel\n", 2, "\r\nUser aborted!"},  // no large device yet
      {"65000000512", "DRIVE=1 FAT32 WINPE", "cancel\n", 2, "bytes)\r\n"},
      {"4310046720", "DRIVE=1 SURE", "", 1, "Use FAT32, exFAT or NTFS?"},  // 523 cylinders to use, 522 are below 4 GiB
      {"16450048", "DRIVE=1 SURE", "", 3, "add ALLDRIVES for non-USB drives."},
      {"1G", "DRIVE=1 WRITEMBRONLY", "", 2, "bytes)\r\n"},
      {"1G", "DRIVE=1 WRITEMBRONLY NOWRITE SURE ZIP", "", 2, "\r\nSector not written to disk by request!"},
      {"12M", "DRIVE=1 SURE", "", 3,
       "\r\nCannot find drive 1\r\nPlease ensure you have specified DRIVE=n where n is a NUMBER not a letter - add "
       "ALLDRIVES for non-USB drives."},
      {"1G,sector=4096", "DRIVE=1 SURE", "", 6, "\r\nERROR: Drive 1 is reported as a 4K-bytes per sector drive!"},
      {"1G,sector=2048", "DRIVE=1 SURE", "", 6, "\r\nERROR: Drive 1 is reported as not a 512-bytes per sector drive!"},
      {"1G,bus=ata", "DRIVE=1 SURE", "", 4, "\r\nDrive 1 is not a USB drive!"},
      {"1G,badread=1", "DRIVE=1 SURE", "", 6,
       "\r\nError accessing sector 0 on Drive 1\r\n\r\nERROR: Data error (cyclic redundancy check).\r\n"},
      {"1G", "DRIVE=2 SURE ALLDRIVES", "", 6, "\r\nFailed to open handle on disk 2 Err=20"},
  };
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const RunResult run = RunOnDrive(folder.File("usb.img"), "size=" + row.size, row.line, row.input);
    EXPECT_EQ(run.exit_code, row.level) << row.line;
    EXPECT_TRUE(run.out.ends_with(row.ending + "\r\n\r\n")) << row.line << run.out;
    EXPECT_EQ(run.err, "") << row.line;
    const std::string start = ReadBytes(folder.File("usb.img"), 0, 1 << 20);
    EXPECT_EQ(start.find_first_not_of('\0'), std::string::npos) << row.line;
  }
}

TEST(CommandLine, EndsWithZeroWithoutAConsole) {
  const ScratchFolder folder;
  const std::string run = std::string("exec '") + KORVENTIX_BINARY + "' --drive '98=" + folder.File("other.img") +
                          ",size=1M' --no-wait DRIVE=1";
  EXPECT_EQ(RunCommand({"sh", "-c", run + " >&-"}).exit_code, 0);
  EXPECT_EQ(RunCommand({"sh", "-c", run}).exit_code, 4);
}

}  // namespace
