// Every write of a preparation fails in turn: the level and the texts are those of that write, and nothing is written
// after it, but where the run is meant to go on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/console.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kDriveBytes = 300ULL << 20;
const std::string kErrorText = "\r\nERROR: The request could not be performed because of an I/O device error.";

struct ExpectedWrite {
  std::uint64_t lba;
  std::uint64_t sectors;
  std::string failure;  // the last lines of the run that fails here; empty where the run goes on
};

std::string Drive(const std::string& line, MachineDouble& machine) {
  return "drive run of " + line + " printed: " + machine.console;
}

// Checks a good run's writes against the list, then fails each in turn.
void FailEachWrite(const std::string& line, const std::vector<ExpectedWrite>& writes) {
  for (std::size_t failing = 0; failing <= writes.size(); ++failing) {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes));
    MachineDouble machine(std::move(drives), line);
    if (failing > 0) {
      machine.FailCall(CallKind::kWrite, static_cast<int>(failing), kErrorIoDevice);
    }
    const std::int32_t level = RunMain(machine);
    const bool ends = failing > 0 && !writes[failing - 1].failure.empty();
    const std::string ending = ends ? writes[failing - 1].failure : "\r\nOperation completed OK\r\n";
    EXPECT_EQ(level, ends ? kLevelWriteError : kLevelOk) << line << " write " << failing;
    EXPECT_TRUE(machine.console.ends_with(ending + "\r\n\r\n")) << Drive(line, machine);

    std::vector<Call> expected;
    for (std::size_t i = 0; i < (ends ? failing : writes.size()); ++i) {
      expected.push_back({CallKind::kWrite, writes[i].lba, writes[i].sectors});
    }
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite), expected) << line << " write " << failing;
    // Around the MBR, after the clearing, at the end; a failed run spends a second more.
    const bool formatting = ends && failing > 5;
    EXPECT_EQ(machine.waited, formatting ? 5000U : 4000U);
  }
}

const std::string kMbrFailure = "\r\n" + kErrorText + "\r\nWRITE ERROR (MBR WRITE PROTECTED?)!";
const std::string kClearFailure =
    "\r\nClearing 30 sectors at VBR from LBA 2048\r\nDisk Write Error! - Check Disk Manager has assigned a drive "
    "letter "
    "for this drive - then CLEAN it - remove it and then re-insert it.";

TEST(PreparationFaults, Fat32) {
  // 300 MiB: a partition of 594,342 sectors, 878 of them reserved, FATs of 581.
  const std::string boot = "\r\n*** ERROR *** writing partition boot sector";
  const std::string fat = "\r\n*** ERROR *** writing First FAT table - 581 blocks at LBA ";
  const auto clear = [](const std::string& lba) {
    return "\r\n*** ERROR *** clearing sectors at " + lba + " for 580 zero'd \r\n" + kErrorText;
  };
  std::vector<ExpectedWrite> writes{
      {0, 1, kMbrFailure},
      {1, 33, ""},  // only the last of the clearing writes counts
      {33, 33, ""},
      {66, 33, ""},
      {2048, 30, kClearFailure},
      {2048, 3, boot},
      {2054, 3, boot},
      {2926, 1, fat + "2926\r\n" + kErrorText},
      {2927, 580, clear("2927")},
      {3507, 1, fat + "3507\r\n" + kErrorText},
      {3508, 580, clear("3508")},
  };
  for (std::uint64_t lba = 4088; lba < 4096; ++lba) {
    writes.push_back(
        {lba, 1, "\r\n*** ERROR *** writing First Dir entries at LBA " + std::to_string(lba - 2048) + kErrorText});
  }
  writes.push_back({2060, 1, "\r\nERROR: Write to disk failed at 2060\r\n"});
  writes.push_back({2066, 1, "\r\nERROR: Write to disk failed at 2066\r\n"});
  FailEachWrite("DRIVE=1 SURE FAT32 WINPE", writes);
}

