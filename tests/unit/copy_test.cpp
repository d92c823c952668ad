// Copies between a drive in memory and a file: what is moved, bit for bit, and that nothing else is.
#include "transfer/copy.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "console/console.h"
#include "support/program.h"
#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kDriveSectors = 34'000;  // a little above the smallest drive that is accepted
constexpr std::uint64_t kChunk = kChunkBytes;

// Bytes that depend on their place and on `salt`, without a period that a sector or a chunk would hide.
std::string Pattern(std::uint64_t first, std::uint64_t bytes, std::uint64_t salt) {
  std::string text(bytes, '\0');
  for (std::uint64_t i = 0; i < bytes; ++i) {
    text[i] = static_cast<char>((first + i + salt) * 0x9E3779B97F4A7C15 >> 56);
  }
  return text;
}

std::vector<std::uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }
std::string Text(const std::vector<std::uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

MachineDouble MachineWith(std::uint64_t sectors, const std::string& line) {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, sectors * kSector));
  return MachineDouble(std::move(drives), line);
}

struct Stretch {
  std::uint64_t sector;
  std::uint64_t position;
  std::uint64_t bytes;
};

// Around the ends of sectors and chunks.
const Stretch kStretches[] = {
    {0, 0, 1},
    {7, 513, 513},
    {100, 1000, kChunk - 1},
    {101, 1000, kChunk},
    {639, 0, 2 * kChunk + 1025},
    {kDriveSectors - 3, 5, 3 * kSector},
};

std::string CopyLine(const std::string& word, const std::string& file, const Stretch& stretch) {
  return "DRIVE=1 SURE " + word + " FILE=\"" + file + "\" USBSTART=" + std::to_string(stretch.sector) +
         " FILESTART=" + std::to_string(stretch.position) + " LENGTH=" + std::to_string(stretch.bytes);
}

TEST(CopyToDrive, WritesTheStretchAndNothingElse) {
  const ScratchFolder folder;
  const std::string file = folder.File("source.bin");
  const std::uint64_t file_bytes = 3 * kChunk;
  WriteBytes(file, 0, Pattern(0, file_bytes, 1));
  for (const Stretch& stretch : kStretches) {
    const std::string line = CopyLine("FILETOUSB", file, stretch);
    MachineDouble machine = MachineWith(kDriveSectors, line);
    const std::string before = Pattern(0, kDriveSectors * kSector, 2);
    machine.SetDriveBytes(1, 0, Bytes(before));
    ASSERT_EQ(RunMain(machine), kLevelOk) << machine.console;
    const std::string after = Text(machine.DriveBytes(1, 0, kDriveSectors));
    const std::uint64_t start = stretch.sector * kSector;
    const std::uint64_t sector_end = start + (stretch.bytes + kSector - 1) / kSector * kSector;
    EXPECT_TRUE(after.substr(0, start) == before.substr(0, start)) << line;
    EXPECT_TRUE(after.substr(start, stretch.bytes) == Pattern(stretch.position, stretch.bytes, 1)) << line;
    EXPECT_TRUE(after.substr(sector_end) == before.substr(sector_end)) << line;
    EXPECT_TRUE(ReadBytes(file, 0, file_bytes + 1) == Pattern(0, file_bytes, 1)) << line;
  }
}

TEST(CopyToFile, WritesTheStretchAndNothingElse) {
  const ScratchFolder folder;
  const std::string file = folder.File("target.bin");
  const std::uint64_t file_bytes = 4 * kChunk;
  for (const Stretch& stretch : kStretches) {
    const std::uint64_t sectors = (stretch.bytes + kSector - 1) / kSector;
    const std::string line = CopyLine("USBTOFILE", file, stretch);
    MachineDouble machine = MachineWith(kDriveSectors, line);
    const std::string drive = Pattern(0, kDriveSectors * kSector, 2);
    machine.SetDriveBytes(1, 0, Bytes(drive));
    WriteBytes(file, 0, Pattern(0, file_bytes, 1));
    ASSERT_EQ(RunMain(machine), kLevelOk) << machine.console;
    std::string expected = Pattern(0, file_bytes, 1);
    expected.replace(stretch.position, sectors * kSector, drive, stretch.sector * kSector, sectors * kSector);
    EXPECT_TRUE(ReadBytes(file, 0, file_bytes + 1) == expected) << line;
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).size(), (sectors * kSector + kChunk - 1) / kChunk);  // of the file
    EXPECT_TRUE(Text(machine.DriveBytes(1, 0, kDriveSectors)) == drive) << line;
  }
}

