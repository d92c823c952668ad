// The fault campaign: in every mode each call on the outside world fails in turn, once and from there on, each transfer
// falls short, and the process is ended after each write. Whatever happens, nothing outside the mode's own stretch
// changes, the run comes to an end with a level that the mode may have, and after a cut the same command ends well.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "console/console.h"
#include "platform/byte_order.h"
#include "support/program.h"
#include "support/run.h"

static std::size_t page_blocks = 0;    // asked for so far: SectorBuffer, each time that it grows
static std::size_t no_page_block = 0;  // which one can't be had

void* operator new(std::size_t bytes, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  if (++page_blocks == no_page_block) {
    throw std::bad_alloc();
  }
  return std::aligned_alloc(step, (bytes + step - 1) / step * step);
}
void operator delete(void* block, std::align_val_t /*alignment*/) noexcept { std::free(block); }

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kPartition = 2048;
using Sector = std::array<std::uint8_t, kSector>;

// What a sector holds that nobody has written.
Sector PatternOf(std::uint64_t lba) {
  Sector sector;
  sector.fill(static_cast<std::uint8_t>(lba * 37 + 11));
  Store32(sector.data(), static_cast<std::uint32_t>(lba));
  return sector;
}

Sector SectorWithTable() {
  Sector sector = PatternOf(0);
  std::fill_n(&sector[0x1BE], 64, std::uint8_t{0});
  for (const std::size_t slot : {0U, 1U}) {
    std::uint8_t* entry = &sector[0x1BE + slot * 16];
    entry[4] = 0x0C;
    Store32(entry + 8, static_cast<std::uint32_t>(kPartition + slot * 10'000));
    Store32(entry + 12, 10'000);
  }
  sector[0x1FE] = 0x55;
  sector[0x1FF] = 0xAA;
  return sector;
}

// What a drive holds, and which of its sectors have been written.
class Disk {
 public:
  explicit Disk(std::uint64_t sectors) : written_(sectors), bytes_(new std::uint8_t[sectors * kSector]) {}

  std::uint64_t Sectors() const { return written_.size(); }
  bool Written(std::uint64_t lba) const { return written_[lba]; }
  const std::uint8_t* At(std::uint64_t lba) const { return &bytes_[lba * kSector]; }
  void Write(std::uint64_t lba, const std::uint8_t* from, std::uint64_t sectors) {
    std::copy_n(from, sectors * kSector, &bytes_[lba * kSector]);
    std::fill_n(written_.begin() + static_cast<std::ptrdiff_t>(lba), sectors, true);
  }
  void Read(std::uint64_t lba, std::uint8_t* to) const {
    if (Written(lba)) {
      std::copy_n(At(lba), kSector, to);
    } else {
      const Sector sector = PatternOf(lba);
      std::copy(sector.begin(), sector.end(), to);
    }
  }
  friend bool operator==(const Disk& one, const Disk& other) {
    bool same = one.written_ == other.written_;
    for (std::uint64_t lba = 0; same && lba < one.Sectors(); ++lba) {
      same = !one.Written(lba) || std::equal(one.At(lba), one.At(lba) + kSector, other.At(lba));
    }
    return same;
  }

 private:
  std::vector<bool> written_;
  std::unique_ptr<std::uint8_t[]> bytes_;  // of those that have been written
};

Disk FreshDisk(std::uint64_t sectors) {
  Disk disk(sectors);
  disk.Write(0, SectorWithTable().data(), 1);
  return disk;
}

// A store on a disk that outlives the machine.
class CampaignStore : public Store {
 public:
  explicit CampaignStore(Disk& disk) : disk_(disk) {}
  std::uint64_t Size() const override { return disk_.Sectors() * kSector; }
  ErrorCode Read(std::uint64_t position, ByteSpan buffer) override {
    for (std::size_t at = 0; at < buffer.size(); at += kSector) {
      disk_.Read((position + at) / kSector, &buffer[at]);
    }
    return kErrorNone;
  }
  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes) override {
    disk_.Write(position / kSector, bytes.data(), bytes.size() / kSector);
    return kErrorNone;
  }
  ErrorCode Flush() override { return kErrorNone; }

 private:
  Disk& disk_;
};

// Under the sanitizers a run takes so much longer that every third call has to do.
#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kStep = 3;
#else
constexpr std::size_t kStep = 1;
#endif

struct Cut {};   // the process has been ended
struct Hang {};  // more calls than any run needs

enum class FaultKind { kNone, kOnce, kFromThereOn, kShort, kCut, kNoMemory };

struct Plan {
  FaultKind fault = FaultKind::kNone;
  std::size_t call = 0;  // which one, from 1; else which transfer, which write of a drive, which block of memory
};

class CampaignMachine : public MachineDouble {
 public:
  CampaignMachine(std::vector<AttachedDrive> drives, const std::string& line, const Plan& plan)
      : MachineDouble(std::move(drives), line), plan_(plan) {}

  std::size_t calls_made = 0;
  std::size_t transfers = 0;
  std::size_t drive_writes = 0;
  bool write_failed = false;  // a write of the drive was the call that failed

  bool WriteText(Handle output, std::string_view text) override {
    return Judge() && MachineDouble::WriteText(output, text);
  }
  bool LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override {
    return Judge() && MachineDouble::LockRange(handle, position, bytes);
  }
  bool UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override {
    return Judge() && MachineDouble::UnlockRange(handle, position, bytes);
  }
  bool QueryDeviceNumber(Handle handle, DeviceNumber& answer) override {
    return Judge() && MachineDouble::QueryDeviceNumber(handle, answer);
  }
  bool QueryLength(Handle handle, std::uint64_t& bytes) override {
    return Judge() && MachineDouble::QueryLength(handle, bytes);
  }
  bool QueryBusType(Handle handle, std::uint8_t& bus) override {
    return Judge() && MachineDouble::QueryBusType(handle, bus);
  }
  Handle FirstVolume(std::string& name) override { return Judge() ? MachineDouble::FirstVolume(name) : kInvalidHandle; }
  bool NextVolume(Handle search, std::string& name) override {
    return Judge() && MachineDouble::NextVolume(search, name);
  }
  bool MountVolume(const std::string& root, const std::string& name) override {
    return Judge() && MachineDouble::MountVolume(root, name);
  }
  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override {
    return Judge() && MachineDouble::QueryVolumeSize(name, bytes);
  }
  bool FindFile(const std::string& path) override { return Judge() && MachineDouble::FindFile(path); }
  bool QueryFileSize(Handle file, std::uint64_t& bytes) override {
    return Judge() && MachineDouble::QueryFileSize(file, bytes);
  }
  bool RemoveFile(const std::string& path) override { return Judge() && MachineDouble::RemoveFile(path); }
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override {
    return Short(handle, buffer.size()) ? MachineDouble::Read(handle, buffer.first(buffer.size() / 1024 * 512), moved)
                                        : MachineDouble::Read(handle, buffer, moved);
  }
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override {
    const bool drive = ItemOf(handle) != nullptr;
    const bool fell_short = Short(handle, buffer.size());
    writing_drive_ = drive;
    const bool done =
        MachineDouble::Write(handle, fell_short ? buffer.first(buffer.size() / 1024 * 512) : buffer, moved);
    writing_drive_ = false;
    if (drive && ++drive_writes == plan_.call && plan_.fault == FaultKind::kCut) {
      throw Cut{};
    }
    return done;
  }
  // In place of the system's tools: a boot sector that passes for one of theirs.
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override {
    if (!Judge()) {
      return;
    }
    Sector boot = PatternOf(kPartition);
    const bool exfat = file_system == "EXFAT";
    std::memcpy(boot.data(),
                exfat ? "\xEB\x76\x90"
                        "EXFAT   "
                      : "\xEB\x52\x90NTFS    ",
                11);
    boot[0x1FE] = 0x55;
    boot[0x1FF] = 0xAA;
    SetDriveBytes(1, kPartition, {boot.begin(), boot.end()});
    format_statuses = {0x0B};
    MachineDouble::FormatVolume(root, media, file_system, label, callback);
  }

 protected:
  bool Enter(const Call& call) override {
    if (!Judge()) {
      write_failed = write_failed || (call.kind == CallKind::kWrite && writing_drive_);
      return false;
    }
    return MachineDouble::Enter(call);
  }

 private:
  static constexpr std::size_t kMostCalls = 100'000;

  // False for a call that is to fail.
  bool Judge() {
    if (++calls_made > kMostCalls) {
      throw Hang{};
    }
    const bool fails = (plan_.fault == FaultKind::kOnce && calls_made == plan_.call) ||
                       (plan_.fault == FaultKind::kFromThereOn && calls_made >= plan_.call);
    return !fails || Outcome(kErrorIoDevice);
  }
  bool Short(Handle /*handle*/, std::size_t bytes) {
    return ++transfers == plan_.call && plan_.fault == FaultKind::kShort && bytes > kSector;
  }

  Plan plan_;
  bool writing_drive_ = false;
};

struct Mode {
  std::string label;
  std::string words;         // behind DRIVE=1 SURE; @ stands for a folder with a file
  std::uint64_t sectors;     // of the drive
  std::uint64_t first, end;  // the sectors that may change
  std::set<int> levels;      // that a fault may lead to, beside 0
  std::size_t unreported;    // single write faults that the mode passes over
  bool repeatable = true;    // a second run leaves what a first one leaves
};

constexpr std::uint64_t kSmall = 34'000;
constexpr std::uint64_t kLarge = 620'000;
const Mode kModes[] = {
    {"list", "LIST", kSmall, 0, 0, {3}, 0},
    {"find", "FIND", kSmall, 0, 0, {3}, 0},
    {"get drive", "GETDRV", kSmall, 0, 0, {}, 0},
    {"drive info", "USBINFO LENGTH=10SEC USBSTART=P1", kSmall, 0, 0, {3, 4, 6}, 0},
    {"file info", "FILEINFO FILE=\"@source.bin\"", kSmall, 0, 0, {1, 6}, 0},
    {"clean", "CLEAN", kSmall, 0, 1, {3, 4, 6, 7}, 0},
    {"swap", "FIRSTPART=2", kSmall, 0, 1, {3, 4, 6, 7}, 0, false},
    {"sort", "FIRSTPART", kSmall, 0, 1, {3, 4, 6, 7}, 0},
    {"renew the MBR", "WRITEMBRONLY", kSmall, 0, 1, {3, 4, 6, 7}, 0},
    {"unformatted", "", kSmall, 0, kPartition + 30, {3, 4, 6, 7}, 3},
    {"two MBRs", "2MBR", kSmall, 0, kPartition + 30, {3, 4, 6, 7}, 4},
    {"FAT16", "WINPE", kSmall, 0, kSmall, {3, 4, 6, 7}, 104},
    {"FAT16 without a table", "WINPE USBFDD", kSmall, 0, kSmall, {3, 4, 6, 7}, 104},
    {"FAT12 behind FAT16", "FREEDOS 2PTN", kSmall, 0, kSmall, {3, 4, 6, 7}, 168},
    {"FAT32", "FAT32 WINPE", kLarge, 0, kLarge, {1, 3, 4, 6, 7}, 3},
    {"exFAT", "EXFAT BOOTMGR", kSmall, 0, kPartition + 30, {3, 4, 6, 7, 9}, 3},
    {"NTFS", "NTFS WIN7", kSmall, 0, kPartition + 30, {3, 4, 6, 7, 9}, 3},
    {"file to drive", "FILETOUSB FILE=\"@source.bin\" USBSTART=700", kSmall, 700, 1983, {1, 3, 4, 6, 7}, 0},
    {"drive to file", "USBTOFILE FILE=\"@target.bin\" USBSTART=700 LENGTH=1283SEC", kSmall, 0, 0, {1, 3, 4, 6, 7}, 0},
    {"erase", "ERASE", kSmall, 0, kSmall, {3, 4, 6, 7}, 1},
    {"quick test", "QUICKTEST", kSmall, 0, kSmall, {3, 4, 6, 7, 8}, 2},
    {"speed test", "SPEEDTEST", 131'000, 0, 0, {3, 4, 6, 7}, 0},
};

struct RunOutcome {
  int level = -1;
  bool cut = false;
  bool hung = false;
  std::size_t calls = 0;
  std::size_t transfers = 0;
  std::size_t drive_writes = 0;
  std::size_t page_blocks = 0;
  bool write_failed = false;
};

class Campaign {
 public:
  explicit Campaign(const Mode& mode) : mode_(mode), result_(FreshDisk(mode.sectors)) {
    WriteBytes(folder_.File("source.bin"), 0, std::string(1283 * kSector - 5, 's'));
    line_ = "DRIVE=1 SURE " + mode.words;
    if (const std::size_t at = line_.find('@'); at != std::string::npos) {
      line_.replace(at, 1, folder_.File(""));
    }
  }

  // Runs the mode on what `drive` holds.
  RunOutcome Run(const Plan& plan, Disk& drive) {
    Disk bystander(kSmall);
    std::vector<AttachedDrive> drives;
    drives.push_back({1, std::make_unique<SimulatedDrive>(DriveTraits{}, std::make_unique<CampaignStore>(drive))});
    drives.push_back({2, std::make_unique<SimulatedDrive>(DriveTraits{}, std::make_unique<CampaignStore>(bystander))});
    CampaignMachine machine(std::move(drives), line_, plan);
    machine.program_folder = folder_.File("");
    RunOutcome outcome;
    page_blocks = 0;
    no_page_block = plan.fault == FaultKind::kNoMemory ? plan.call : 0;
    try {
      outcome.level = RunMain(machine);
    } catch (const Cut&) {
      outcome.cut = true;
    } catch (const Hang&) {
      outcome.hung = true;
    }
    EXPECT_TRUE(bystander == Disk(kSmall)) << Label(plan) << ": another drive was written";
    outcome.calls = machine.calls_made;
    outcome.transfers = machine.transfers;
    outcome.drive_writes = machine.drive_writes;
    outcome.page_blocks = page_blocks;
    outcome.write_failed = machine.write_failed;
    return outcome;
  }

  // One fault on a fresh drive, and all that must hold after it.
  RunOutcome Try(const Plan& plan) {
    Disk drive = FreshDisk(mode_.sectors);
    const RunOutcome outcome = Run(plan, drive);
    ++tried;
    const bool level_fits = plan.fault == FaultKind::kNoMemory
                                ? outcome.level == 6
                                : outcome.cut || outcome.level == 0 || mode_.levels.contains(outcome.level);
    if (outcome.hung || !level_fits || !OnlyOwnSectorsChanged(drive)) {
      ++wrong;
      ADD_FAILURE() << Label(plan) << ": level " << outcome.level << (outcome.hung ? ", hung" : "");
    }
    if (plan.fault == FaultKind::kCut) {
      ExpectRecovery(plan, drive);
    }
    return outcome;
  }

  void RunAll() {
    const RunOutcome good = Try({});
    EXPECT_EQ(good.level, 0) << mode_.label;
    Run({}, result_);
    std::size_t unreported = 0;
    for (std::size_t call = 1; call <= good.calls; call += kStep) {
      const RunOutcome once = Try({FaultKind::kOnce, call});
      unreported += once.write_failed && once.level == 0 ? 1 : 0;
      Try({FaultKind::kFromThereOn, call});
    }
    EXPECT_TRUE(unreported == mode_.unreported || kStep > 1) << mode_.label << ": " << unreported;
    for (std::size_t transfer = 1; transfer <= good.transfers; transfer += kStep) {
      Try({FaultKind::kShort, transfer});
    }
    for (std::size_t write = 1; write <= good.drive_writes; write += kStep) {
      EXPECT_TRUE(Try({FaultKind::kCut, write}).cut) << mode_.label;
    }
    for (std::size_t block = 1; block <= good.page_blocks; ++block) {
      Try({FaultKind::kNoMemory, block});
    }
  }

  std::size_t tried = 0;
  std::size_t wrong = 0;

 private:
  std::string Label(const Plan& plan) const {
    constexpr std::array kNames{"no fault",    "fails once",  "fails from there on",
                                "falls short", "is the last", "has no memory"};
    return mode_.label + ": call " + std::to_string(plan.call) + " " + kNames[static_cast<std::size_t>(plan.fault)];
  }

  bool OnlyOwnSectorsChanged(const Disk& drive) const {
    for (std::uint64_t lba = 0; lba < drive.Sectors(); ++lba) {
      const bool own = !drive.Written(lba) || (lba >= mode_.first && lba < mode_.end);
      const Sector before = own ? Sector{} : lba == 0 ? SectorWithTable() : PatternOf(lba);
      if (!own && !std::equal(before.begin(), before.end(), drive.At(lba))) {
        ADD_FAILURE() << mode_.label << " changed sector " << lba;
        return false;
      }
    }
    return true;
  }

  void ExpectRecovery(const Plan& plan, Disk& drive) {
    const RunOutcome again = Run({}, drive);
    const bool well = again.level == 0 && (!mode_.repeatable || drive == result_);
    wrong += well ? 0 : 1;
    EXPECT_TRUE(well) << Label(plan) << ", then again: level " << again.level;
  }

  const Mode& mode_;
  ScratchFolder folder_;
  std::string line_;
  Disk result_;  // of a run without faults
};

class FaultCampaign : public testing::TestWithParam<Mode> {};
INSTANTIATE_TEST_SUITE_P(Modes, FaultCampaign, testing::ValuesIn(kModes), [](const auto& info) {
  std::string name = info.param.label;
  std::erase_if(name, [](char c) { return c == ' '; });
  return name;
});

TEST_P(FaultCampaign, NothingElseChangesAndTheRunEnds) {
  Campaign campaign(GetParam());
  campaign.RunAll();
  std::cout << "Faults tried: " << campaign.tried << ", of which wrong: " << campaign.wrong << "\n";
}

}  // namespace
