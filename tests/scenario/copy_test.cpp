// FILETOUSB, USBTOFILE and their neighbours as a user runs them: all that is printed, the exit codes, and what becomes
// of files and drives.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;

// What is printed behind the line about the drive.
std::string Printed(const RunResult& run) { return run.out.substr(run.out.find(" bytes)\r\n") + 9); }

TEST(Copy, PrintsItsPlan) {
  const ScratchFolder folder;
  const std::string image = folder.File("stick.img");
  const std::string file = folder.File("a.bin");
  WriteBytes(file, 0, std::string(999, 'a') + "b");
  const std::string line = "\r\n DRIVE 1 -    86.2MiB Generic Flash Disk              ";
  std::string name = file;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });

  const RunResult there = RunOnDrive(image, "size=100M", "DRIVE=1 SURE FILETOUSB USBSTART=204799 FILE=" + file);
  EXPECT_EQ(there.exit_code, 7);
  EXPECT_EQ(Printed(there),
            line + "\r\nWrite 1000 bytes (0.976 KiB) from file " + name +
                " starting at file position 0 bytes, to USB sector 204799 " + line.substr(2) +
                "\r\n\r\nWARNING: Remainder (24 bytes) written to the last sector of the drive will be garbage!\r\n"
                "\r\nLength to write:        1,000 bytes (1.953 sectors or 0.976 KiB)\r\n"
                "\r\nFrom: File Start position:    Byte 0 (Sector 0 or 0 Bytes)"
                "\r\nTo:    USB Start position:   Byte 104,857,088 (Sector 204,799 or 99.999MiB)\r\n"
                "\r\nUSB Last Sector written:     Byte 104,858,087 (Sector 204,799.953 or 100MiB)"
                "\r\nUSB Drive Ends at:             Byte 104,857,599 (Sector 204,799 or 99.999MiB)\r\n"
                "\r\nFile End byte:      Byte 999 (Sector 0.953 or 0.976 KiB)"
                "\r\nLast file byte:    Byte 999 (Sector 0.953 or 999 Bytes)"
                "\r\n\r\nWARNING: Drive is not large enough for the requested action (104858088 v. 104857600) !"
                "\r\nWriting 1000 bytes from file " +
                name +
                ", starting at byte 0, to USB drive 1, starting at sector 204799\r\n"
                "\r\n*** ERROR *** writing to USB drive at Sector 204799\r\n\r\n");

  const RunResult back =
      RunOnDrive(image, "", "DRIVE=1 SURE USBTOFILE USBSTART=204700 LENGTH=0 FILESTART=2.5SEC FILE=" + file);
  EXPECT_EQ(back.exit_code, 0);
  EXPECT_EQ(Printed(back), line + "\r\nWrite 100 sectors (50 KiB) to file " + name +
                               " starting at file position 1280 bytes, starting from sector 204700 on USB " +
                               line.substr(2) +
                               "\r\n"
                               "\r\nLength to read:\r\n100 sectors (51,200 bytes or 50 KiB)\r\n"
                               "\r\nRead from USB Start position:\r\nSector 204,700 (Byte 104,806,400 or 99.951MiB)"
                               "\r\nWrite to File Start position:\r\nSector 2 (Byte 1,280 or 1.25 KiB)\r\n"
                               "\r\nLast Sector to read:\r\nSector 204,799 (Byte 104,857,599 or 99.999MiB)"
                               "\r\nDrive ends at:\r\nSector 204,799 (Byte 104,857,599 or 99.999MiB)\r\n"
                               "\r\nFinal File Size:      Sector 102.5 (Byte 52,480 or 51.25 KiB)"
                               "\r\nCurrent File Size: Sector 1.953 (Byte 1,000 or 0.976 KiB)"
                               "\r\nWriting 51200 bytes to file " +
                               name +
                               ", starting from byte 1280 in file, from sector 204700 of USB drive 1\r\n"
                               "100% complete, 50KiB written to file - 0 sec remaining\r\n\r\n\r\n");
}

