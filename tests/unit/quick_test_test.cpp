// QUICKTEST on drives in memory: the markers, what is written and read in which order, every failure, the verdict.
#include "drivetest/quick_test.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/console.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kBlock = 16384;  // sectors
constexpr std::uint64_t kSmallest = 32'130;

MachineDouble MachineWith(std::uint64_t sectors, const std::string& words, DriveTraits traits = {}) {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, sectors * kSector, std::move(traits)));
  return MachineDouble(std::move(drives), "DRIVE=1 QUICKTEST " + words);
}

// The console behind the line about the drive, without what ends every run.
std::string Printed(const MachineDouble& machine) {
  const std::size_t from = machine.console.find(" bytes)\r\n") + 9;
  return machine.console.substr(from, machine.console.size() - from - 4);
}

// Single sectors, as far as they are transferred behind the drive checks (which read the proof sector, then two
// sectors).
std::vector<std::uint64_t> Places(const MachineDouble& machine, CallKind kind) {
  std::vector<std::uint64_t> places;
  std::size_t checks = kind == CallKind::kRead ? 2 : 0;
  for (const Call& call : machine.CallsOf(kind)) {
    if (checks > 0) {
      --checks;
      continue;
    }
    EXPECT_EQ(call.sectors, 1U);
    places.push_back(call.lba);
  }
  return places;
}

TEST(Markers, HoldTheirAddressAndTheMark) {
  constexpr std::uint64_t kLba = 0x0123456789ABCDEF;
  std::vector<std::uint8_t> sector(kSector, 0x5A);
  std::vector<std::uint8_t> expected = sector;
  EncodeMarker(kLba, sector);
  std::copy_n("\xEF\xCD\xAB\x89\x67\x45\x23\x81", 8, expected.begin());
  EXPECT_EQ(sector, expected);
  EXPECT_EQ(DecodeMarker(sector), static_cast<std::int64_t>(kLba));
  sector[7] &= 0x7F;
  EXPECT_EQ(DecodeMarker(sector), -1);
}

// The whole of what a pass prints when no time goes by.
std::string Percentages(const std::vector<int>& steps, const std::string& words) {
  std::string text;
  for (const int percent : steps) {
    text += "\r\n" + std::to_string(percent) + words + "0 min 1 sec remaining";
  }
  return text;
}

const std::string kWiped = "\r\nFinished testing - now wiping MBR...\r\nMBR and partition table erased.";
const std::string kPassed =
    "\r\nDevice quick test was OK    *** PASSED ***\r\n\r\nNOTE: Drive filesystem has been erased - please partition "
    "and "
    "format it then test with H2TESTW for thorough test.";
const std::string kQuestion =
    "\r\nQUICKTEST and CLEAN Drive 1   Generic Flash Disk\r\n\r\nOK TO ERASE AND TEST ALL DATA ON THIS DRIVE? ";

TEST(QuickTest, PassesAGoodDrive) {
  DriveTraits traits;
  traits.removable = false;
  MachineDouble machine = MachineWith(3 * kBlock, "", traits);
  machine.SetDriveBytes(1, 0, std::vector<std::uint8_t>(3 * kBlock * kSector, 0xC5));
  EXPECT_EQ(RunMain(machine), kLevelOk);
  EXPECT_EQ(Printed(machine), "\r\nWriting marker blocks to drive 1" + Percentages({33, 66, 100}, "% complete  - ") +
                                  "\r\nReading back marker blocks..." + Percentages({33, 66, 100}, "% complete - ") +
                                  "\r\nTest took 0 seconds." + kWiped + kPassed +
                                  "\r\n\r\nINFO: This device is classed as a Fixed Disk by Windows.");
  EXPECT_EQ(machine.boxes, (std::vector<std::string>{kQuestion, kPassed}));
  EXPECT_EQ(machine.waited, 1500U);  // 500 before the unlock, the rest at the end of the run
  // Zeros in sector 0, a marker at each step with 0xFF behind it, and everything else as it was.
  for (std::uint64_t lba = 0; lba < 3 * kBlock; ++lba) {
    std::vector<std::uint8_t> expected(kSector, 0xC5);
    if (lba == 0) {
      expected.assign(kSector, 0);
    } else if (lba % kBlock == kBlock - 1) {
      expected.assign(kSector, 0xFF);
      EncodeMarker(lba, expected);
    }
    ASSERT_TRUE(machine.DriveBytes(1, lba, 1) == expected) << lba;
  }
}

