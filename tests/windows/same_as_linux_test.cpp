// The cross-built .exe under Wine does what the program for Linux does: same output, same exit code, same bytes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "platform/host/code_page.h"
#include "windows/wine.h"

namespace {

struct Case {
  const char* drive;  // the options of drive 1, or kSameDrive
  const char* line;   // as it is typed on Windows, with <folder> for the full path of the run's folder; UTF-8
  // To the boxes that ask something, a letter each: o OK, c Cancel, y Yes, n No.
  const char* answers = "";
};
// The drive of the row before, as that has left it.
constexpr const char* kSameDrive = nullptr;
const Case kCases[] = {
    {"size=8G", "DRIVE=1 SURE FAT32 WINPE VOLUME=My Stick"},
    {"size=1G,fixed,vendor=ACME", "DRIVE=1 SURE FAT32 BOOTMGR ZIP 2MBR"},
    {"size=2G", "DRIVE=1 SURE MSDOS 2PTN SIZE=900"},
    {"size=2G", "DRIVE=1 SURE FREEDOS DEBUG"},
    {"size=1G,serial=42", "LIST"},
    {"size=1G,serial=42", "FIND"},
    {"size=1G", "DRIVE=1 GETDRV"},
    {"size=1G,badread=5000", "USBINFO DRIVE=1 SURE LENGTH=1KB"},
    {"size=1G", ""},
    {"size=1G,badwrite=0", "DRIVE=1 SURE"},
    {"size=1G,readonly", "DRIVE=1 SURE WRITEMBRONLY"},
    {"size=8G", "DRIVE=1 SURE"},
    {"size=1G", "DRIVE=2 SURE FAT32 WINPE"},
    {"size=1G", "DRIVE=1 VOLUME=longer than eleven"},
    {"size=1G,sector=513", "DRIVE=1"},
    {"size=64M", "DRIVE=1 SURE CLEAN"},
    {"size=64M", "DRIVE=1 SURE ERASE"},
    {"size=64M", "DRIVE=1 SURE QUICKTEST"},
    {"size=1G,wrap=600M", "DRIVE=1 SURE QUICKTEST"},
    {"size=64M", "DRIVE=1 SURE FILETOUSB FILE=\"a folder\\a file.bin\" USBSTART=3"},
    {"size=64M", "DRIVE=1 SURE USBTOFILE FILE=\"a folder\\New.bin\" LENGTH=8KB"},
    {"size=64M", "DRIVE=1 SURE USBTOFILE FILE=\"a folder\\A FILE.BIN\" LENGTH=1KB FILESTART=100"},
    {"size=64M", "DRIVE=1 SURE USBTOFILE FILE=\"no folder\\x.bin\""},
    {"size=64M", "FILEINFO SURE FILE=\"a folder\\a file.bin\""},
    {"size=64M", "FILEINFO SURE FILE=\"missing.bin\""},
    {"size=1G,bus=ata", "FIND"},
    {"size=1G,bus=ata,fixed", "LIST ALLDRIVES"},
    {"size=1G,bus=ata,fixed", "DRIVE=1 SURE ALLDRIVES MSDOS"},
    {"size=1G", "DRIVE=1 SURE FAT32 XP"},
    {"size=1G", "DRIVE=1 SURE FAT32 MSDOS CHS"},
    {"size=1G", "DRIVE=1 SURE FAT32 FREEDOS 512M"},
    {"size=1G", "DRIVE=1 SURE FAT32 DOSZIP"},
    {"size=1G", "DRIVE=1 SURE FAT32 WINPE NOWRITE"},
    {"size=1G", "DRIVE=1 SURE MSDOS USBFDD VOLUME=B\u00FCro"},
    {"size=2G", "DRIVE=1 SURE WINPE 2PTN SIZE=900 NOACT"},
    {kSameDrive, "DRIVE=1 SURE WRITEMBRONLY"},
    {kSameDrive, "DRIVE=1 SURE FIRSTPART=2"},
    {kSameDrive, "USBINFO DRIVE=1 SURE USBSTART=P1 LENGTH=1SEC"},
    {kSameDrive, "DRIVE=1 SURE USBTOFILE FILE=\"<folder>\\a folder\\K\u00FChl 1.bin\" USBSTART=P1 LENGTH=4KB"},
    {kSameDrive, "DRIVE=1 SURE FILETOUSB FILE=\"<folder>\\a folder\\a file.bin\" USBSTART=9"},
    {"size=1G", "DRIVE=1 FAT32 WINPE", "o"},
    {kSameDrive, "DRIVE=1 FAT32 XP", "c"},
    {kSameDrive, "DRIVE=1 WRITEMBRONLY", "o"},
    {kSameDrive, "DRIVE=1 FIRSTPART=2", "o"},
    {kSameDrive, "USBINFO DRIVE=1"},
    {kSameDrive, "DRIVE=2 FAT32"},
    {kSameDrive, "DRIVE=1 CLEAN", "c"},
    {"size=1G,badwrite=0", "DRIVE=1 MSDOS", "o"},
    {"size=64M", "DRIVE=1 QUICKTEST", "o"},
    {"size=64M,badwrite=81919", "DRIVE=1 QUICKTEST", "oo"},
    {"size=64M,badwrite=81919", "DRIVE=1 QUICKTEST", "oc"},
    {"size=64M", "DRIVE=1 ERASE", "o"},
    {"size=64M", "DRIVE=1 FILETOUSB FILE=\"a folder\\a file.bin\" USBSTART=3", "o"},
    {kSameDrive, "DRIVE=1 USBTOFILE FILE=\"a folder\\New.bin\" LENGTH=1KB", "oc"},
    {kSameDrive, "DRIVE=1 USBTOFILE FILE=\"a folder\\New.bin\" LENGTH=1KB USBSTART=3", "on"},
    {kSameDrive, "DRIVE=1 USBTOFILE FILE=\"a folder\\New.bin\" LENGTH=2KB", "oy"},
    {kSameDrive, "FILEINFO FILE=\"a folder\\New.bin\" LENGTH=1KB"},
};
constexpr int kQuickTestBeyond255 = 18;

// Both programs run in a folder of their own, with blanks in its name, on files of the same names.
class Sides {
 public:
  Sides() {
    for (const std::string& side : {Windows(), Linux()}) {
      std::filesystem::create_directories(side + "/a folder");
      std::string bytes;
      for (int i = 0; i < 5000; ++i) {
        bytes += static_cast<char>(i * 7);
      }
      WriteBytes(side + "/a folder/a file.bin", 0, bytes);
    }
    std::filesystem::copy_file(KORVENTIX_EXE, Windows() + "/korventix.exe");
    std::filesystem::copy_file(KORVENTIX_WINDOWS_BUILD "/tests/windows/machine/run_lines.exe",
                               Windows() + "/run_lines.exe");
  }
  std::string Windows() const { return folder_.File("the windows side"); }
  std::string Linux() const { return folder_.File("the linux side"); }

