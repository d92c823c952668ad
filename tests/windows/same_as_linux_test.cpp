// The cross-built .exe under Wine does what the program for Linux does: same output, same exit code, same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <string>

#include "windows/wine.h"

namespace {

struct Case {
  const char* drive;  // the options of drive 1
  const char* line;   // as it is typed on Windows
};
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
  }
  std::string Windows() const { return folder_.File("the windows side"); }
  std::string Linux() const { return folder_.File("the linux side"); }

 private:
  ScratchFolder folder_;
};

std::string DriveOption(const Case& row, const std::string& folder_prefix) {
  return "1=" + folder_prefix + std::to_string(&row - kCases) + ".img," + row.drive;
}

// Leaves what each run prints in n.out, and its level in n.level. One batch file for all runs, since a start of Wine
// takes seconds.
void RunOnWindows(const std::string& folder) {
  std::string batch = "@echo off\r\n";
  for (const Case& row : kCases) {
    const std::string name = std::to_string(&row - kCases);
    batch += ">" + name + ".out korventix.exe --drive \"" + DriveOption(row, WindowsPath(folder) + "\\") +
             "\" --no-wait --seed 1 " + row.line + "\r\n";
    batch += "echo %errorlevel% >" + name + ".level\r\n";
  }
  WriteBytes(folder + "/all.bat", 0, batch + "exit /b 0\r\n");
  ASSERT_EQ(RunUnderWine(folder, {"cmd", "/c", "all.bat"}, 250).exit_code, 0);
}

RunResult RunOnLinux(const std::string& folder, const Case& row) {
  std::string line = row.line;
  std::replace(line.begin(), line.end(), '\\', '/');
  std::vector<std::string> command{
      "sh",     "-c", R"(cd "$0" && exec "$@")", folder, KORVENTIX_BINARY, "--drive", DriveOption(row, ""), "--no-wait",
      "--seed", "1"};
  const std::vector<std::string> words = Words(line);
  command.insert(command.end(), words.begin(), words.end());
  return RunCommand(command);
}

// Without what the two systems write in their own way, and without what depends on their speed.
std::string Comparable(const std::string& text) {
  static const std::regex times(R"(\d+[-/]\d+[-/]\d+ \d+:\d\d:\d\d( [AP]M)?|(\d+ min )?\d+ sec|took \d+ seconds)");
  std::string result = std::regex_replace(text, times, "TIME");
  std::replace(result.begin(), result.end(), '\\', '/');
  return result;
}

std::string FileText(const std::string& file) { return ReadBytes(file, 0, 1 << 20); }

// What the runs have written: files by their path in the folder, as far as any of these runs reaches.
std::map<std::string, std::string> FilesIn(const std::string& folder) {
  constexpr std::size_t kReach = 24 << 20;
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == ".img" || entry.path().extension() == ".bin") {
      files[entry.path().lexically_relative(folder)] = ReadBytes(entry.path(), 0, kReach);
    }
  }
  return files;
}

TEST(WindowsProgram, DoesWhatTheLinuxProgramDoes) {
  const Sides sides;
  ASSERT_NO_FATAL_FAILURE(RunOnWindows(sides.Windows()));
  for (const Case& row : kCases) {
    const std::string name = sides.Windows() + "/" + std::to_string(&row - kCases);
    const RunResult run = RunOnLinux(sides.Linux(), row);
    EXPECT_EQ(Comparable(FileText(name + ".out")), Comparable(run.out)) << row.line;
    const int level = std::stoi(FileText(name + ".level"));
    EXPECT_EQ(std::min(level, 255), run.exit_code) << row.line;
    EXPECT_EQ(level > 255, &row - kCases == kQuickTestBeyond255) << row.line;
  }
  const auto windows = FilesIn(sides.Windows());
  const auto linux = FilesIn(sides.Linux());
  ASSERT_GE(linux.size(), 20U);
  for (const auto& [name, bytes] : linux) {
    const auto found = windows.find(name);
    ASSERT_NE(found, windows.end()) << name;
    EXPECT_TRUE(found->second == bytes) << name;
  }
  EXPECT_EQ(windows.size(), linux.size());
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
