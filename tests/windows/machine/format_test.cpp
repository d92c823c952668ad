// The format service and other programs, call by call.
#include "cli/option_model.h"
#include "format/format_service.h"
#include "windows/machine/machine_fixture.h"

namespace {

using Format = RecordedMachine;

struct FormatRow {
  const char* label;
  UINT drive_type;
  const char* file_system;
  const char* call;  // empty where the service isn't asked
};
const FormatRow kFormats[] = {
    {"NTFS by default", DRIVE_REMOVABLE, "", "FormatEx(LE:, B, LNTFS, LMy Stick, -1, 0)"},
    {"exFAT", DRIVE_REMOVABLE, "EXFAT", "FormatEx(LE:, B, LEXFAT, LMy Stick, -1, 0)"},
    {"a fixed drive", DRIVE_FIXED, "EXFAT", "FormatEx(LE:, C, LEXFAT, LMy Stick, -1, 0)"},
    {"a CD", DRIVE_CDROM, "EXFAT", ""},
};

TEST_F(Format, TheServiceIsAskedByNameWithSevenArguments) {
  OptSure = true;
  for (const FormatRow& row : kFormats) {
    recorder.drive_type = row.drive_type;
    Format_NTFS("E:", "My Stick", row.file_system);
    Calls expected{"GetDriveTypeA(E:\\)"};
    if (*row.call != '\0') {
      expected.insert(expected.end(),
                      {"LoadLibraryA(C:\\system\\fmifs.dll)", "GetProcAddress(B0, FormatEx)", row.call});
    } else {
      expected.insert(expected.end(),
                      {"GetStdHandle(-11)", "WriteFile(7, \r\nUnsupported drive type: CD-ROM Drive, null)"});
    }
    EXPECT_EQ(TakeCalls(), expected) << row.label;
  }
}

TEST_F(Format, StatusesComeThroughTheCallback) {
  recorder.format_statuses = {0x0F, 0x0B};
  Format_NTFS("E:", "L", "EXFAT");
  EXPECT_TRUE(FormatOk);
  EXPECT_EQ(FormatStatus, 0x0FU);
  EXPECT_EQ(recorder.format_answers, (std::vector<ULONG>{1, 1}));
  recorder.format_statuses = {0x07, 0x0B};
  Format_NTFS("E:", "L", "EXFAT");
  EXPECT_FALSE(FormatOk);
  EXPECT_EQ(FormatStatus, 0x07U);
}

TEST_F(Format, WithoutTheServiceThereIsNoStatus) {
  for (const char* missing : {"LoadLibraryA", "GetProcAddress"}) {
    recorder.failing = {missing};
    Format_NTFS("E:", "L", "EXFAT");
    EXPECT_FALSE(FormatOk) << missing;
    EXPECT_EQ(FormatStatus, 0U) << missing;
  }
}

// STARTUPINFO begins with its length, 68h; its flags, 1, and the way to show the window, 5, lie at 3Ch and 40h.
TEST_F(Format, AProgramIsStartedPolledAndClosed) {
  recorder.exit_codes = {259, 259, 4};
  EXPECT_EQ(RunAndWait("FORMAT.COM /y E: /q"), 4);
  const std::string startup = "68" + std::string(118, '0') +
                              "01000000"
                              "05";
  EXPECT_EQ(TakeCalls(),
            (Calls{"CreateProcessA(null, FORMAT.COM /y E: /q, null, null, 1, 20, null, null, <" + startup + ">)",
                   "GetExitCodeProcess(A0)", "Sleep(37)", "GetExitCodeProcess(A0)", "Sleep(37)",
                   "GetExitCodeProcess(A0)", "Sleep(37)", "CloseHandle(A0)", "CloseHandle(A4)"}));
  EXPECT_EQ(RunAndWait("x"), -2);
  recorder.failing = {"CreateProcessA"};
  EXPECT_EQ(RunAndWait("x"), -1);
}

}  // namespace
