// Whole runs of the program on recorded calls: what comes before what, and what boxes decide.
#include "console/console.h"
#include "support/program.h"
#include "windows/machine/machine_fixture.h"

namespace {

// A USB stick of 4 GB with the number 1.
class Program : public RecordedMachine {
 protected:
  Program() {
    recorder.length = 4'000'000'000;
    recorder.volumes = {"\\\\?\\Volume{1}\\"};
    recorder.devices["\\\\?\\Volume{1}"] = 1;
  }

  // The run's level, and its calls.
  std::int32_t Run(const std::string& line) {
    WindowsMachine own(HostSettings{line, /*seed*/ 1}, RecordingCalls());
    return RunMain(own);
  }

  // The calls whose text has one of the marks in it, by those marks; a mark that repeats itself stands once.
  static Calls Order(const Calls& marks) {
    Calls order;
    for (const std::string& call : TakeCalls()) {
      for (const std::string& mark : marks) {
        if (call.find(mark) != std::string::npos && (order.empty() || order.back() != mark)) {
          order.push_back(mark);
        }
      }
    }
    return order;
  }
};

TEST_F(Program, PreparesADriveInOrder) {
  EXPECT_EQ(Run("DRIVE=1 SURE FAT32 WINPE"), kLevelOk);
  EXPECT_EQ(Order({"FindFirstVolumeA", "2D1400", "4D004", "ReadFile", "90018", "LockFile", "90020", "9001C", "70140",
                   "ExitProcess"}),
            (Calls{
                "FindFirstVolumeA",  // letters
                "2D1400",
                "4D004",
                "ReadFile",  // identification
                "FindFirstVolumeA",
                "90018",     // letters again, volumes locked
                "LockFile",  // table, wiping
                "FindFirstVolumeA",
                "LockFile",  // letters, the volume's sectors
                "90020",
                "9001C",
                "90020",
                "9001C",
                "70140",
                "ExitProcess",
            }));
}

TEST_F(Program, ACancelledBoxWritesNothing) {
  recorder.box_answer = IDCANCEL;
  EXPECT_EQ(Run("DRIVE=1 FAT32 WINPE"), kLevelUserAbort);
  const Calls calls = TakeCalls();
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const std::string& call) { return call.starts_with("MessageBoxA("); }),
            1);
  EXPECT_EQ(
      std::count_if(calls.begin(), calls.end(), [](const std::string& call) { return call.starts_with("LockFile("); }),
      0);
}

TEST_F(Program, AnOkIsAskedForOnceAndTheDriveIsWritten) {
  EXPECT_EQ(Run("DRIVE=1 FAT32 WINPE"), kLevelOk);
  EXPECT_EQ(Order({"MessageBoxA(null, \r\nERASE DRIVE 1  - ", "LockFile", "ExitProcess(0)"}),
            (Calls{"MessageBoxA(null, \r\nERASE DRIVE 1  - ", "LockFile", "ExitProcess(0)"}));
}

TEST_F(Program, WithoutTheRightsItEndsAtTheFailedOpen) {
  recorder.devices.clear();
  recorder.error = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Run("DRIVE=1 SURE ALLDRIVES"), kLevelOperational);
  EXPECT_EQ(Order({"Run as Administrator", "LockFile", "ExitProcess(6)"}),
            (Calls{"Run as Administrator", "ExitProcess(6)"}));
}

// NTFS: the drive is given up before the service runs, and the volume is locked while its boot code is written.
TEST_F(Program, TheServiceFormatsAFreeDrive) {
  recorder.format_statuses = {0x0B};
  EXPECT_EQ(Run("DRIVE=1 SURE NTFS BOOTMGR"), kLevelBootRecord);  // what is read back are zeros
  EXPECT_EQ(Order({"90018", "9001C", "70140", "FormatEx(", "ReadFile"}),
            (Calls{"ReadFile", "90018", "9001C", "70140", "FormatEx(", "ReadFile"}));
}

}  // namespace
