// SPEEDTEST on a drive in memory and files in a scratch folder: what is measured, kept and left alone.
#include "drivetest/speed_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "console/console.h"
#include "support/program.h"
#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kRun = 130'000;  // sectors
constexpr std::uint64_t kDriveSectors = 204'800;
const Call kRunRead{CallKind::kRead, 0, kRun};
const Call kRunWrite{CallKind::kWrite, 0, kRun};

std::vector<AttachedDrive> OneDrive(std::uint64_t sectors) {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, sectors * kSector));
  return drives;
}

// A machine whose transfers take two seconds, with its files in `folder`.
class SpeedMachine : public MachineDouble {
 public:
  SpeedMachine(const ScratchFolder& folder, const std::string& words, std::uint64_t sectors = kDriveSectors)
      : MachineDouble(OneDrive(sectors), "DRIVE=1 SPEEDTEST " + words) {
    program_folder = folder.File("");
    program_folder.pop_back();
    transfer_time = 2000;
    objects.emplace();
    (*objects)["Select * from Win32_OperatingSystem"] = {{{"Caption", "System, one"}, {"Version", "1.2"}}};
    (*objects)["Select * from Win32_ComputerSystemProduct"] = {{{"Vendor", "Maker"}, {"Name", "PC, small"}}};
  }
};

std::string Contents(const ScratchFolder& folder, const std::string& name) {
  return std::filesystem::exists(folder.File(name)) ? ReadBytes(folder.File(name), 0, 1 << 20) : "(none)";
}

const std::string kHost = "System, one (1.2) SP0 ,Maker PC, small (   )";
const std::string kHeader = "USB MODEL,SIZE (MiB),Operating System,Platform,Seq. Rd/Wr,SPEED (MiB/s),SPEED (MB/s)\r\n";
const std::string kRows =
    "Generic Flash Disk,100," + kHost + ",READ,31.7,34\r\nGeneric Flash Disk,100," + kHost + ",WRITE,31.7,34\r\n";

TEST(SpeedTest, ReadsAndWritesTheRunAndKeepsTheSpeeds) {
  for (const std::string words : {"SURE", "SURE NOWRITE", ""}) {
    const ScratchFolder folder;
    SpeedMachine machine(folder, words);
    EXPECT_EQ(RunMain(machine), kLevelOk) << words;
    EXPECT_EQ(machine.CallsOf(CallKind::kRead).back(), kRunRead);
    // The files' rows are writes too, of less than a sector.
    const std::vector<Call> writes = machine.CallsOf(CallKind::kWrite);
    EXPECT_EQ(std::count(writes.begin(), writes.end(), kRunWrite), 1);
    EXPECT_EQ(std::count_if(writes.begin(), writes.end(), [](const Call& call) { return call.sectors != 0; }), 1);
    EXPECT_EQ(Contents(folder, "USBSpeed.csv"), kHeader + kRows);
    EXPECT_EQ(Contents(folder, "USBSpeedDP.csv"), kHeader + kRows);
    EXPECT_TRUE(machine.console.ends_with(
        "\r\n\r\nReading drive 1 - please wait ...\r\nRead 63.4765625 MiB in 2 seconds = 31.7MiB/s READ SPEED"
        "\r\nWriting to drive 1 - please wait ...\r\nWrote 63.4765625 MiB in 2 seconds = 31.7MiB/s WRITE SPEED\r\n"
        "\r\nNote: Speedtest results written to " +
        machine.program_folder +
        "\\USBSpeed.csv   in local csv format."
        "\r\n      Speedtest results written to " +
        machine.program_folder + "\\USBSpeedDP.csv as csv using commas and decimal points.\r\n\r\n\r\n"))
        << machine.console;
    EXPECT_EQ(machine.boxes, words.empty() ? std::vector<std::string>{"\r\nNON-DESTRUCTIVE SPEEDTEST on Drive 1"
                                                                      "\r\n\r\n   Generic Flash Disk\r\n\r\nWARNING: "
                                                                      "DATA MAY BE DESTROYED IF A WRITE ERROR OCCURS!"
                                                                      "\r\n"}
                                           : std::vector<std::string>{});
    EXPECT_EQ(machine.waited, 6000U);
  }
}