 private:
  ScratchFolder folder_;
};

std::string DriveOption(const Case& row, const std::string& folder_prefix) {
  const Case* first = &row;
  while (first->drive == kSameDrive) {
    --first;
  }
  return "1=" + folder_prefix + std::to_string(first - kCases) + ".img," + first->drive;
}

// The row's line for a run in this folder, by what the system calls it.
std::string LineIn(const Case& row, const std::string& folder) {
  const std::string line = row.line;
  const std::string mark = "<folder>";
  const std::size_t at = line.find(mark);
  return at == std::string::npos ? line : line.substr(0, at) + folder + line.substr(at + mark.size());
}

// Leaves what each run prints in n.out, and its level in n.level. All runs at once, since a start of Wine takes
// seconds; on a desktop that nobody sees, so that boxes have buttons.
void RunOnWindows(const std::string& folder) {
  std::string lines;
  for (const Case& row : kCases) {
    const std::string answers = row.answers;
    lines += (answers.empty() ? "-" : answers) + " korventix.exe --drive \"" +
             DriveOption(row, WindowsPath(folder) + "\\") + "\" --no-wait --seed 1 " +
             ToCodePage(LineIn(row, WindowsPath(folder))) + "\n";
  }
  WriteBytes(folder + "/lines.txt", 0, lines);
  const RunResult run =
      RunUnderWine(folder, {"explorer", "/desktop=boxes,640x480,null", "run_lines.exe", "lines.txt"}, 250);
  ASSERT_EQ(run.exit_code, 0) << run.err;
}

RunResult RunOnLinux(const std::string& folder, const Case& row) {
  std::string line = LineIn(row, folder);
  std::replace(line.begin(), line.end(), '\\', '/');
  std::vector<std::string> command{
      "sh",     "-c", R"(cd "$0" && exec "$@")", folder, KORVENTIX_BINARY, "--drive", DriveOption(row, ""), "--no-wait",
      "--seed", "1"};
  const std::vector<std::string> words = Words(line);
  command.insert(command.end(), words.begin(), words.end());
  std::string input;
  for (const char answer : std::string(row.answers)) {
    input += {answer, '\n'};
  }
  return RunCommand(command, input);
}

// Without what the two systems write in their own way, and without what depends on their speed.
std::string Comparable(const std::string& text) {
  static const std::regex times(
      R"(\d+[-/]\d+[-/]\d+ \d+:\d\d:\d\d( [AP]M)?|(\d+ min )?\d+ sec +remaining|took \d+ seconds)");
  static const std::regex folder("(Z:)?/[-/a-z0-9]+/the (windows|linux) side", std::regex::icase);
  std::string result = std::regex_replace(text, times, "TIME");
  std::replace(result.begin(), result.end(), '\\', '/');
  return std::regex_replace(result, folder, "FOLDER");
}

std::string FileText(const std::string& file) { return ReadBytes(file, 0, 1 << 20); }

// The files that runs have read and written, by their path in the folder.
std::set<std::string> FilesIn(const std::string& folder) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == ".img" || entry.path().extension() == ".bin") {
      files.insert(entry.path().lexically_relative(folder));
    }
  }
  return files;
}