TEST(QuickTest, WritesAndReadsEveryPlaceFromTheDriveItself) {
  const struct {
    std::string label;
    std::uint64_t sectors;
    std::vector<std::uint64_t> pass;
  } rows[] = {
      {"the smallest drive", kSmallest, {32'129, 15'745}},
      {"whole blocks", 3 * kBlock, {49'151, 32'767, 16'383}},
      {"one sector more", 3 * kBlock + 1, {49'152, 32'768, 16'384, 0}},
      {"one sector less", 3 * kBlock - 1, {49'150, 32'766, 16'382}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    MachineDouble machine = MachineWith(row.sectors, "SURE");
    EXPECT_EQ(RunMain(machine), kLevelOk);
    std::vector<std::uint64_t> written{row.pass[0]};
    written.insert(written.end(), row.pass.begin(), row.pass.end());
    written.insert(written.end(), {0, 0});  // the start marker, and the wipe
    EXPECT_EQ(Places(machine, CallKind::kWrite), written);
    std::vector<std::uint64_t> read = row.pass;
    read.insert(read.end(), {row.pass[0], 0});
    EXPECT_EQ(Places(machine, CallKind::kRead), read);
  }
}

TEST(QuickTest, HoldsTheVolumesForBothPasses) {
  std::vector<std::uint8_t> table(kSector);
  table[0x1BE + 4] = 0x0C;
  table[0x1BE + 9] = 0x08;   // starts at LBA 2048
  table[0x1BE + 13] = 0x10;  // 4096 sectors
  table[0x1FE] = 0x55;
  table[0x1FF] = 0xAA;
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, 3 * kBlock * kSector));
  ASSERT_EQ(drives[0].drive->Write(0, table), kErrorNone);
  MachineDouble machine(std::move(drives), "DRIVE=1 QUICKTEST SURE");
  EXPECT_EQ(RunMain(machine), kLevelOk);
  std::string order;  // of the calls behind the drive checks, repeated ones once
  for (const Call& call : machine.calls) {
    const char sign = "   rw LU T  "[static_cast<int>(call.kind)];
    if (sign != ' ' && !order.ends_with(sign)) {
      order += sign;
    }
  }
  EXPECT_EQ(order, "rLwrUw");
}

TEST(QuickTest, EndsOrGoesOnWhereATransferFails) {
  // Writes of a drive of three blocks: 49151, then 49151, 32767, 16383, then 0, 0. Reads behind the two of the checks:
  // 49151, 32767, 16383, 49151, 0.
  const std::string error = "\r\n*** ERROR *** ";
  const std::string reading = "reading from drive at Sector ";
  const struct {
    CallKind kind;
    int failing;
    std::string words;
    int answer;  // to the second question
    int level;
    std::string printed;  // in the output
    std::size_t writes;   // that were tried
  } rows[] = {
      {CallKind::kWrite, 1, "SURE", 0, kLevelOk, error + "writing to drive at Sector 49151\r\n33%", 6},
      {CallKind::kWrite, 3, "SURE", 0, kLevelWriteError, "33% complete", 3},
      {CallKind::kWrite, 3, "", kAnswerCancel, kLevelWriteError, "33% complete", 3},
      {CallKind::kWrite, 3, "", kAnswerOk, 7, "\r\nError at Block 32767 - found Block -1 instead!", 6},
      {CallKind::kWrite, 5, "SURE", 0, kLevelWriteError, error + "writing to drive at Sector 0 (Aborting!)", 5},
      {CallKind::kRead, 4, "SURE", 0, 7,
       error + reading + "32767\r\nError at Block 32767 - found Block 49151 instead!\r\n66%", 6},
      {CallKind::kRead, 6, "SURE", 0, 15, error + reading + "49151\r\nMemory tested", 6},
      {CallKind::kRead, 7, "SURE", 0, kLevelOperational,
       error + "reading from USB drive at Sector 0\r\nMemory tested in blocks of 16384 sectors.\r\n\r\nBAD MEMORY from "
               "sector 0 (0Mib) to sector 0 (0Mib)\r\nRecommended maximum usable partition size: -8Mib "
               "(Sector=-16384)\r\n",
       6},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.printed);
    MachineDouble machine = MachineWith(3 * kBlock, row.words);
    machine.answers = {kAnswerOk, row.answer};
    machine.FailCall(row.kind, row.failing, kErrorIoDevice);
    EXPECT_EQ(RunMain(machine), row.level);
    EXPECT_NE(Printed(machine).find(row.printed), std::string::npos) << Printed(machine);
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).size(), row.writes);
    const bool asked =
        machine.boxes.size() > 1 && machine.boxes[1] == "*** ERROR *** writing to drive at Sector 32767\r\nContinue?";
    EXPECT_EQ(asked, row.words.empty());
    EXPECT_EQ(machine.console.find("Continue?"), std::string::npos);
  }
}

TEST(QuickTest, RecommendsTheSizeBelowTheLowestBadBlock) {
  const struct {
    std::uint64_t sectors, memory;
    int level;
    std::string places, recommended;
  } rows[] = {
      {3 * kBlock, 20'000, 7, "sector 32767 (15.999Mib) to sector 49151 (23.999Mib)", "7Mib (Sector=16383)"},
      {3 * kBlock, 32'768, 15, "sector 49151 (23.999Mib) to sector 49151 (23.999Mib)", "15Mib (Sector=32767)"},
      {3 * kBlock, 16'383, 6, "sector 16383 (7.999Mib) to sector 49151 (23.999Mib)", "-1Mib (Sector=-1)"},
      {2 * kBlock + 2049, 18'432, 1, "sector 18432 (9Mib) to sector 34816 (17Mib)", "1Mib (Sector=2048)"},
      {2 * kBlock + 2048, 18'431, 6, "sector 18431 (8.999Mib) to sector 34815 (16.999Mib)", "0Mib (Sector=2047)"},
      {67'123'201, 67'123'200, 32'767, "sector 67123200 (32,775Mib) to sector 67123200 (32,775Mib)",
       "32767Mib (Sector=67106816)"},
      {67'125'249, 67'125'248, 6, "sector 67125248 (32,776Mib) to sector 67125248 (32,776Mib)",
       "32768Mib (Sector=67108864)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.places);
    DriveTraits traits;
    traits.absent_bytes = row.memory * kSector;
    MachineDouble machine = MachineWith(row.sectors, "", traits);
    EXPECT_EQ(RunMain(machine), row.level);
    const std::string line = "Recommended maximum usable partition size: " + row.recommended;
    const std::string verdict =
        "                         *** FAILED ***\r\n\r\nDEVICE HAS DUPLICATE OR BAD BLOCKS!\r\n\r\n" + line;
    EXPECT_TRUE(
        Printed(machine).ends_with("\r\nMemory tested in blocks of 16384 sectors.\r\n\r\nBAD MEMORY from " +
                                   row.places + "\r\nWARNING: no memory detected at one or more locations.\r\n" + line +
                                   "\r\n\r\nTest took 0 seconds." + kWiped + "\r\nQUICKTEST FAILED\r\n\r\n" + verdict))
        << Printed(machine);
    EXPECT_EQ(machine.boxes.back(), verdict);
  }
}

TEST(QuickTest, StopsReadingWhereTheTableIsFull) {
  const struct {
    std::uint64_t blocks;      // the first one has memory
    std::int64_t bad;          // the end marker is counted twice
    std::uint64_t last_place;  // that the pass read
  } rows[] = {{50'001, 50'001, kBlock - 1}, {50'004, 50'002, 4 * kBlock - 1}};
  for (const auto& row : rows) {
    DriveTraits traits;
    traits.absent_bytes = kBlock * kSector;
    MachineDouble machine = MachineWith(row.blocks * kBlock, "SURE", traits);
    RunMain(machine);
    EXPECT_EQ(BadCount, row.bad);
    const std::vector<std::uint64_t> read = Places(machine, CallKind::kRead);
    ASSERT_GE(read.size(), 3U);
    EXPECT_EQ(read[read.size() - 3], row.last_place);
    EXPECT_EQ(read.back(), 0U);
  }
}

TEST(QuickTest, TellsTheTimeLeft) {
  MachineDouble machine = MachineWith(3 * kBlock, "SURE");
  machine.transfer_time = 40'500;  // the end marker falls into the write pass
  EXPECT_EQ(RunMain(machine), kLevelOk);
  const std::string text = Printed(machine);
  // 81 s for a third leave 162 and one more, 121 for two thirds 60; in the read pass 40 or 41, and 81.
  EXPECT_NE(text.find("33% complete  - 2 min 43 sec  remaining\r\n66% complete  - 1 min 1 sec  remaining\r\n100% "
                      "complete  - 0 min 1 sec remaining\r\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\r\n66% complete - 0 min 41 sec  remaining\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nTest took 405 seconds.\r\n"), std::string::npos) << text;
}

TEST(QuickTest, TracesEachMarker) {
  MachineDouble machine = MachineWith(kSmallest, "SURE DEBUG");
  EXPECT_EQ(RunMain(machine), kLevelOk);
  const std::string time = "\r\n2024-01-02 03:04:05 ";
  const std::string end = " (End=32129)";
  EXPECT_NE(machine.console.find("\r\nWriting marker blocks to drive 1" + time + "32129" + end +
                                 "\r\nWrite sector to 32129" + time + "32129" + end + "\r\n50% complete  - "),
            std::string::npos)
      << machine.console;
}

}  // namespace
