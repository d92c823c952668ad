// What a run asks of the system beside drives, call by call: console, boxes, the end, files, and texts.
#include "cli/option_model.h"
#include "console/console.h"
#include "disk/files.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "host/windows_version.h"
#include "windows/machine/machine_fixture.h"

namespace {

using WholeRun = RecordedMachine;

TEST_F(WholeRun, TextsAreWrittenToStandardOutputFetchedAnew) {
  EXPECT_TRUE(ConsoleWrite(""));
  EXPECT_TRUE(ConsoleWrite("caf\xE9"));
  EXPECT_EQ(StdOutHandle, 7);
  recorder.failing = {"WriteFile"};
  EXPECT_FALSE(ConsoleWrite("x"));
  EXPECT_EQ(TakeCalls(), (Calls{"GetStdHandle(-11)", "WriteFile(7, , null)", "GetStdHandle(-11)",
                                "WriteFile(7, caf\xE9, null)", "GetStdHandle(-11)", "WriteFile(7, x, null)"}));
}

// Levels above what other systems carry, and the closing of what is open.
TEST_F(WholeRun, EndsInTwoPassesOverTheDialogsAndThreeCloses) {
  ASSERT_TRUE(Open_Physical_Disk_hDrive(1));
  FileHandle = 0x70;
  recorder.open_dialog = "AutoPlay";
  TakeCalls();
  EXPECT_THROW(MyExitProcess(7647), RunEnded);
  const Calls pass{"FindWindowA(#32770, Microsoft Windows)", "FindWindowA(#32770, Disk is not formatted)",
                   "FindWindowA(#32770, AutoPlay)", "PostMessageA(9, 10, 0, 0)"};
  Calls expected = pass;
  expected.push_back("Sleep(3E8)");
  expected.insert(expected.end(), pass.begin(), pass.end());
  for (const char* call : {"Sleep(3E8)", "GetStdHandle(-11)", "WriteFile(7, \r\n\r\n, null)", "CloseHandle(7)",
                           "CloseHandle(70)", "CloseHandle(10)", "ExitProcess(1DDF)"}) {
    expected.emplace_back(call);
  }
  EXPECT_EQ(TakeCalls(), expected);
}

TEST_F(WholeRun, EndsWithoutOutputWhereThereIsNoConsole) {
  NoConsole = true;
  EXPECT_THROW(MyExitProcess(0), RunEnded);
  const Calls calls = TakeCalls();
  EXPECT_EQ(Calls(calls.end() - 4, calls.end()),
            (Calls{"CloseHandle(null)", "CloseHandle(null)", "CloseHandle(null)", "ExitProcess(0)"}));
}

TEST_F(WholeRun, BoxesAreTheSystemsAndSureShowsNone) {
  recorder.box_answer = IDCANCEL;
  EXPECT_FALSE(Confirmed("Go on?", kBoxExclamation));
  EXPECT_EQ(TakeCalls(), Calls{"MessageBoxA(null, Go on?, KORVENTIX, 31)"});
  recorder.box_answer = IDOK;
  EXPECT_TRUE(Confirmed("Go on?"));
  EXPECT_EQ(TakeCalls(), Calls{"MessageBoxA(null, Go on?, KORVENTIX, 1)"});
  ReportBox("Lost", kBoxStop, "Title");
  EXPECT_EQ(TakeCalls(),
            (Calls{"GetStdHandle(-11)", "WriteFile(7, \r\nLost, null)", "MessageBoxA(null, Lost, Title, 10)"}));
  OptSure = true;
  EXPECT_TRUE(Confirmed("Go on?"));
  EXPECT_EQ(TakeCalls(), Calls{});
}

TEST_F(WholeRun, AsksVersionErrorModeAndTicks) {
  EXPECT_EQ(WindowsVersionText(), "Windows 7/Server 2008 R2");
  EXPECT_EQ(TakeCalls(), Calls{"GetVersionExA(94)"});
  recorder.failing = {"GetVersionExA"};
  EXPECT_EQ(WindowsVersionIndex(), 0);
  TakeCalls();
  machine.SuppressErrorBoxes();
  EXPECT_EQ(TakeCalls(), Calls{"SetErrorMode(1)"});
  EXPECT_EQ(machine.TickCount(), 0xFFFFFFF0U);
}

TEST_F(WholeRun, ErrorsHaveTheSystemsTexts) {
  EXPECT_EQ(SystemErrorText(5), "\r\nERROR: Text.");
  EXPECT_EQ(TakeCalls(), Calls{"FormatMessageA(1200, null, 5, 0, 100)"});
  recorder.failing = {"FormatMessageA"};
  EXPECT_EQ(SystemErrorText(99999), "");
}

TEST_F(WholeRun, AFilesLengthIsExactOver64Bits) {
  recorder.devices["C:\\x.bin"] = 0;
  const std::string name = "C:\\x.bin";
  recorder.length = 0x5FFFFFFFF;  // the low half is what a failed query gives too
  EXPECT_EQ(FileLength(name), 0x5FFFFFFFFU);
  EXPECT_EQ(TakeCalls(), (Calls{"FindFirstFileA(C:\\x.bin) = 10", "FindClose(10)",
                                "CreateFileA(C:\\x.bin, 80, 1, null, 3, 0, null) = 20", "GetFileType(20)",
                                "GetFileInformationByHandle(20)", "GetFileSize(20)", "CloseHandle(20)"}));
  recorder.failing = {"GetFileSize"};
  EXPECT_EQ(FileLength(name), 0U);
  TakeCalls();
  EXPECT_EQ(FileLength("C:\\y.bin"), 0U);
  EXPECT_EQ(TakeCalls(), Calls{"FindFirstFileA(C:\\y.bin)"});
}

// A drive by its device's name would be written to past all checks.
TEST_F(WholeRun, ADeviceIsNoFile) {
  const OpenMode write{kAccessWrite, kShareWrite, kOpenAlways, kFlagNormal};
  recorder.failing = {"GetFileInformationByHandle"};
  EXPECT_EQ(machine.OpenFile("\\\\.\\PhysicalDrive1", write), kInvalidHandle);
  EXPECT_EQ(machine.LastError(), kErrorAccessDenied);
  recorder.failing.clear();
  recorder.file_type = FILE_TYPE_CHAR;
  EXPECT_EQ(machine.OpenFile("\\\\.\\PhysicalDrive1", write), kInvalidHandle);
  EXPECT_EQ(TakeCalls(), (Calls{"CreateFileA(\\\\.\\PhysicalDrive1, 40000000, 2, null, 4, 80, null) = 10",
                                "GetFileType(10)", "GetFileInformationByHandle(10)", "CloseHandle(10)",
                                "CreateFileA(\\\\.\\PhysicalDrive1, 40000000, 2, null, 4, 80, null) = 20",
                                "GetFileType(20)", "CloseHandle(20)"}));
}

}  // namespace
