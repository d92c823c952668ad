// Writes of a preparation that fail: the level and the texts are those of that write, and nothing is written after it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/console.h"
#include "support/program.h"

namespace {

std::vector<AttachedDrive> OneDrive() {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, 300ULL << 20));
  return drives;
}

TEST(PreparationFaults, EndWithTheWriteThatFails) {
  const std::string error = "\r\nERROR: The request could not be performed because of an I/O device error.";
  const std::string mbr = "\r\n" + error + "\r\nWRITE ERROR (MBR WRITE PROTECTED?)!";
  const std::string clear =
      "\r\nDisk Write Error! - Check Disk Manager has assigned a drive letter for this drive - then CLEAN it - remove "
      "it and then re-insert it.";
  const std::string done = "\r\nOperation completed OK\r\n";
  const std::string fails = "\r\n*** ERROR *** writing ";
  const struct {
    std::string words;
    int failing;
    std::string ending;
  } cases[] = {
      {"", 1, mbr},
      {"", 4, done},  // only the last of the clearing writes counts
      {"", 5, "\r\nClearing 30 sectors at VBR from LBA 2048" + clear},
      {"ZIP 2MBR", 1, done},   // the copy in front of a partition at 32
      {"ZIP 2MBR", 5, clear},  // whose clearing is the third pass
      {"WRITEMBRONLY", 1, " bytes)\r\n"},
      // FAT32: 878 reserved sectors, FATs of 581.
      {"FAT32 WINPE", 7, fails + "partition boot sector"},
      {"FAT32 WINPE", 8, fails + "First FAT table - 581 blocks at LBA 2926\r\n" + error},
      {"FAT32 WINPE", 11, "\r\n*** ERROR *** clearing sectors at 3508 for 580 zero'd \r\n" + error},
      {"FAT32 WINPE", 13, fails + "First Dir entries at LBA 2041" + error},
      {"FAT32 WINPE", 21, "\r\nERROR: Write to disk failed at 2066\r\n"},
      // FAT16 behind 101 single sectors that nobody looks at, FAT12 behind 63.
      {"WINPE", 106, done},
      {"WINPE", 107, fails + "partition boot sector"},
      {"WINPE", 108, "\r\n" + error + fails + "First FAT table - 256 blocks at LBA 2049"},
      {"WINPE", 109, fails + "Second FAT table to LBA 2305"},
      {"WINPE", 110, fails + "root directory - 32 blocks at LBA 2561"},
      {"FREEDOS 2PTN", 69, done},  // reported, and the run goes on
      {"FREEDOS 2PTN", 70, "\r\n" + error + fails + "First FAT table - 1 block at LBA 580331"},
      {"FREEDOS 2PTN", 71, "\r\n" + error + fails + "2nd FAT table - 1 block at LBA 580332"},
      {"FREEDOS 2PTN", 72, "\r\n" + error + fails + "Volume Label - 1 block at LBA 580333"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.words + ", write " + std::to_string(row.failing));
    MachineDouble machine(OneDrive(), "DRIVE=1 SURE " + row.words);
    machine.FailCall(CallKind::kWrite, row.failing, kErrorIoDevice);
    const bool goes_on = row.ending == done;
    EXPECT_EQ(RunMain(machine), goes_on ? kLevelOk : kLevelWriteError);
    EXPECT_TRUE(machine.console.ends_with(row.ending + "\r\n\r\n")) << machine.console;
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).size() == static_cast<std::size_t>(row.failing), !goes_on);
  }
}

TEST(PreparationFaults, TheDriveIsGivenASecondTry) {
  // Opens: the volume scan has none; bus type, capacity, proof, then the run's own.
  for (const bool both_fail : {false, true}) {
    MachineDouble machine(OneDrive(), "DRIVE=1 SURE DEBUG");
    machine.FailCall(CallKind::kOpen, 5, kErrorAccessDenied, both_fail);
    EXPECT_EQ(RunMain(machine), both_fail ? kLevelOperational : kLevelOk);
    EXPECT_EQ(machine.console.find("\r\nFailed to open handle on disk 1 Err=50") != std::string::npos, both_fail);
  }
}

}  // namespace
