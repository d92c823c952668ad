#include "format/format_service.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "console/console.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "format/exfat.h"
#include "format/images/boot_images.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kDriveBytes = 64ULL << 20;
constexpr std::uint32_t kStart = 2048;
constexpr int kReturned = -1;  // in place of a level: the routine came back

// A drive whose new table has not been looked at yet: its volume gets a letter when the drive is mounted again.
class FreshDrive : public MachineDouble {
 public:
  explicit FreshDrive(bool removable = true) : MachineDouble(Drives(removable)) {
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

 private:
  static std::vector<AttachedDrive> Drives(bool removable) {
    DriveTraits traits;
    traits.removable = removable;
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes, traits));
    return drives;
  }
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
      {{0x0B}, "", 0},
      {{0x0F, 0x0B}, "", 0x0F},
      {{}, "Unknown format error 0!", 0},
      {{0x01}, "Error: FS completed initialisation OK.", 1},
      {{0x06}, "Error: Insufficient access rights.", 6},
      {{0x07}, "Error: Write protect error.", 7},
      {{0x08}, locked, 8},
      {{0x0E}, "Error: Output error??.", 0x0E},
      {{0x10}, "Error: Cluster size too small.", 0x10},
      {{0x0C}, "Unknown format error 12!", 12},
      {{0x07, 0x0B}, "Error: Write protect error.", 7},  // a failure stays one
      {{0x06, 0x0E, 0x0B}, "Error: Output error??.", 0x0E},
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
    std::vector<std::string> boxes;
    if (!good) {
      boxes = {"FormatEx failed: OK to format using \r\nFORMAT.COM /y D: /fs:EXFAT /q /x /v:LABEL", "\r\n" + row.error};
    }
    EXPECT_EQ(machine.boxes, boxes);
  }
}

TEST(PrepareFormat, ComesBackFromAnIncompleteFormat) {
  FreshDrive machine(/*removable=*/false);
  machine.format_statuses = {0x0F};
  machine.answers = {kAnswerCancel};
  EXPECT_EQ(Prepare(ServiceFormat::kNtfs), kReturned);
  EXPECT_FALSE(FormatOk);
  EXPECT_EQ(machine.console,
            "\r\nNTFS_Format: FORMATTING AS NTFS\r\nRunning Windows NTFS FormatEx API on volume D: - please wait..."
            "\r\nError: FS has been wiped (but not completed).");
}

TEST(PrepareFormat, AsksTheServiceForTheRightVolume) {
  const struct {
    ServiceFormat kind;
    bool removable;
    std::string asked;
  } cases[] = {
      {ServiceFormat::kExfat, true, "D: 11 EXFAT My label"},
      {ServiceFormat::kNtfs, false, "D: 12 NTFS My label"},
  };
  for (const auto& row : cases) {
    FreshDrive machine(row.removable);
    machine.format_statuses = {0x0B};
    EXPECT_EQ(Prepare(row.kind, "My label"), kReturned);
    EXPECT_EQ(machine.formats, std::vector{row.asked});
  }
}