// Whether the other file has the bytes of every stretch of this one that is stored, be it of zeros; most of an image is
// not.
bool HasBytesOf(const std::string& other, const std::string& file) {
  constexpr off_t kMost = 1 << 20;
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  bool same = fd >= 0;
  for (off_t at = 0; same && (at = lseek(fd, at, SEEK_DATA)) >= 0;) {
    const off_t stop = std::min(lseek(fd, at, SEEK_HOLE), at + kMost);
    const auto position = static_cast<std::uint64_t>(at);
    const auto bytes = static_cast<std::size_t>(stop - at);
    same = ReadBytes(file, position, bytes) == ReadBytes(other, position, bytes);
    at = stop;
  }
  close(fd);
  return same;
}

bool SameFile(const std::string& one, const std::string& other) {
  return std::filesystem::file_size(one) == std::filesystem::file_size(other) && HasBytesOf(one, other) &&
         HasBytesOf(other, one);
}

TEST(WindowsProgram, DoesWhatTheLinuxProgramDoes) {
  const Sides sides;
  ASSERT_NO_FATAL_FAILURE(RunOnWindows(sides.Windows()));
  for (const Case& row : kCases) {
    const std::string name = sides.Windows() + "/" + std::to_string(&row - kCases);
    const RunResult run = RunOnLinux(sides.Linux(), row);
    EXPECT_EQ(Comparable(FromCodePage(FileText(name + ".out"))), Comparable(run.out)) << row.line;
    const std::string level = FileText(name + ".level");
    ASSERT_FALSE(level.empty()) << row.line;
    EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(level.back()))) << row.line << ": unused answers, " << level;
    EXPECT_EQ(std::min(std::stoul(level), 255UL), run.exit_code) << row.line;
    EXPECT_EQ(std::stoul(level) > 255, &row - kCases == kQuickTestBeyond255) << row.line;
  }
  const std::set<std::string> files = FilesIn(sides.Linux());
  ASSERT_GE(files.size(), 40U);
  ASSERT_EQ(FilesIn(sides.Windows()), files);
  for (const std::string& file : files) {
    EXPECT_TRUE(SameFile(sides.Windows() + "/" + file, sides.Linux() + "/" + file)) << file;
  }
}

// What Linux has no likes of: names with drive letters, and files beside the .exe.
TEST(WindowsProgram, KnowsDriveLettersAndItsOwnFolder) {
  const Sides sides;
  const std::string folder = sides.Windows();
  std::filesystem::create_directory(folder + "/elsewhere");
  const std::string name = WindowsPath(folder) + "\\A Folder\\a file.bin";
  const std::string start = "\"" + WindowsPath(folder) + "\\korventix.exe\" --drive 1=stick.img,size=128M --no-wait ";
  WriteBytes(folder + "/elsewhere/all.bat", 0,
             "@echo off\r\n>1.out " + start + "FILEINFO SURE FILE=\"" + name + "\" LENGTH=512\r\n" +  //
                 ">2.out " + start + "DRIVE=1 SURE SPEEDTEST\r\nexit /b %errorlevel%\r\n");
  ASSERT_EQ(RunUnderWine(folder + "/elsewhere", {"cmd", "/c", "all.bat"}, 100).exit_code, 0);
  EXPECT_NE(FileText(folder + "/elsewhere/1.out").find("00 07 0E 15"), std::string::npos);  // how the file begins
  EXPECT_NE(FileText(folder + "/elsewhere/2.out").find("written to " + WindowsPath(folder) + "\\USBSpeed.csv"),
            std::string::npos);
  const std::regex rows(
      "USB MODEL,SIZE .*\r\n(Generic Flash Disk,128,.*Windows.*,(READ|WRITE),[0-9.]+,[0-9.]+\r\n){2}");
  EXPECT_TRUE(std::regex_match(FileText(folder + "/USBSpeedDP.csv"), rows)) << FileText(folder + "/USBSpeedDP.csv");
  EXPECT_TRUE(std::filesystem::exists(folder + "/USBSpeed.csv"));
}

}  // namespace