TEST(Copy, SaysWhatIsWrong) {
  const ScratchFolder folder;
  const std::string source = folder.File("source.bin");
  WriteBytes(source, 0, std::string(1 << 20, 's'));
  WriteBytes(folder.File("empty.bin"), 0, "");
  const std::string denied = " \r\nERROR: Access is denied.";
  const struct {
    std::string label;
    std::string words;  // @ stands for the scratch folder
    std::string drive;
    int level;
    std::string text;  // among what is printed
  } rows[] = {
      {"no file named", "FILETOUSB", "", 6, "\r\nNeed FILE=\"fred.bin\" (in quotes)\r\n"},
      {"missing source", "FILETOUSB FILE=@none.bin", "", 1, " does not exist!"},
      {"empty source with a length", "FILETOUSB FILE=@empty.bin LENGTH=512", "", 6,
       "not large enough for the requested action!"},
      {"two bad values, the last one told", "FILETOUSB FILE=@source.bin USBSTART=-1 LENGTH=-5", "", 1,
       "\r\nLength of bytes to copy = -5!"},
      {"bad file start", "FILETOUSB FILE=@source.bin FILESTART=-1", "", 1, "\r\nFile start byte parameter -1 invalid"},
      {"source is a folder", "FILETOUSB LENGTH=512 FILE=@", "", 6, "not large enough for the requested action!"},
      {"source is a drive's image", "FILETOUSB FILE=@stick.img", "", 6, "\r\nInvalid file "},
      {"bad sector in the middle", "FILETOUSB FILE=@source.bin USBSTART=10", ",badwrite=700", 7,
       "\r\n*** ERROR *** writing to USB drive at Sector 650"},
      {"write-protected drive", "FILETOUSB FILE=@source.bin USBSTART=10", ",readonly", 7,
       "\r\n*** ERROR *** writing to USB drive at Sector 10"},
      {"no sectors", "USBTOFILE FILE=@new.bin USBSTART=204801 LENGTH=DALL", "", 1,
       "\r\nNumber of sectors to copy parameter (-1) invalid.\r\ndrive/file may not have valid partition structure?"},
      {"target is a folder", "USBTOFILE LENGTH=512 FILE=@", "", 6, denied},
      {"target is a device", "USBTOFILE LENGTH=512 FILE=/dev/null", "", 6, denied},
      {"target is a drive's image", "USBTOFILE LENGTH=512 FILE=@stick.img", "", 6, "used by another process."},
      {"target in a missing folder", "USBTOFILE LENGTH=512 FILE=@none/new.bin", "", 6,
       " \r\nERROR: The system cannot find the file specified."},
      {"negative length", "USBTOFILE FILE=@new.bin LENGTH=-5", "", 1, "sectors to copy parameter (0) invalid."},
      {"drive ends inside the stretch", "USBTOFILE FILE=@new.bin USBSTART=204000 LENGTH=801SEC", "", 7,
       "\r\n*** ERROR *** writing to USB drive at Sector 204640"},
      {"bad sector in the source", "USBTOFILE FILE=@new.bin USBSTART=10 LENGTH=1MB", ",badread=700", 7,
       "\r\n*** ERROR *** writing to USB drive at Sector 650"},
      {"target can't be written", "USBTOFILE LENGTH=512 FILE=/proc/version", "", 6, "\r\nFile write error!"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    std::string words = row.words;
    if (const std::size_t at = words.find('@'); at != std::string::npos) {
      words.replace(at, 1, folder.File(""));
    }
    const RunResult run = RunOnDrive(folder.File("stick.img"), "size=100M" + row.drive, "DRIVE=1 SURE " + words);
    EXPECT_EQ(run.exit_code, row.level) << run.out;
    EXPECT_NE(run.out.find(row.text), std::string::npos) << run.out;
    EXPECT_EQ(run.err, "");
    if (words.find("/new.bin") != std::string::npos) {
      const bool created = std::filesystem::remove(folder.File("new.bin"));
      EXPECT_EQ(created, row.level == 7);  // what was copied so far is kept
    }
  }
  EXPECT_TRUE(ReadBytes(source, 0, 2 << 20) == std::string(1 << 20, 's'));
}

// Runs a shell line with $RUN standing for the program with the drive attached.
RunResult RunInShell(const std::string& image, const std::string& line) {
  const std::string run = std::string("RUN='") + KORVENTIX_BINARY + " --drive 1=" + image + "'; ";
  return RunCommand({"bash", "-c", run + line});
}

TEST(Copy, AFullFileSystemKeepsWhatItTook) {
  const ScratchFolder folder;
  const std::string image = folder.File("stick.img");
  WriteBytes(image, 0, std::string(20 << 20, 'd'));
  const std::string target = folder.File("target.bin");
  const RunResult run =
      RunInShell(image, "ulimit -f 100; exec $RUN --no-wait DRIVE=1 SURE USBTOFILE LENGTH=1MB FILE=" + target);
  EXPECT_EQ(run.exit_code, 6);
  EXPECT_TRUE(run.out.ends_with("\r\nFile write error!\r\n\r\n")) << run.out;
  EXPECT_TRUE(ReadBytes(target, 0, 1 << 20) == std::string(100 << 10, 'd'));
}

TEST(Copy, GoesOnWhenNobodyListens) {
  const ScratchFolder folder;
  const std::string image = folder.File("stick.img");
  SetFileSize(image, 20 << 20);
  WriteBytes(folder.File("source.bin"), 0, std::string(10 << 20, 's'));
  const RunResult run = RunInShell(image, "$RUN --no-wait DRIVE=1 SURE FILETOUSB FILE=" + folder.File("source.bin") +
                                              " | head -c 30; exit ${PIPESTATUS[0]}");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(ReadBytes(image, 0, 11 << 20) == std::string(10 << 20, 's') + std::string(1 << 20, '\0'));
  EXPECT_EQ(RunInShell(image, "(sleep 0.2; exec $RUN DRIVE=1 SURE FILETOUSB FILE=none) | true; exit ${PIPESTATUS[0]}")
                .exit_code,
            1);
}

// No file system holds the place: the drive gets none of the file's other bytes.
TEST(Copy, ReadsNothingBehindAllPlaces) {
  const ScratchFolder folder;
  const std::string image = folder.File("stick.img");
  SetFileSize(image, 20 << 20);
  WriteBytes(folder.File("source.bin"), 0, "source");
  const RunResult run = RunOnDrive(
      image, "", "DRIVE=1 SURE FILETOUSB USBSTART=3 FILESTART=1e18 LENGTH=512 FILE=" + folder.File("source.bin"));
  EXPECT_EQ(run.exit_code, 0) << run.out;
  EXPECT_EQ(ReadBytes(image, 3 * 512, 512).find("source"), std::string::npos);
}

TEST(Copy, ASignalEndsItAtOnce) {
  const ScratchFolder folder;
  const std::string image = folder.File("stick.img");
  SetFileSize(image, 20 << 20);
  WriteBytes(folder.File("source.bin"), 0, std::string(1 << 20, 's'));
  const std::string copy = "DRIVE=1 SURE FILETOUSB FILE=" + folder.File("source.bin");
  for (const auto& [name, number] : std::vector<std::pair<std::string, int>>{{"INT", SIGINT}, {"TERM", SIGTERM}}) {
    // Without --no-wait a second passes between the lock and the first write.
    const RunResult run = RunInShell(image, "timeout -s " + name + " --preserve-status 0.4 $RUN " + copy);
    EXPECT_EQ(run.exit_code, 128 + number);
    EXPECT_EQ(ReadBytes(image, 0, kSector), std::string(kSector, '\0'));
  }
  EXPECT_EQ(RunInShell(image, "$RUN --no-wait " + copy).exit_code, 0);
}

}  // namespace