TEST(PrepareFormat, WaitsForALetter) {
  const struct {
    int refused;
    int level;
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
  constexpr std::uint32_t kNone = 0xFFFF;
  const struct {
    std::string label;
    ServiceFormat kind;
    SystemVersion version;
    bool removable;
    int answer;
    std::uint32_t exit_code;  // kNone: it can't be started
    bool offered;
    bool good;
  } cases[] = {
      {"done", ServiceFormat::kExfat, kXp, true, kAnswerOk, 0, true, true},
      {"refused", ServiceFormat::kExfat, {}, true, kAnswerCancel, 0, true, false},
      {"failed", ServiceFormat::kExfat, {}, true, kAnswerOk, 4, true, false},
      {"not started", ServiceFormat::kExfat, {}, true, kAnswerOk, kNone, true, false},
      {"NTFS, fixed", ServiceFormat::kNtfs, kXp, false, kAnswerOk, 0, true, true},
      {"NTFS, Vista", ServiceFormat::kNtfs, kVista, true, kAnswerOk, 0, true, true},
      {"NTFS, XP, removable", ServiceFormat::kNtfs, kXp, true, kAnswerOk, 0, false, false},
      {"NTFS, unknown, removable", ServiceFormat::kNtfs, {}, true, kAnswerOk, 0, false, false},
  };
  for (const auto& row : cases) {
    FreshDrive machine(row.removable);
    OptSure = true;  // the offer is a box all the same, the error is not
    machine.version = row.version;
    machine.format_statuses = {0x07};
    machine.answers = {row.answer};
    machine.exit_codes = {row.exit_code};
    machine.starts = row.exit_code != kNone;
    EXPECT_EQ(Prepare(row.kind), row.good ? kReturned : kLevelOperational) << row.label;
    EXPECT_EQ(machine.boxes.size(), row.offered ? 1U : 0U) << row.label;
    std::vector<std::string> started;
    if (row.offered && row.answer == kAnswerOk) {
      const std::string file_system = row.kind == ServiceFormat::kNtfs ? "NTFS" : "EXFAT";
      started.push_back("FORMAT.COM /y D: /fs:" + file_system + " /q /x /v:LABEL");
    }
    EXPECT_EQ(machine.started, started) << row.label;
    EXPECT_EQ(FormatOk, row.good) << row.label;
    EXPECT_EQ(FormatStatus, 7U) << row.label;
    EXPECT_EQ(machine.console.ends_with("\r\nError: Write protect error.\r\n\r\n"), !row.good) << row.label;
  }
}

TEST(FormatNtfs, RefusesOtherDriveTypes) {
  const char* texts[] = {"",         "Unmounted Drive",    "", "", "Remote/Network Drive", "CD-ROM Drive",
                         "RAM Disk", "Drive Doesn't Exist"};
  for (const std::uint32_t type : {1, 4, 5, 6, 7}) {
    FreshDrive machine;
    machine.drive_type = type;
    Format_NTFS("D:", "LABEL", "");
    EXPECT_EQ(machine.console, std::string("\r\nUnsupported drive type: ") + texts[type]);
    EXPECT_TRUE(machine.formats.empty());
    EXPECT_FALSE(FormatOk);
  }
}

TEST(FormatExCallback, TracesEachStatus) {
  const FreshDrive machine;
  OptDebug = true;
  EXPECT_EQ(FormatExCallback(0x10, 2, 3), 1U);
  EXPECT_EQ(FormatExCallback(0x0B, 0, 4'000'000'000), 1U);
  EXPECT_EQ(FormatExCallback(0x02, 0, 0), 1U);
  EXPECT_EQ(machine.console,
            "\r\n2024-01-02 03:04:05 Status: 16 SubAction: 2 ActionInfo: 3 Cluster size too small"
            "\r\n2024-01-02 03:04:05 Status: 11 SubAction: 0 ActionInfo: 4000000000 COMPLETED."
            "\r\n2024-01-02 03:04:05 Status: 2 SubAction: 0 ActionInfo: 0");
}

TEST(RunAndWait, PollsToTheEnd) {
  const struct {
    std::deque<std::uint32_t> codes;
    std::int32_t result;
    std::uint64_t waited;
  } cases[] = {
      {{0}, 0, 55}, {{259, 259, 5}, 5, 165}, {{0xFFFFFFFF}, -1, 55}, {{}, -2, 0}, {{259}, -2, 55},
  };
  for (const auto& row : cases) {
    FreshDrive machine;
    machine.exit_codes = row.codes;
    EXPECT_EQ(RunAndWait("FORMAT.COM"), row.result);
    EXPECT_EQ(machine.waited, row.waited);
    EXPECT_EQ(machine.CallsOf(CallKind::kClose).size(), 1U);
  }
  FreshDrive machine;
  machine.starts = false;
  EXPECT_EQ(RunAndWait("FORMAT.COM"), -1);
}

// A boot sector that passes, with a mark in every byte that is not looked at.
std::vector<std::uint8_t> BootSector(ServiceFormat kind) {
  std::vector<std::uint8_t> sector(512, 0xC3);
  const std::string head = kind == ServiceFormat::kExfat ? "\xEB\x76\x90"
                                                           "EXFAT   "
                                                         : "\xEB\x52\x90NTFS    ";
  std::copy(head.begin(), head.end(), sector.begin());
  sector[510] = 0x55;
  sector[511] = 0xAA;
  return sector;
}

TEST(ReadVolumeBootRecord, TakesTheVolumesOwnHead) {
  for (const auto& [kind, bytes] :
       {std::pair(ServiceFormat::kExfat, std::size_t{0x79}), std::pair(ServiceFormat::kNtfs, std::size_t{0x54})}) {
    FreshDrive machine;
    SizeSectorBuffer(512);
    BinArray.fill(0x11);
    const std::vector<std::uint8_t> sector = BootSector(kind);
    machine.SetDriveBytes(1, kStart, sector);
    EXPECT_EQ(LevelOf([kind = kind] { ReadVolumeBootRecord(kind); }), kReturned);
    for (std::size_t i = 0; i < 1024; ++i) {
      ASSERT_EQ(BinArray[i], i < bytes ? sector[i] : 0x11) << i;
    }
    EXPECT_TRUE(machine.console.ends_with(" Volume Boot Record at LBA 2048 OK")) << machine.console;
    EXPECT_EQ(machine.waited, 500U);
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

TEST(ExfatBootChecksum, SumsElevenSectors) {
  // The sum turns right by one bit for each byte behind the 1 that counts.
  const struct {
    std::size_t index;
    std::uint32_t sum;
  } cases[] = {
      {0, 0x10},       // 5628 bytes that count: 28 bits to the right, or 4 to the left
      {0x69, 0x2000},  // 5523: 19 bits
      {0x6A, 0},       // volume flags
      {0x6B, 0},       //
      {0x6C, 0x4000},  // 5522: 18 bits
      {0x70, 0},       // percent in use
      {0x15FE, 0x80000000},
      {0x15FF, 1},
      {0x1600, 0},  // the sum's own place
  };
  for (const auto& row : cases) {
    std::vector<std::uint8_t> region(6144);
    region[row.index] = 1;
    ExfatBootChecksum(region);
    for (std::size_t i = 0x1600; i < region.size(); i += 4) {
      ASSERT_EQ(LoadLittle(&region[i], 4), row.sum) << row.index;
    }
  }
}

// A whole preparation with the system's own tools, on a drive in memory.
class Preparation {
 public:
  explicit Preparation(const std::string& line, int failing_write = 0) : machine(Drives(), "DRIVE=1 SURE " + line) {
    if (failing_write != 0) {
      machine.FailCall(CallKind::kWrite, failing_write, kErrorIoDevice);
    }
    level = RunMain(machine);
    writes = machine.CallsOf(CallKind::kWrite);
    writes.erase(writes.begin(), writes.begin() + std::min<std::ptrdiff_t>(5, std::ssize(writes)));  // MBR and clearing
  }
  // Sectors of the volume.
  std::vector<std::uint8_t> Sectors(std::uint64_t first, std::uint64_t count) {
    return machine.DriveBytes(1, kStart + first, count);
  }

  MachineDouble machine;
  int level;
  std::vector<Call> writes;

 private:
  static std::vector<AttachedDrive> Drives() {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes));
    return drives;
  }
};

TEST(ExfatFormat, WritesTheBootRegionTwice) {
  for (const bool grub : {false, true}) {
    Preparation run(grub ? "EXFAT BOOTMGR GRUB4DOS" : "EXFAT BOOTMGR");
    EXPECT_EQ(run.level, kLevelOk) << run.machine.console;
    EXPECT_EQ(run.writes, (std::vector<Call>{{CallKind::kWrite, kStart, 12}, {CallKind::kWrite, kStart + 12, 12}}));
    // The common waits are 4000; a letter, the boot sector, the write and the remount take theirs.
    EXPECT_EQ(run.machine.waited, 8500U);
    EXPECT_NE(run.machine.console.find(grub ? "\r\nWriting GRLDR for EXFAT\r\nReading EXFAT"
                                            : "\r\nWriting BOOTMGR for EXFAT\r\nReading EXFAT"),
              std::string::npos);
    const std::vector<std::uint8_t> region = run.Sectors(0, 12);
    EXPECT_EQ(run.Sectors(12, 12), region);
    BootMgrEXFAT_Code();
    for (const std::size_t i : {0x15E, 0x160, 0x162, 0x164, 0x166, 0x304, 0x337}) {
      const bool name = i < 0x200;
      EXPECT_EQ(region[i], grub ? (name ? "G R L D R"[i - 0x15E] : 5) : BinArray[i]) << i;
      BinArray[i] = region[i];
    }
    EXPECT_TRUE(std::equal(region.begin() + 0x79, region.begin() + 0x1600, BinArray.begin() + 0x79));
    std::vector<std::uint8_t> summed = region;
    ExfatBootChecksum(summed);
    EXPECT_EQ(summed, region);
    EXPECT_EQ(LoadLittle(&region[0x40], 8), kStart);
  }
}

TEST(NtfsFormat, WritesTheBootCodeOnce) {
  const struct {
    std::string line;
    std::uint64_t sectors;
    void (*image)();
  } cases[] = {{"NTFS XP", 7, NTLDR_NTFS_Code}, {"NTFS WIN7", 9, Bootmgr_NTFS_Code}};
  for (const auto& row : cases) {
    Preparation run(row.line);
    EXPECT_EQ(run.level, kLevelOk) << run.machine.console;
    EXPECT_EQ(run.writes, (std::vector<Call>{{CallKind::kWrite, kStart, row.sectors}}));
    const std::vector<std::uint8_t> code = run.Sectors(0, row.sectors);
    row.image();
    EXPECT_TRUE(std::equal(code.begin() + 0x54, code.end(), BinArray.begin() + 0x54));
    EXPECT_EQ(LoadLittle(&code[0x1C], 4), kStart);
  }
}

TEST(ServiceFormats, EndWhereTheyCannotGoOn) {
  const std::string error =
      "\r\nERROR: Write to Disk Failed! \r\nERROR: The request could not be performed because of an I/O device "
      "error.\r\n";
  const struct {
    std::string line;
    int failing_write;  // 0 for none
    int level;
    std::size_t writes;  // behind MBR and clearing
    std::string ending;
  } cases[] = {
      {"EXFAT BOOTMGR", 6, kLevelWriteError, 1, error},
      {"EXFAT BOOTMGR", 7, kLevelWriteError, 2, error},
      {"NTFS BOOTMGR", 6, kLevelWriteError, 1, error},
      {"NTFS FREEDOS", 0, kLevelBadParameter, 0,
       "\r\nNTFS_Format: Unsupported NTFS boot type specified - use NTLDR or BOOTMGR."},
      {"EXFAT FAT32 MSDOS", 0, kLevelBadParameter, 0,
       "\r\nEXFAT_Format: Unsupported EXFAT boot type specified - use BOOTMGR."},
      // The table names a volume one sector in front of the one that is then looked for.
      {"NTFS BOOTMGR 2MBR", 0, kLevelBootRecord, 1, "\r\nNew Boot sector is not NTFS or invalid!\r\n"},
  };
  for (const auto& row : cases) {
    const Preparation run(row.line, row.failing_write);
    EXPECT_EQ(run.level, row.level) << row.line;
    EXPECT_EQ(run.writes.size(), row.writes) << row.line;
    EXPECT_TRUE(run.machine.console.ends_with(row.ending + "\r\n\r\n")) << row.line << run.machine.console;
    EXPECT_EQ(run.machine.formats.size(), 1U) << row.line;
  }
}

TEST(ServiceFormats, LeaveAnIncompleteVolumeAlone) {
  for (const std::string line : {"EXFAT BOOTMGR", "NTFS BOOTMGR"}) {
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(1, kDriveBytes));
    MachineDouble machine(std::move(drives), "DRIVE=1 SURE " + line);
    machine.format_statuses = {0x0F};
    machine.answers = {kAnswerCancel};
    EXPECT_EQ(RunMain(machine), kLevelOk);
    EXPECT_EQ(machine.CallsOf(CallKind::kWrite).size(), 5U);
    EXPECT_TRUE(machine.console.ends_with("\r\nOperation completed OK\r\n\r\n\r\n"));
  }
}

}  // namespace
