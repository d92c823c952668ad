#include "format/format_service.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "cli/option_model.h"
#include "console/console.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "format/images/boot_images.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kDriveBytes = 64ULL << 20;
constexpr std::uint32_t kStart = 2048;
constexpr int kReturned = -1;  // in place of a level: the routine came back

std::vector<AttachedDrive> OneDrive(bool removable = true) {
  DriveTraits traits;
  traits.removable = removable;
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, kDriveBytes, traits));
  return drives;
}

// A drive whose new table has not been looked at yet: its volume gets a letter when the drive is mounted again.
class FreshDrive : public MachineDouble {
 public:
  explicit FreshDrive(bool removable = true) : MachineDouble(OneDrive(removable)) {
    std::vector<std::uint8_t> record(512);
    record[446 + 4] = 0x0E;
    Store32(&record[446 + 8], kStart);
    Store32(&record[446 + 12], 100'000);
    record[510] = 0x55;
    record[511] = 0xAA;
    SetDriveBytes(1, 0, record);
    ResetProgram(*this);
    DriveNumber = 1;
    StartLba = kStart;
    DriveMedia = removable ? "Removable Media" : "FIXED MEDIA";
  }

  bool Control(Handle handle, ControlCode code) override {
    const bool refused = code == ControlCode::kUpdateProperties && refused_remounts-- > 0;
    return !refused && MachineDouble::Control(handle, code);
  }

  int refused_remounts = 0;
};

template <typename Routine>
int LevelOf(Routine routine) {
  try {
    routine();
    return kReturned;
  } catch (const RunEnded& end) {
    return end.level;
  }
}

int Prepare(ServiceFormat kind, const std::string& label = "LABEL") {
  return LevelOf([&] { EXPECT_EQ(PrepareFormat(label, kind), "D:"); });
}

TEST(PrepareFormat, TranslatesTheLastStatus) {
  const std::string locked =
      "Error: Volume is locked for access or not accessible. Please quit any Explorer window or application accessing "
      "D:.";
  const struct {
    std::vector<std::uint32_t> statuses;
    std::string error;  // empty where the format is taken for good
    std::uint32_t last;
  } cases[] = {
      {{0x0F, 0x0B}, "", 0x0F},
      {{}, "Unknown format error 0!", 0},
      {{0x01}, "Error: FS completed initialisation OK.", 1},
      {{0x06}, "Error: Insufficient access rights.", 6},
      {{0x07}, "Error: Write protect error.", 7},
      {{0x08}, locked, 8},
      {{0x0E}, "Error: Output error??.", 0x0E},
      {{0x10}, "Error: Cluster size too small.", 0x10},
      {{0x0C}, "Unknown format error 12!", 12},
      {{0x07, 0x0B}, "Error: Write protect error.", 7},             // a failure stays one
      {{0x0B, 0x01}, "Error: FS completed initialisation OK.", 1},  // the last word counts
  };
  for (const auto& row : cases) {
    FreshDrive machine;
    machine.format_statuses = row.statuses;
    machine.answers = {kAnswerCancel};
    const int level = Prepare(ServiceFormat::kExfat);
    const bool good = row.error.empty();
    EXPECT_EQ(level, good ? kReturned : kLevelOperational) << row.error;
    EXPECT_EQ(FormatOk, good) << row.error;
    EXPECT_EQ(FormatStatus, row.last) << row.error;
    EXPECT_EQ(machine.console,
              "\r\nEXFAT_Format: FORMATTING AS exFAT\r\nRunning Windows FormatEx API on volume D: - please wait..." +
                  (good ? "" : "\r\n" + row.error + "\r\n\r\n"));
    EXPECT_EQ(machine.boxes.size(), good ? 0U : 2U);
    EXPECT_TRUE(good || machine.boxes[0] ==
                            "FormatEx failed: OK to format using \r\nFORMAT.COM /y D: /fs:EXFAT /q /x /v:LABEL");
  }
}

TEST(PrepareFormat, WaitsForALetter) {
  const struct {
    int refused, level;
    std::uint64_t waited;
  } cases[] = {{0, kReturned, 1000}, {1, kReturned, 3000}, {2, kReturned, 8000}, {3, kLevelOperational, 10'000}};
  for (const auto& row : cases) {
    FreshDrive machine;
    machine.format_statuses = {0x0B};
    machine.refused_remounts = row.refused;
    EXPECT_EQ(Prepare(ServiceFormat::kNtfs), row.level) << row.refused;
    EXPECT_EQ(machine.waited, row.waited) << row.refused;  // a failed run spends two seconds more
    EXPECT_EQ(machine.console.find("\r\nNo drive letter obtained for drive 1\r\n") != std::string::npos,
              row.level == kLevelOperational);
  }
}

TEST(PrepareFormat, OffersTheSystemsCommand) {
  constexpr SystemVersion kXp{2, 5, 1};
  constexpr SystemVersion kVista{2, 6, 0};
  const struct {
    std::string label;
    ServiceFormat kind;
    SystemVersion version;
    bool removable;
    std::deque<std::uint32_t> exit_codes;  // empty: it can't be started
    bool offered;
    std::string format;  // that the service was asked for before
  } cases[] = {
      {"done", ServiceFormat::kExfat, kXp, true, {0}, true, "D: 11 EXFAT My label"},
      {"failed", ServiceFormat::kExfat, {}, true, {4}, true, "D: 11 EXFAT My label"},
      {"not started", ServiceFormat::kExfat, {}, true, {}, true, "D: 11 EXFAT My label"},
      {"NTFS, fixed", ServiceFormat::kNtfs, kXp, false, {0}, true, "D: 12 NTFS My label"},
      {"NTFS, Vista", ServiceFormat::kNtfs, kVista, true, {0}, true, "D: 11 NTFS My label"},
      {"NTFS, XP, removable", ServiceFormat::kNtfs, kXp, true, {0}, false, "D: 11 NTFS My label"},
  };
  for (const auto& row : cases) {
    FreshDrive machine(row.removable);
    OptSure = true;  // the offer is a box all the same, the error is not
    machine.version = row.version;
    machine.format_statuses = {0x07};
    machine.exit_codes = row.exit_codes;
    machine.starts = !row.exit_codes.empty();
    const bool good = row.offered && row.exit_codes == std::deque<std::uint32_t>{0};
    EXPECT_EQ(Prepare(row.kind, "My label"), good ? kReturned : kLevelOperational) << row.label;
    EXPECT_EQ(machine.formats, std::vector{row.format});
    EXPECT_EQ(machine.boxes.size(), row.offered ? 1U : 0U) << row.label;
    const std::string file_system = row.kind == ServiceFormat::kNtfs ? "NTFS" : "EXFAT";
    const std::string command = "FORMAT.COM /y D: /fs:" + file_system + " /q /x /v:My label";
    EXPECT_EQ(machine.started, std::vector<std::string>(row.offered ? 1 : 0, command)) << row.label;
    EXPECT_EQ(FormatOk, good) << row.label;
    EXPECT_EQ(machine.console.ends_with("\r\nError: Write protect error.\r\n\r\n"), !good) << row.label;
  }
}

TEST(FormatNtfs, RefusesOtherDriveTypes) {
  FreshDrive machine;
  machine.drive_type = 4;
  Format_NTFS("D:", "LABEL", "");
  EXPECT_EQ(machine.console, "\r\nUnsupported drive type: Remote/Network Drive");
  EXPECT_TRUE(machine.formats.empty());
  EXPECT_FALSE(FormatOk);
}

TEST(RunAndWait, PollsToTheEnd) {
  const struct {
    std::deque<std::uint32_t> codes;
    std::int32_t result;
    std::uint64_t waited;
  } cases[] = {{{259, 259, 5}, 5, 165}, {{0xFFFFFFFF}, -1, 55}, {{259}, -2, 55}};
  for (const auto& row : cases) {
    FreshDrive machine;
    machine.exit_codes = row.codes;
    EXPECT_EQ(RunAndWait("FORMAT.COM"), row.result);
    EXPECT_EQ(machine.waited, row.waited);
    EXPECT_EQ(machine.CallsOf(CallKind::kClose).size(), 1U);
  }
}

// A boot sector that passes, with a mark in every byte that is not looked at.
std::vector<std::uint8_t> BootSector(ServiceFormat kind) {
  std::vector<std::uint8_t> sector(512, 0xC3);
  const std::string head = kind == ServiceFormat::kExfat ? "\xEB\x76\x90\x45XFAT   " : "\xEB\x52\x90NTFS    ";
  std::copy(head.begin(), head.end(), sector.begin());
  sector[510] = 0x55;
  sector[511] = 0xAA;
  return sector;
}

TEST(ReadVolumeBootRecord, TakesTheVolumesOwnHead) {
  for (const auto& [kind, bytes] : {std::pair(ServiceFormat::kExfat, 0x79U), std::pair(ServiceFormat::kNtfs, 0x54U)}) {
    FreshDrive machine;
    SizeSectorBuffer(512);
    BinArray.fill(0x11);
    machine.SetDriveBytes(1, kStart, BootSector(kind));
    ReadVolumeBootRecord(kind);
    EXPECT_EQ(BinArray[bytes - 1], 0xC3);
    EXPECT_EQ(BinArray[bytes], 0x11);
  }
}

TEST(ReadVolumeBootRecord, RefusesWhatIsNotTheFileSystem) {
  const struct {
    ServiceFormat kind;
    std::vector<std::size_t> checked;
    std::string message;
  } cases[] = {
      {ServiceFormat::kExfat,
       {0, 3, 4, 5, 6, 7, 0x1FE, 0x1FF},
       "\r\nNew Partition Boot Record is not exFAT or invalid!\r\n"},
      {ServiceFormat::kNtfs, {0, 1, 3, 4, 5, 6, 0x1FE, 0x1FF}, "\r\nNew Boot sector is not NTFS or invalid!\r\n"},
  };
  for (const auto& row : cases) {
    for (std::size_t i = 0; i < 512; ++i) {
      FreshDrive machine;
      std::vector<std::uint8_t> sector = BootSector(row.kind);
      sector[i] ^= 1;
      machine.SetDriveBytes(1, kStart, sector);
      SizeSectorBuffer(512);
      const bool checked = std::find(row.checked.begin(), row.checked.end(), i) != row.checked.end();
      ASSERT_EQ(LevelOf([&] { ReadVolumeBootRecord(row.kind); }), checked ? kLevelBootRecord : kReturned) << i;
      ASSERT_EQ(machine.console.ends_with(row.message + "\r\n\r\n"), checked) << i << machine.console;
    }
  }
}

TEST(ReadVolumeBootRecord, NamesTheUpdateOnXp) {
  const std::string update = "\r\nPlease install the KB955704 update for exFAT support on XP.\r\n";
  for (const std::uint32_t minor : {1U, 2U}) {
    FreshDrive machine;
    machine.version = {2, 5, minor};
    SizeSectorBuffer(512);
    machine.FailCall(CallKind::kRead, 1, kErrorCrc);  // as good as a wrong sector
    EXPECT_EQ(LevelOf([] { ReadVolumeBootRecord(ServiceFormat::kExfat); }), kLevelBootRecord);
    EXPECT_EQ(machine.console.find(update) != std::string::npos, minor == 1);
  }
}

TEST(ReadVolumeBootRecord, GivesTheDriveASecondTry) {
  for (const bool both_fail : {false, true}) {
    FreshDrive machine;
    SizeSectorBuffer(512);
    machine.SetDriveBytes(1, kStart, BootSector(ServiceFormat::kNtfs));
    machine.FailCall(CallKind::kOpen, 1, kErrorAccessDenied, both_fail);
    EXPECT_EQ(LevelOf([] { ReadVolumeBootRecord(ServiceFormat::kNtfs); }),
              both_fail ? int{kLevelOperational} : kReturned);
    EXPECT_EQ(machine.waited, both_fail ? 3500U : 1500U);
    EXPECT_EQ(machine.console.ends_with("LBA 2048\r\nFailed to open handle on disk 1 Err=50\r\n\r\n"), both_fail);
  }
}

// Whole preparations with the system's own tools; what is written behind the clearing, the boots prove.
TEST(ServiceFormats, EndAsTheirWritesDo) {
  const std::string done = "\r\nOperation completed OK\r\n";
  const std::string error =
      "\r\nERROR: Write to Disk Failed! \r\nERROR: The request could not be performed because of an I/O device "
      "error.\r\n";
  using Counts = std::vector<std::uint64_t>;
  const struct {
    std::string line;
    int failing_write;  // 0 for none
    int level;
    Counts writes;  // their sectors, behind MBR and clearing
    std::string ending;
    std::uint64_t waited;
  } cases[] = {
      {"EXFAT BOOTMGR", 0, kLevelOk, {12, 12}, done, 8500},
      {"NTFS XP", 0, kLevelOk, {7}, done, 8500},
      {"NTFS WIN7", 0, kLevelOk, {9}, done, 8500},
      {"EXFAT BOOTMGR", 7, kLevelWriteError, {12, 12}, error, 7500},
      {"NTFS BOOTMGR", 6, kLevelWriteError, {9}, error, 7500},
      {"NTFS FREEDOS",
       0,
       kLevelBadParameter,
       {},
       "\r\nNTFS_Format: Unsupported NTFS boot type specified - use NTLDR or BOOTMGR.",
       6000},
      {"EXFAT FAT32 MSDOS",
       0,
       kLevelBadParameter,
       {},
       "\r\nEXFAT_Format: Unsupported EXFAT boot type specified - use BOOTMGR.",
       6000},
      // The table names a volume one sector in front of the one that is then looked for.
      {"NTFS BOOTMGR 2MBR", 0, kLevelBootRecord, {30}, "\r\nNew Boot sector is not NTFS or invalid!\r\n", 6500},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.line);
    MachineDouble machine(OneDrive(), "DRIVE=1 SURE " + row.line);
    machine.FailCall(CallKind::kWrite, row.failing_write, kErrorIoDevice);
    EXPECT_EQ(RunMain(machine), row.level);
    EXPECT_TRUE(machine.console.ends_with(row.ending + "\r\n\r\n")) << machine.console;
    Counts writes;
    for (const Call& call : machine.CallsOf(CallKind::kWrite)) {
      writes.push_back(call.sectors);
    }
    EXPECT_EQ(Counts(writes.begin() + 5, writes.end()), row.writes);
    EXPECT_EQ(machine.waited, row.waited);
    EXPECT_EQ(machine.formats.size(), 1U);
  }
}

TEST(ServiceFormats, LookForGrldr) {
  MachineDouble machine(OneDrive(), "DRIVE=1 SURE EXFAT BOOTMGR GRUB4DOS");
  EXPECT_EQ(RunMain(machine), kLevelOk);
  const std::vector<std::uint8_t> code = machine.DriveBytes(1, kStart, 2);
  std::string patched;
  for (const std::size_t i : {0x15E, 0x160, 0x162, 0x164, 0x166, 0x304, 0x337}) {
    patched += static_cast<char>(code[i]);
  }
  EXPECT_EQ(patched, "GRLDR\5\5");
}

TEST(ServiceFormats, LeaveAnIncompleteVolumeAlone) {
  for (const std::string line : {"EXFAT BOOTMGR", "NTFS BOOTMGR"}) {
    MachineDouble machine(OneDrive(), "DRIVE=1 SURE " + line);
    machine.format_statuses = {0x0F};
    machine.answers = {kAnswerCancel};
    EXPECT_EQ(RunMain(machine), kLevelOk);
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).size(), 5U);
    EXPECT_NE(machine.console.find("wait...\r\nError: FS has been wiped (but not completed).\r\n"), std::string::npos);
    EXPECT_TRUE(machine.console.ends_with("\r\nOperation completed OK\r\n\r\n\r\n"));
  }
}

}  // namespace
