// The commands that rewrite a drive without preparing it: FIRSTPART, CLEAN and ERASE.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/console.h"
#include "platform/byte_order.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kDriveSectors = 34'001;
constexpr std::size_t kTable = 0x1BE;
constexpr std::size_t kEntryBytes = 16;

// An entry by the first LBA; its type is the number of the slot that it starts in.
using Starts = std::vector<std::uint32_t>;

std::vector<std::uint8_t> SectorWith(const Starts& starts) {
  std::vector<std::uint8_t> sector(kSector, 0xC5);
  for (std::size_t i = 0; i < starts.size(); ++i) {
    std::uint8_t* entry = &sector[kTable + i * kEntryBytes];
    std::fill_n(entry, kEntryBytes, static_cast<std::uint8_t>(starts[i] == 0 ? 0 : 0xE0 + i + 1));
    entry[0] = i == 0 ? 0x80 : 0;
    entry[4] = static_cast<std::uint8_t>(starts[i] == 0 ? 0 : i + 1);
    Store32(entry + 8, starts[i]);
  }
  sector[0x1FE] = 0x55;
  sector[0x1FF] = 0xAA;
  return sector;
}

std::vector<AttachedDrive> OneDrive() {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, kDriveSectors * kSector));
  return drives;
}

class MachineWith : public MachineDouble {
 public:
  MachineWith(const Starts& starts, const std::string& line) : MachineDouble(OneDrive(), line) {
    SetDriveBytes(1, 0, SectorWith(starts));
  }
};

// The console behind the line about the drive, without what ends every run.
std::string Printed(const MachineDouble& machine) {
  const std::size_t from = machine.console.find(" bytes)\r\n") + 9;
  return machine.console.substr(from, machine.console.size() - from - 4);
}

const std::string kRemount = "\r\nRemounting drive 1";

TEST(Reorder, MovesWholeEntries) {
  const struct {
    std::string word;
    Starts starts;
    std::vector<std::size_t> slots;  // where the new entries stood, from 1; 0 for an empty one
  } rows[] = {
      {"FIRSTPART=4", {100, 50, 70, 60}, {4, 2, 3, 1}}, {"FIRSTPART=3", {100, 0, 0, 0}, {3, 2, 1, 4}},
      {"FIRSTPART", {100, 50, 70, 60}, {2, 4, 3, 1}},   {"FIRSTPART", {0, 90, 0, 0xFFFFFFFF}, {2, 4, 0, 0}},
      {"FIRSTPART", {80, 90, 80, 80}, {1, 3, 4, 2}},
  };
  for (const auto& row : rows) {
    MachineWith machine(row.starts, "DRIVE=1 SURE " + row.word);
    const std::vector<std::uint8_t> before = SectorWith(row.starts);
    std::vector<std::uint8_t> expected = before;
    std::string printed;
    for (std::size_t i = 0; i < row.slots.size(); ++i) {
      const auto to = expected.begin() + static_cast<std::ptrdiff_t>(kTable + i * kEntryBytes);
      if (row.slots[i] == 0) {
        std::fill_n(to, kEntryBytes, std::uint8_t{0});
      } else {
        std::copy_n(&before[kTable + (row.slots[i] - 1) * kEntryBytes], kEntryBytes, to);
        printed += "Moving partition table entry no. " + std::to_string(row.slots[i]) + " to position " +
                   std::to_string(i + 1);
      }
    }
    if (row.word == "FIRSTPART") {
      printed += kRemount + "OK - Partition table order on Drive 1 now reset.!";
    } else {
      const std::string number = row.word.substr(row.word.size() - 1);
      printed = row.starts[1] == 0 ? "Warning: Partition table " + number + " has no partition!" : "";
      printed += kRemount + "\r\nOK - Partition " + number + " is now the first entry in the partititon table.";
    }
    EXPECT_EQ(RunMain(machine), kLevelOk) << row.word;
    EXPECT_EQ(machine.DriveBytes(1, 0, 1), expected) << Printed(machine);
    EXPECT_EQ(Printed(machine), printed);
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite), (std::vector<Call>{{CallKind::kWrite, 0, 1}}));
  }
}