TEST(Copy, ReachesBeyond4GiBOfAFileAnd1TBOfADrive) {
  const ScratchFolder folder;
  const std::string file = folder.File("large.bin");
  constexpr std::uint64_t kPosition = (5ULL << 30) + 1;
  constexpr std::uint64_t kFirst = (1ULL << 40) / kSector * 3;  // 3 TiB
  const std::string data = Pattern(0, 2 * kChunk, 1);
  WriteBytes(file, kPosition, data);
  const Stretch stretch{kFirst, kPosition, data.size()};
  MachineDouble machine = MachineWith(kFirst * 2, CopyLine("FILETOUSB", file, stretch));
  ASSERT_EQ(RunMain(machine), kLevelOk) << machine.console;
  EXPECT_TRUE(Text(machine.DriveBytes(1, kFirst, data.size() / kSector)) == data);

  const std::string copy = folder.File("copy.bin");
  MachineDouble second = MachineWith(kFirst * 2, CopyLine("USBTOFILE", copy, stretch));
  second.SetDriveBytes(1, kFirst, Bytes(data));
  ASSERT_EQ(RunMain(second), kLevelOk) << second.console;
  EXPECT_TRUE(ReadBytes(copy, kPosition, data.size() + 1) == data);
}

TEST(CopyToDrive, ASourceThatShrinksIsFilledUpFromTheBuffer) {
  // Cuts the source while the user is being asked.
  class BusyMachine : public MachineDouble {
   public:
    using MachineDouble::MachineDouble;
    int ShowBox(std::string_view text, int buttons, std::string_view title) override {
      EXPECT_EQ(title, "FILE ---> USB");
      SetFileSize(source, kChunk + 700);
      return MachineDouble::ShowBox(text, buttons, title);
    }
    std::string source;
  };
  const ScratchFolder folder;
  const std::string file = folder.File("source.bin");
  WriteBytes(file, 0, Pattern(0, 2 * kChunk, 1));
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, kDriveSectors * kSector));
  BusyMachine machine(std::move(drives), "DRIVE=1 FILETOUSB FILE=\"" + file + "\"");
  machine.source = file;
  ASSERT_EQ(RunMain(machine), kLevelOk) << machine.console;
  std::string expected = Pattern(0, kChunk + 700, 1);
  expected += expected.substr(700, kChunk - 700);  // of the chunk before
  EXPECT_TRUE(Text(machine.DriveBytes(1, 0, 2 * kChunk / kSector)) == expected);
}

