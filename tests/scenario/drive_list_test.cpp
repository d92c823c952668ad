// LIST, FIND and GETDRV on drives of several kinds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/run.h"

namespace {

// Three USB drives and an internal one: 1 prepared as FAT32, 4 with a serial number and without a partition, 7 smaller
// than two cylinders, 2 not USB with two partitions.
class DriveList : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(RunOnDrive(folder_.File("1"), "size=8G", "DRIVE=1 SURE FAT32 WINPE").exit_code, 0);
    const std::string two = folder_.File("2");
    SetFileSize(two, 1 << 30);
    ASSERT_EQ(RunCommand({"sfdisk", "-q", two}, "2048,200000,c\n,,c\n").exit_code, 0);
  }

  RunResult Run(const std::string& line) {
    std::vector<std::string> arguments{"--no-wait"};
    for (const std::string& drive : std::vector<std::string>{
             "7=" + folder_.File("7") + ",size=12M", "2=" + folder_.File("2") + ",bus=ata,fixed,product=Internal",
             "4=" + folder_.File("4") +
                 ",size=1025M,fixed,vendor=A very l,product=ong model's name,serial=0123456789ABCDEF",
             "1=" + folder_.File("1")}) {
      arguments.insert(arguments.end(), {"--drive", drive});
    }
    for (const std::string& word : Words(line)) {
      arguments.push_back(word);
    }
    return RunKorventix(arguments);
  }

  ScratchFolder folder_;
};

const std::string kHeading = "\r\n\r\nKORVENTIX v1.0.0\r\n================\r\n";

TEST_F(DriveList, ShowsALineForEachDrive) {
  const std::string first = "DRIVE 1 -     7.9GiB Generic Flash Disk              Fw=100   Sno=                D:";
  const std::string internal = "DRIVE 2 -     0.9GiB Generic Internal                Fw=100   Sno=                ";
  const std::string last = "\r\n DRIVE 4 -     0.9GiB A very l ong model's name       Fw=100   Sno=0123456789ABCDE ";
  RunResult run = Run("LIST");
  EXPECT_EQ(run.out, "\r\nCOMMAND LINE: LIST" + kHeading + "\r\n*" + first + last + "\r\n\r\n\r\n\r\n");
  EXPECT_EQ(run.exit_code, 0);
  run = Run("LIST ALLDRIVES");
  EXPECT_NE(run.out.find("\r\n*" + first + "\r\n " + internal), std::string::npos) << run.out;
}

TEST_F(DriveList, FindsTheFirstDrive) {
  const RunResult run = Run("FIND");
  EXPECT_EQ(
      run.out,
      "\r\n\r\n\r\nSET DRIVE=1\r\nSET DRIVEDESC=Generic Flash Disk\r\nSET DRIVESIZE=8578967040\r\nSET DRIVELETTER=D:"
      "\r\nSET DRIVE1DESC=Generic Flash Disk\r\nSET DRIVE1SIZE=8578967040\r\nSET DRIVE1LETTER=D:"
      "\r\nSET DRIVE4DESC=A very l ong model's name\r\nSET DRIVE4SIZE=1061061120\r\nSET DRIVE4LETTER=\r\n\r\n");
  EXPECT_EQ(run.exit_code, 0);
}

TEST_F(DriveList, AnswersForADriveThatIsNamed) {
  const struct {
    std::string line, lines;
  } cases[] = {
      {"DRIVE=1", "1\r\nSET USBDRIVEDESC=Generic Flash Disk\r\nSET USBDRIVESIZE=8578967040\r\nSET USBDRIVELETTER=D:"},
      {"DRIVE=3", "3\r\nSET USBDRIVEDESC=\r\nSET USBDRIVESIZE=0\r\nSET USBDRIVELETTER="},
      {"DRIVE=27", "27\r\nSET USBDRIVELETTER="},
      {"DRIVE=-1", "-1\r\nSET USBDRIVELETTER="},
      {"ALLDRIVES DRIVE=2",
       "2\r\nSET USBDRIVEDESC=Generic Internal\r\nSET USBDRIVESIZE=1061061120\r\nSET USBDRIVELETTER=E:"},
  };
  for (const auto& row : cases) {
    const RunResult run = Run("GETDRV " + row.line);
    EXPECT_EQ(run.out, "\r\n\r\n\r\nSET USBDRIVE=" + row.lines + "\r\n\r\n") << row.line;
    EXPECT_EQ(run.exit_code, 0);
  }
}

TEST_F(DriveList, FindsNothingWhereThereIsNothing) {
  const std::string none = folder_.File("none");
  RunResult run = RunOnDrive(none, "size=1G,bus=ata", "FIND");
  EXPECT_EQ(run.out,
            "\r\n\r\n\r\nSET DRIVE=\r\nSET DRIVEDESC=\r\nSET DRIVESIZE=0\r\nSET DRIVELETTER=(NO USB DRIVES WITH MEDIA)"
            "\r\n\r\n");
  EXPECT_EQ(run.exit_code, 3);
  EXPECT_EQ(RunOnDrive(none, "bus=ata", "LIST").exit_code, 3);
  run = RunOnDrive(none, "bus=ata", "GETDRV DRIVE=1");
  EXPECT_EQ(run.out, "\r\n\r\n\r\n\r\n");
  EXPECT_EQ(run.exit_code, 0);
}

}  // namespace
