// The .exe as a file: what it needs of the system, what it says of itself. And the tests that are programs for Windows.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>

#include "windows/wine.h"

namespace {

// The programs of 64 and of 32 bits.
const std::string kPrograms[] = {KORVENTIX_EXE, KORVENTIX_EXE32};

// The headers and imports of a program.
std::string HeadersOf(const std::string& program) {
  const RunResult dump = RunCommand({"x86_64-w64-mingw32-objdump", "-p", program});
  EXPECT_EQ(dump.exit_code, 0) << dump.err;
  return dump.out;
}

// The last word of each line of `text` that holds `mark`.
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
  for (const std::string& program : kPrograms) {
    EXPECT_EQ(LastWords(HeadersOf(program), "DLL Name:"),
              (std::set<std::string>{"KERNEL32.dll", "OLEAUT32.dll", "USER32.dll", "msvcrt.dll", "ole32.dll"}))
        << program;
  }
}

// The headers let the program's own code have nothing newer than Windows 7; these are calls that runtime libraries may
// bring along.
TEST(ExeFile, NeedsNoCallThatWindows7DoesNotHave) {
  for (const std::string& program : kPrograms) {
    const std::string headers = HeadersOf(program);
    EXPECT_NE(headers.find("GetVersionExA"), std::string::npos) << program;
    for (const char* newer :
         {"GetSystemTimePreciseAsFileTime", "CreateFile2", "WaitOnAddress", "WakeByAddress", "SetThreadDescription",
          "GetTempPath2", "UnbiasedInterruptTimePrecise", "PathCch", "GetOverlappedResultEx"}) {
      EXPECT_EQ(headers.find(newer), std::string::npos) << program << ": " << newer;
    }
  }
}

TEST(ExeFile, IsAConsoleProgramOfLessThan3Megabytes) {
  for (const std::string& program : kPrograms) {
    EXPECT_LT(std::filesystem::file_size(program), 3'000'000U) << program;
    EXPECT_NE(HeadersOf(program).find("(Windows CUI)"), std::string::npos) << program;
  }
}

// The text in UTF-16, as resources have it.
std::string Wide(const std::string& text) {
  std::string wide;
  for (const char character : text) {
    wide += {character, '\0'};
  }
  return wide;
}

TEST(ExeFile, TellsItsVersionAndAsksForNoRights) {
  for (const std::string& program : kPrograms) {
    const std::string bytes = ReadBytes(program, 0, 3'000'000);
    EXPECT_NE(bytes.find("<requestedExecutionLevel level=\"asInvoker\""), std::string::npos) << program;
    EXPECT_NE(bytes.find(Wide("ProductVersion") + std::string(2, '\0') + Wide("1.")), std::string::npos) << program;
  }
}

TEST(WindowsMachine, PassesItsOwnTests) {
  const ScratchFolder folder;
  const std::string tests = KORVENTIX_WINDOWS_BUILD "/tests/windows/machine/windows_machine_tests.exe";
  const RunResult run = RunUnderWine(folder.File(""), {WindowsPath(tests)}, 200);
  EXPECT_EQ(run.exit_code, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("[  PASSED  ]"), std::string::npos) << run.out << run.err;
}

}  // namespace