TEST(CopyToFile, AsksAboutATargetThatIsLonger) {
  const struct {
    std::string label;
    std::vector<int> answers;
    std::uint64_t file_bytes;  // before
    int level;
    std::uint64_t bytes_after;
    std::size_t boxes;
  } rows[] = {
      {"kept", {kAnswerOk, kAnswerNo}, 2000, kLevelOk, 2000, 2},
      {"deleted first", {kAnswerOk, kAnswerYes}, 2000, kLevelOk, 1224, 2},
      {"declined", {kAnswerOk, kAnswerCancel}, 2000, kLevelUserAbort, 2000, 2},
      {"as long as the result", {kAnswerOk}, 1224, kLevelOk, 1224, 1},
      {"no copy at all", {kAnswerCancel}, 2000, kLevelUserAbort, 2000, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const ScratchFolder folder;
    const std::string file = folder.File("target.bin");
    WriteBytes(file, 0, Pattern(0, row.file_bytes, 1));
    MachineDouble machine =
        MachineWith(kDriveSectors, "DRIVE=1 USBTOFILE FILE=\"" + file + "\" FILESTART=200 LENGTH=1024");
    machine.answers.assign(row.answers.begin(), row.answers.end());
    EXPECT_EQ(RunMain(machine), row.level);
    EXPECT_EQ(std::filesystem::file_size(file), row.bytes_after);
    EXPECT_EQ(machine.boxes.size(), row.boxes);
    const bool copied = row.level == kLevelOk;
    EXPECT_EQ(ReadBytes(file, 200, 1024) == std::string(1024, '\0'), copied);
    EXPECT_EQ(ReadBytes(file, 0, 200) == Pattern(0, 200, 1), row.answers.back() != kAnswerYes);
  }
}

TEST(Copy, NoWriteMovesNothing) {
  const ScratchFolder folder;
  const std::string target = folder.File("target.bin");
  MachineDouble machine = MachineWith(kDriveSectors, "DRIVE=1 SURE NOWRITE USBTOFILE FILE=\"" + target + "\"");
  EXPECT_EQ(RunMain(machine), kLevelOk);
  EXPECT_EQ(machine.CallsOf(CallKind::kRead).back(),
            (Call{CallKind::kRead, (kDriveSectors - 1) / 640 * 640, (kDriveSectors - 1) % 640 + 1}));
  EXPECT_EQ(std::filesystem::file_size(target), 0U);

  WriteBytes(target, 0, Pattern(0, 2 * kChunk, 1));
  MachineDouble second = MachineWith(kDriveSectors, "DRIVE=1 SURE NOWRITE FILETOUSB FILE=\"" + target + "\"");
  EXPECT_EQ(RunMain(second), kLevelOk);
  EXPECT_TRUE(second.console.ends_with("\r\nFinished\r\n\r\n"));
  EXPECT_TRUE(second.CallsOf(CallKind::kWrite).empty());
}

TEST(Copy, AnAddressThatWrapsNamesNoOtherSector) {
  const ScratchFolder folder;
  const std::string file = folder.File("source.bin");
  WriteBytes(file, 0, Pattern(0, 2000, 1));
  // 2^55 sectors are 2^64 bytes: the product would be 0.
  for (const char* start : {"36028797018963968", "9223372036854775807", "1E300", "18014398509481984"}) {
    MachineDouble machine =
        MachineWith(kDriveSectors, "DRIVE=1 SURE FILETOUSB FILE=\"" + file + "\" USBSTART=" + start);
    EXPECT_EQ(RunMain(machine), kLevelWriteError) << start;
    EXPECT_EQ(Text(machine.DriveBytes(1, 0, 100)), std::string(100 * kSector, '\0')) << start;
  }
}

TEST(Copy, TellsTheTimeThatIsLeft) {
  const ScratchFolder folder;
  MachineDouble machine =
      MachineWith(200 * kChunk / kSector, "DRIVE=1 SURE USBTOFILE FILE=\"" + folder.File("target.bin") + "\"");
  machine.transfer_time = 1000;
  EXPECT_EQ(RunMain(machine), kLevelOk);
  // Each chunk is read and written: 2 s. The first line comes at 5 percent, 10 chunks and 20 s later.
  EXPECT_NE(machine.console.find("USB drive 1\r\n5% complete, 3,200KiB written to file - 6 min 20 sec  remaining\r\n"
                                 "10% complete, 6,400KiB written to file - 6 min 0 sec  remaining\r\n"),
            std::string::npos)
      << machine.console;
  EXPECT_TRUE(
      machine.console.ends_with("\r\n95% complete, 60,800KiB written to file - 0 min 20 sec  remaining\r\n"
                                "100% complete, 64,000KiB written to file - 0 sec remaining\r\n\r\n\r\n"));
}

}  // namespace