TEST(Wipe, EndsAsTheUserAndTheDriveSay) {
  const std::string error = "\r\nERROR: The request could not be performed because of an I/O device error.";
  const std::string info = "\r\n\r\nINFO: This device is classed as a Removable Disk by Windows.";
  const struct {
    std::string words;
    int answer;
    int failing_write;  // 0: none
    int level;
    std::string box;  // the text of the first one
    std::string printed;
  } rows[] = {
      {"FIRSTPART=2", kAnswerCancel, 0, kLevelUserAbort,
       "\r\nDrive 1   Generic Flash Disk\r\n\r\nOK TO RE-ORDER PARTITION TABLE? ", ""},
      {"FIRSTPART=2 SURE", 0, 1, kLevelWriteError, "", kRemount + "\r\n*** ERROR *** writing to drive at LBA 0"},
      {"CLEAN", kAnswerCancel, 0, kLevelOperational,
       "\r\nCLEAN Drive 1   Generic Flash Disk\r\n\r\nOK TO ERASE ALL DATA ON THIS DRIVE? ", ""},
      {"CLEAN NOWRITE", 0, 0, kLevelUserAbort, "", "\r\nSector not written to disk by request!"},
      {"CLEAN SURE", 0, 1, kLevelWriteError, "", "\r\n" + error + "\r\nWRITE ERROR TO MBR ON DRIVE 1!"},
      {"CLEAN ERASE SURE", 0, 0, kLevelOk, "", "\r\nMBR and partition table erased." + info},
      {"ERASE", kAnswerCancel, 0, kLevelUserAbort,
       "\r\nERASE Drive 1 for write faster performance (may take several hours!)  \r\n\r\nGeneric Flash "
       "Disk\r\n\r\nOK TO ERASE ALL DATA ON THIS DRIVE? ",
       ""},
      {"ERASE SURE", 0, 2, kLevelWriteError, "",
       "Writing 0FFh bytes to drive 1\r\n*** ERROR *** writing to drive at Sector 600"},
  };
  for (const auto& row : rows) {
    MachineWith machine({100, 50, 0, 0}, "DRIVE=1 " + row.words);
    machine.answers = {row.answer};
    machine.FailCall(CallKind::kWrite, row.failing_write, kErrorIoDevice);
    EXPECT_EQ(RunMain(machine), row.level) << row.words;
    EXPECT_EQ(machine.boxes, row.box.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.box});
    EXPECT_EQ(Printed(machine), row.printed) << row.words;
    const bool cleaned = row.level == kLevelOk;
    if (row.words != "ERASE SURE") {
      EXPECT_EQ(machine.DriveBytes(1, 0, 1),
                cleaned ? std::vector<std::uint8_t>(kSector, 0) : SectorWith({100, 50, 0, 0}))
          << row.words;
    }
  }
}

TEST(Reorder, WithNoWriteStopsInThePreparation) {
  MachineWith machine({100, 50, 0, 0}, "DRIVE=1 SURE FIRSTPART NOWRITE");
  EXPECT_EQ(RunMain(machine), kLevelUserAbort);
  EXPECT_TRUE(machine.CallsOf(CallKind::kWrite).empty());
}

TEST(Erase, OverwritesEverySectorAndClearsTheFirst) {
  MachineWith machine({100, 50, 0, 0}, "DRIVE=1 SURE ERASE");
  EXPECT_EQ(RunMain(machine), kLevelOk);
  std::vector<std::uint8_t> expected(kDriveSectors * kSector, 0xFF);
  std::fill_n(expected.begin(), kSector, std::uint8_t{0});
  EXPECT_TRUE(machine.DriveBytes(1, 0, kDriveSectors) == expected);
  std::vector<Call> writes;
  for (std::uint64_t lba = 0; lba < kDriveSectors; lba += 600) {
    writes.push_back({CallKind::kWrite, lba, std::min<std::uint64_t>(600, kDriveSectors - lba)});
  }
  writes.push_back({CallKind::kWrite, 0, 1});
  EXPECT_EQ(machine.CallsOf(CallKind::kWrite), writes);
  EXPECT_TRUE(Printed(machine).starts_with(
      "Writing 0FFh bytes to drive 15% complete, 900KiB written to drive - 0 sec remaining\r\n"));
  EXPECT_TRUE(Printed(machine).ends_with(
      "\r\n100% complete, 17000KiB written to drive - 0 sec remaining\r\n\r\nFinished\r\nMBR "
      "and partition table now erased."));
  EXPECT_EQ(machine.waited, 4500U);

  MachineWith careful({100, 50, 0, 0}, "DRIVE=1 SURE ERASE NOWRITE");
  EXPECT_EQ(RunMain(careful), kLevelOk);
  EXPECT_TRUE(careful.CallsOf(CallKind::kWrite).empty());
  EXPECT_EQ(Printed(careful), Printed(machine));
}

}  // namespace