TEST(SpeedTest, TakesTheVolumesBeforeItReadsAndDismountsThemBeforeItWrites) {
  const ScratchFolder folder;
  SpeedMachine machine(folder, "SURE");
  std::vector<std::uint8_t> table(kSector);
  table[0x1BE + 4] = 0x0C;
  table[0x1BE + 9] = 0x08;   // starts at LBA 2048
  table[0x1BE + 13] = 0x10;  // 4096 sectors
  table[0x1FE] = 0x55;
  table[0x1FF] = 0xAA;
  machine.SetDriveBytes(1, 0, table);  // the re-read of the table brings the volume about
  EXPECT_EQ(RunMain(machine), kLevelOk);
  std::string order;
  for (const Call& call : machine.calls) {
    const char sign = "      LUDT  "[static_cast<int>(call.kind)];
    order += call == kRunRead ? "r" : call == kRunWrite ? "w" : std::string(sign == ' ' ? 0 : 1, sign);
  }
  // The second lock is that of the dismount, on a handle of its own; the first one holds to the end.
  EXPECT_EQ(order, "TLrLDUw");
}

TEST(SpeedTest, CutsSpeedsToOneDecimal) {
  const struct {
    std::uint32_t milliseconds;
    std::string local;  // MiB/s, then MB/s
    std::string decimal_point;
  } rows[] = {
      {5264, "12;12.9", "12,12.9"},  // 12.0586
      {5290, "11.9;12.8", "11.9,12.8"},
      {51, "1,244.6;1,336.4", "1244.6,1336.4"},
      {0, "63,476.5;68,157.4", "63476.5,68157.4"},  // as 1 ms
      {634'766, "0;0.1", "0,0.1"},                  // 0.09999992
      {634'765, "0.1;0.1", "0.1,0.1"},
  };
  for (const auto& row : rows) {
    const ScratchFolder folder;
    SpeedMachine machine(folder, "SURE");
    machine.decimal_sign = ',';
    machine.transfer_time = row.milliseconds;
    machine.clock = 0xFFFFFFFF;  // the ticks wrap within the first transfer
    EXPECT_EQ(RunMain(machine), kLevelOk);
    EXPECT_TRUE(Contents(folder, "USBSpeed.csv").ends_with(";" + row.local + "\r\n")) << row.milliseconds;
    EXPECT_TRUE(Contents(folder, "USBSpeedDP.csv").ends_with("," + row.decimal_point + "\r\n")) << row.milliseconds;
  }
}

TEST(SpeedTest, AppendsToEachFileAsItIs) {
  const struct {
    std::string before;  // "(none)": no such file, "(folder)": one that can't be opened
    std::string after;
  } rows[] = {
      {kHeader + kRows, kHeader + kRows + kRows},
      {"no line end", "no line end" + kRows},
      {"", kRows},
      {"(folder)", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before);
    const ScratchFolder folder;
    if (row.before == "(folder)") {
      std::filesystem::create_directory(folder.File("USBSpeed.csv"));
    } else {
      WriteBytes(folder.File("USBSpeed.csv"), 0, row.before);
    }
    SpeedMachine machine(folder, "SURE");
    EXPECT_EQ(RunMain(machine), kLevelOk);
    EXPECT_EQ(Contents(folder, "USBSpeed.csv"), row.after);
    EXPECT_EQ(Contents(folder, "USBSpeedDP.csv"), kHeader + kRows);
  }
}

TEST(SpeedTest, EndsWhereATransferFails) {
  const std::string read_row = kHeader + kRows.substr(0, kRows.find("\r\n") + 2);
  const struct {
    std::string label;
    std::uint64_t sectors;
    int answer, level;
    std::string ending, kept;
  } rows[] = {
      {"declined", kDriveSectors, kAnswerCancel, kLevelUserAbort, " bytes)\r\n", "(none)"},
      {"smaller than the run", kRun - 1, kAnswerOk, kLevelOperational,
       "please wait ...\r\n*** ERROR *** reading from drive at Sector 0", "(none)"},
      {"the run can't be written", kDriveSectors, kAnswerOk, kLevelWriteError,
       "please wait ...\r\n*** ERROR *** writing to drive at Sector 0\r\n\r\nPossibly Write Access denied - try "
       "Ejecting drive or unplug/replug",
       read_row},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const ScratchFolder folder;
    SpeedMachine machine(folder, "", row.sectors);
    machine.answers = {row.answer};
    machine.FailCall(CallKind::kWrite, row.level == kLevelWriteError ? 3 : 0, kErrorWriteProtected);  // behind two rows
    EXPECT_EQ(RunMain(machine), row.level);
    EXPECT_TRUE(machine.console.ends_with(row.ending + "\r\n\r\n")) << machine.console;
    EXPECT_EQ(Contents(folder, "USBSpeed.csv"), row.kept);
    EXPECT_EQ(Contents(folder, "USBSpeedDP.csv"), row.kept);
  }
}

}  // namespace
