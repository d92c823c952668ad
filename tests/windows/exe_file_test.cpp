// The .exe as a file: what it needs of the system, what it says of itself. And the tests that are programs for Windows.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>

#include "windows/wine.h"

namespace {

const std::string kObjdump = "x86_64-w64-mingw32-objdump";

// Words of the lines of `text` that hold `mark`, the n-th from the back.
std::set<std::string> LastWords(const std::string& text, const std::string& mark) {
  std::set<std::string> words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(mark) != std::string::npos) {
      words.insert(line.substr(line.find_last_of(' ') + 1));
    }
  }
  return words;
}

// Every Windows from 7 on has these libraries.
TEST(ExeFile, NeedsTheSystemsOwnLibrariesOnly) {
  const RunResult dump = RunCommand({kObjdump, "-p", KORVENTIX_EXE});
  ASSERT_EQ(dump.exit_code, 0) << dump.err;
  EXPECT_EQ(LastWords(dump.out, "DLL Name:"),
            (std::set<std::string>{"KERNEL32.dll", "OLEAUT32.dll", "USER32.dll", "msvcrt.dll", "ole32.dll"}));
}

// The program's own calls are checked by the headers, which are told of Windows 7. These are calls that runtime
// libraries may bring along.
TEST(ExeFile, NeedsNoCallThatWindows7DoesNotHave) {
  const std::string dump = RunCommand({kObjdump, "-p", KORVENTIX_EXE}).out;
  ASSERT_NE(dump.find("GetVersionExA"), std::string::npos);
  for (const char* newer : {"GetSystemTimePreciseAsFileTime", "CreateFile2", "WaitOnAddress", "WakeByAddress",
                            "SetThreadDescription", "GetTempPath2", "QueryUnbiasedInterruptTimePrecise",
                            "PathCchCombine", "GetOverlappedResultEx", "SetDefaultDllDirectories"}) {
    EXPECT_EQ(dump.find(newer), std::string::npos) << newer;
  }
}

TEST(ExeFile, IsAConsoleProgramOfLessThan3Megabytes) {
  EXPECT_LT(std::filesystem::file_size(KORVENTIX_EXE), 3'000'000U);
  const std::string dump = RunCommand({kObjdump, "-p", KORVENTIX_EXE}).out;
  EXPECT_NE(dump.find("(Windows CUI)"), std::string::npos);
}

// Resources hold their texts in UTF-16, the manifest in UTF-8.
TEST(ExeFile, TellsItsVersionAndAsksForNoRights) {
  const std::string bytes = ReadBytes(KORVENTIX_EXE, 0, 3'000'000);
  EXPECT_NE(bytes.find("<requestedExecutionLevel level=\"asInvoker\""), std::string::npos);
  std::string text;
  for (const char character : std::string("ProductVersion\0"
                                          "1.",
                                          17)) {
    text += character;
    text += '\0';
  }
  EXPECT_NE(bytes.find(text), std::string::npos);
}

TEST(WindowsMachine, PassesItsOwnTests) {
  const ScratchFolder folder;
  const std::string tests = KORVENTIX_WINDOWS_BUILD "/tests/windows/machine/windows_machine_tests.exe";
  const RunResult run = RunUnderWine(folder.File(""), {WindowsPath(tests)}, 200);
  EXPECT_EQ(run.exit_code, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("[  PASSED  ]"), std::string::npos) << run.out << run.err;
}

}  // namespace