TEST(PreparationFaults, Unformatted) {
  FailEachWrite("DRIVE=1 SURE",
                {{0, 1, kMbrFailure}, {1, 33, ""}, {33, 33, ""}, {66, 33, ""}, {2048, 30, kClearFailure}});
  // With the partition at 32 the third pass is the last write; the copy of the MBR in front of it doesn't count.
  const std::string third = kClearFailure.substr(kClearFailure.find("\r\nDisk"));
  FailEachWrite("DRIVE=1 SURE ZIP 2MBR",
                {{31, 1, ""}, {0, 1, kMbrFailure}, {1, 33, ""}, {33, 33, ""}, {66, 33, third}});
}

// One single-sector write after another, whose failures nobody looks at.
void AppendClearing(std::vector<ExpectedWrite>& writes, std::uint64_t first, std::uint64_t last) {
  for (std::uint64_t lba = first; lba <= last; ++lba) {
    writes.push_back({lba, 1, ""});
  }
}

// Behind the clearing of the FAT16 volume at LBA 2048.
void AppendFat16(std::vector<ExpectedWrite>& writes) {
  AppendClearing(writes, 2048, 2148);
  writes.push_back({2048, 1, "\r\n*** ERROR *** writing partition boot sector"});
  writes.push_back(
      {2049, 256, "\r\n" + kErrorText + "\r\n*** ERROR *** writing First FAT table - 256 blocks at LBA 2049"});
  writes.push_back({2305, 256, "\r\n*** ERROR *** writing Second FAT table to LBA 2305"});
  writes.push_back({2561, 32, "\r\n*** ERROR *** writing root directory - 32 blocks at LBA 2561"});
}

TEST(PreparationFaults, Fat16) {
  std::vector<ExpectedWrite> writes{
      {0, 1, kMbrFailure}, {1, 33, ""}, {33, 33, ""}, {66, 33, ""}, {2048, 30, kClearFailure}};
  AppendFat16(writes);
  FailEachWrite("DRIVE=1 SURE WINPE", writes);
}

TEST(PreparationFaults, SecondPartition) {
  std::vector<ExpectedWrite> writes{
      {0, 1, kMbrFailure}, {1, 33, ""}, {33, 33, ""}, {66, 33, ""}, {2048, 30, kClearFailure}};
  constexpr std::uint64_t kSecond = 580'325;  // 36 cylinders less a track, from LBA 2048 on
  const auto fails = [](const std::string& what) { return "\r\n" + kErrorText + "\r\n*** ERROR *** writing " + what; };
  AppendClearing(writes, kSecond, kSecond + 62);
  writes.push_back({kSecond, 1, ""});  // reported, and the run goes on
  writes.push_back({kSecond + 6, 1, fails("First FAT table - 1 block at LBA 580331")});
  writes.push_back({kSecond + 7, 1, fails("2nd FAT table - 1 block at LBA 580332")});
  writes.push_back({kSecond + 8, 1, fails("Volume Label - 1 block at LBA 580333")});
  AppendFat16(writes);
  FailEachWrite("DRIVE=1 SURE FREEDOS 2PTN", writes);
}

TEST(PreparationFaults, WriteMbrOnlyEndsWithoutAWord) {
  for (const bool fails : {false, true}) {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes));
    MachineDouble machine(std::move(drives), "DRIVE=1 SURE WRITEMBRONLY");
    if (fails) {
      machine.FailCall(CallKind::kWrite, 1, kErrorWriteProtected);
    }
    EXPECT_EQ(RunMain(machine), fails ? kLevelWriteError : kLevelOk);
    EXPECT_TRUE(machine.console.ends_with(" bytes)\r\n\r\n\r\n"));
  }
}

TEST(PreparationFaults, TheDriveIsGivenASecondTry) {
  // Opens: the volume scan has none; bus type, capacity, proof, then the run's own.
  for (const auto& [failed_opens, level] : std::vector<std::pair<int, int>>{{1, kLevelOk}, {2, kLevelOperational}}) {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes));
    MachineDouble machine(std::move(drives), "DRIVE=1 SURE DEBUG");
    machine.FailCall(CallKind::kOpen, 5, kErrorAccessDenied, failed_opens == 2);
    EXPECT_EQ(RunMain(machine), level);
    EXPECT_EQ(machine.console.find("\r\nFailed to open handle on disk 1 Err=50") != std::string::npos,
              failed_opens == 2);
  }
}

}  // namespace
