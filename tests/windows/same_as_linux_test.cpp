// The cross-built .exe under Wine does what the program for Linux does: same output, same exit code, same bytes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/run.h"

namespace {

struct Case {
  std::string drive;
  std::string line;
};
const Case kCases[] = {
    {"size=8G", "DRIVE=1 SURE FAT32 WINPE VOLUME=My Stick"},
    {"size=1G,fixed,vendor=ACME", "DRIVE=1 SURE FAT32 BOOTMGR ZIP 2MBR"},
    {"size=2G", "DRIVE=1 SURE MSDOS 2PTN SIZE=900"},
    {"size=1G,serial=42", "LIST"},
    {"size=1G,badread=5000", "USBINFO DRIVE=1 SURE LENGTH=1KB"},
    {"size=1G", ""},
    {"size=1G,badwrite=0", "DRIVE=1 SURE"},
    {"size=1G,readonly", "DRIVE=1 SURE WRITEMBRONLY"},
    {"size=8G", "DRIVE=1 SURE"},
    {"size=1G", "DRIVE=2 SURE FAT32 WINPE"},
    {"size=1G", "DRIVE=1 VOLUME=longer than eleven"},
    {"size=1G,sector=513", "DRIVE=1"},
};

std::string HostOptions(const std::string& image, const Case& row) {
  return "--drive 1=" + image + "," + row.drive + " --no-wait --seed 1 " + row.line;
}

std::string FileText(const std::string& file) { return ReadBytes(file, 0, 1 << 20); }

TEST(WindowsProgram, DoesWhatTheLinuxProgramDoes) {
  // One batch file for all runs, since a start of Wine takes seconds: each leaves its output and its level in files.
  const ScratchFolder folder;
  std::string batch = "@echo off\r\n";
  for (const Case& row : kCases) {
    const std::string name = std::to_string(&row - kCases);
    batch += ">" + name + ".out Z:" KORVENTIX_EXE " " + HostOptions(folder.File(name + ".windows"), row) + "\r\n" +
             "echo %errorlevel% > " + name + ".level\r\n";
  }
  WriteBytes(folder.File("all.bat"), 0, batch + "exit /b 0\r\n");
  setenv("WINEDEBUG", "-all", 1);
  setenv("WINEPREFIX", KORVENTIX_WINE_PREFIX, 1);
  const std::string command = "cd '" + folder.File("") + "' && exec timeout 120 /usr/lib/wine/wine64 cmd /c all.bat";
  ASSERT_EQ(RunCommand({"sh", "-c", command}).exit_code, 0);

  for (const Case& row : kCases) {
    const std::string name = std::to_string(&row - kCases);
    const std::string image = folder.File(name + ".linux");
    const RunResult run = RunKorventix(Words(HostOptions(image, row)));
    EXPECT_EQ(FileText(folder.File(name + ".out")), run.out) << row.line;
    EXPECT_EQ(FileText(folder.File(name + ".level")), std::to_string(run.exit_code) + " \r\n") << row.line;
    const std::string windows_image = folder.File(name + ".windows");
    ASSERT_EQ(std::filesystem::exists(windows_image), std::filesystem::exists(image)) << row.line;
    if (std::filesystem::exists(image)) {
      constexpr std::size_t kWritten = 20 << 20;  // more than any of these runs reaches
      EXPECT_TRUE(ReadBytes(windows_image, 0, kWritten) == ReadBytes(image, 0, kWritten)) << row.line;
    }
  }
}

}  // namespace
