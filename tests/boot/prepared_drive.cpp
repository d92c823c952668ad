#include "boot/prepared_drive.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr std::size_t kJumpEnd = 0x02;
constexpr std::size_t kMedia = 0x15;
constexpr std::size_t kGeometry = 0x18;
constexpr std::size_t kGeometryBytes = 4;
constexpr std::size_t kMessages = 0x1EE;  // word: where MS-DOS 7 finds the messages
constexpr std::uint32_t kBootAddress = 0x7C00;
constexpr std::uint32_t kLowestStack = 0x1000;
constexpr std::uint32_t kInterruptFlag = 0x200;
constexpr std::uint32_t kDirectionFlag = 0x400;
constexpr const char* kTextFile = "MSDOS   SYS";

bool IsDos(const BootKind& kind) { return kind.contract == Contract::kDos6 || kind.contract == Contract::kDos7; }

std::uint64_t VolumeLba(const std::vector<std::string>& keywords) {
  const auto has = [&](const char* word) { return std::count(keywords.begin(), keywords.end(), word) > 0; };
  if (has("USBFDD")) {
    return 0;
  }
  return has("ZIP") || has("DOSZIP") || has("CHS") ? kTranslatedStartLba : kStartLba;
}

std::uint32_t Linear(std::uint32_t segment, std::uint32_t offset) { return segment * 16 + offset; }

bool HasLba(const Bios& bios) { return (bios.peculiar & (kNoLba | kFalseLba)) == 0; }

// The boot sector's fields as they are on the drive, but for what the boot code has found out.
void ExpectBootSector(const std::string& sector, const PreparedDrive& drive, const Bios& bios) {
  const bool fat32 = drive.volume.entry_bits == 32;
  std::string expected = ReadBytes(drive.image, drive.volume.first_lba * kSectorBytes, fat32 ? 0x5A : 0x3E);
  const int mark = HasLba(bios) ? drive.kind.lba_mark : drive.kind.chs_mark;
  expected[kJumpEnd] = mark == kAnyMark ? sector.at(kJumpEnd) : static_cast<char>(mark);
  expected[fat32 ? 0x40 : 0x24] = static_cast<char>(bios.drive);
  if (!HasLba(bios) && drive.kind.asks_geometry) {
    expected.replace(kGeometry, kGeometryBytes, sector.substr(kGeometry, kGeometryBytes));
  }
  EXPECT_EQ(sector.substr(0, expected.size()), expected);
}

void ExpectNtState(const BootReport& report, const PreparedDrive& drive) {
  EXPECT_EQ(report.dx & 0xFF00, 0U);
  EXPECT_EQ(report.ss, 0U);
  EXPECT_EQ(report.ds, 0U);
  EXPECT_EQ(report.es, 0U);
  if (IsFat32(drive.kind)) {
    EXPECT_EQ(report.flags & kInterruptFlag, kInterruptFlag);
  }
}

// Stack and boot sector lie behind the file, and no command line is announced.
void ExpectFreeDosState(const BootReport& report, const PreparedDrive& drive, const Bios& bios) {
  const std::uint32_t end = Linear(report.cs, 0) + static_cast<std::uint32_t>(drive.loader.size());
  EXPECT_EQ(report.bx & 0xFF, bios.drive);
  EXPECT_GE(Linear(report.ss, report.bp), end);
  EXPECT_GE(Linear(report.ss, report.sp), end);
  EXPECT_NE(report.at_bp.substr(0, 2), "CL");
}

void ExpectDiskette(const BootReport& report) {
  EXPECT_EQ(report.ss, 0U);
  EXPECT_EQ(report.stack, Little(0x1E * 4, 4) + report.diskette);
}

void ExpectDos6State(const BootReport& report, const PreparedDrive& drive) {
  ExpectDiskette(report);
  EXPECT_EQ(Little(report.si, 2) + Little(report.ds, 2), report.diskette);
  EXPECT_EQ(report.cx >> 8U, Number(report.boot_sector.substr(kMedia, 1)));
  EXPECT_EQ(report.ax << 16U | report.bx, drive.volume.DataLba());
  EXPECT_EQ(report.entries, EntriesOf(drive));
}

// The text in front of the key, with the zero byte that ends it in memory.
std::string OnScreen(const std::string& text) { return text.substr(0, text.find("<key>")) + '\0'; }

// What MS-DOS 7 prints as text `number` of the boot sector's table: the text, and the closing one where it ends so.
std::string TextOfTable(const BootReport& report, std::uint32_t number) {
  constexpr char kGoOn = '\xFF';
  constexpr std::uint32_t kClosingText = 3;
  const std::string& sector = report.boot_sector;
  const std::size_t at = Number(sector.substr(kMessages, 2)) - kBootAddress + number;
  if (at >= sector.size()) {
    return "no table";
  }
  const std::size_t start = at + 1 + static_cast<std::uint8_t>(sector[at]);
  const std::size_t end = sector.find_first_of(std::string{'\0', kGoOn}, start);
  if (end == std::string::npos || (sector[end] == kGoOn && number == kClosingText)) {
    return "no end";
  }
  return sector[end] == kGoOn ? sector.substr(start, end - start) + TextOfTable(report, kClosingText)
                              : sector.substr(start, end - start + 1);
}

void ExpectDos7State(const BootReport& report, const PreparedDrive& drive) {
  ExpectDiskette(report);
  EXPECT_EQ(report.bp, kBootAddress);
  EXPECT_EQ(Number(report.at_bp.substr(kBelowBp - 4, 4)), drive.volume.DataLba());
  EXPECT_EQ(report.di, drive.first_cluster & 0xFFFF);
  if (IsFat32(drive.kind)) {
    EXPECT_EQ(report.si, drive.first_cluster >> 16U);
  }
  EXPECT_EQ(TextOfTable(report, 0), OnScreen(drive.kind.missing));
  EXPECT_EQ(TextOfTable(report, 1), OnScreen(drive.kind.unreadable));
  EXPECT_EQ(TextOfTable(report, 2), OnScreen(drive.kind.missing));
}

}  // namespace

PreparedDrive::PreparedDrive(const BootKind& boot_kind, const std::string& size, const std::vector<std::string>& more)
    : kind(boot_kind), image(folder.File("drive.img")) {
  std::vector<std::string> keywords = kind.keywords;
  keywords.insert(keywords.end(), more.begin(), more.end());
  std::vector<std::string> arguments = {"--drive", "1=" + image + ",size=" + size, "--no-wait", "DRIVE=1", "SURE"};
  arguments.insert(arguments.end(), keywords.begin(), keywords.end());
  const RunResult result = RunKorventix(arguments);
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  volume = OpenVolume(image, VolumeLba(keywords));
}

std::string DiskOf(const FatVolume& volume) {
  constexpr std::uint64_t kCylinders = 1024;
  const std::uint64_t cylinders = (volume.first_lba + volume.total_sectors) / volume.track_sectors / volume.heads + 1;
  return kIde + ",lcyls=" + std::to_string(std::min(cylinders, kCylinders)) +
         ",lheads=" + std::to_string(volume.heads) + ",lsecs=" + std::to_string(volume.track_sectors);
}

void PutLoader(PreparedDrive& drive, const std::string& loader, Placement placement) {
  drive.loader = loader;
  drive.first_cluster = placement.first;
  WriteFile(drive.volume, placement, loader);
  PlaceEntries(drive.volume, 1, EntriesOf(drive));
}

std::string EntriesOf(const PreparedDrive& drive) {
  const std::string loader = DirectoryEntry(drive.kind.loader, kArchive, drive.first_cluster, drive.loader.size());
  return IsDos(drive.kind) ? loader + DirectoryEntry(kTextFile, kArchive, drive.volume.LastCluster(), 500) : loader;
}

std::size_t FillRoot(const PreparedDrive& drive, const std::vector<std::uint32_t>& root) {
  const FatVolume& volume = drive.volume;
  const bool fat32 = volume.entry_bits == 32;
  for (std::size_t i = 0; fat32 && i < root.size(); ++i) {
    SetFatEntry(volume, root[i], i + 1 < root.size() ? root[i + 1] : kEndOfChain);
  }
  const std::size_t sectors = fat32 ? root.size() * volume.cluster_sectors : volume.root_sectors;
  const std::size_t entries = sectors * kSectorBytes / kEntryBytes;
  const std::string& name = drive.kind.loader;
  for (std::size_t i = 1; i < entries; ++i) {
    PlaceEntries(volume, i, DirectoryEntry("\xE5" + name.substr(1), kArchive, 5000, 10000), root);
  }
  PlaceEntries(volume, 1,
               DirectoryEntry(name, kLabel, 0, 0) + DirectoryEntry(name, kDirectory, 5000, 0) +
                   DirectoryEntry(name, kLongName, 5000, 10000) +
                   DirectoryEntry(name.substr(0, 8) + "EFI", kArchive, 5000, 10000),
               root);
  return entries;
}

void ExpectLoaded(const BootReport& report, const PreparedDrive& drive, const Bios& bios) {
  ASSERT_TRUE(report.loaded) << "came over the debug port: " << report.text;
  const ContractFacts& facts = FactsOf(drive.kind.contract);
  EXPECT_EQ(report.cs, facts.segment);
  EXPECT_EQ(report.ip, facts.entry);
  EXPECT_EQ(report.dx & 0xFF, bios.drive);
  EXPECT_EQ(report.flags & kDirectionFlag, 0U);
  EXPECT_EQ(report.hash,
            HashOf(LoadsWholeFile(drive.kind) ? drive.loader : drive.loader.substr(0, facts.promised_bytes)));
  if (drive.kind.contract == Contract::kFreeDos) {
    ExpectBootSector(report.at_bp.substr(kBelowBp), drive, bios);
  } else {
    ExpectBootSector(report.boot_sector, drive, bios);
    EXPECT_GE(report.sp, kLowestStack);
    EXPECT_LE(report.sp, kBootAddress);
  }
  switch (drive.kind.contract) {
    case Contract::kNt:
      return ExpectNtState(report, drive);
    case Contract::kFreeDos:
      return ExpectFreeDosState(report, drive, bios);
    case Contract::kDos6:
      return ExpectDos6State(report, drive);
    case Contract::kDos7:
      return ExpectDos7State(report, drive);
  }
}

BootReport ExpectBoots(const PreparedDrive& drive, const Bios& bios, const std::string& device) {
  const std::size_t promised = FactsOf(drive.kind.contract).promised_bytes;
  BootReport report = BootUnder(bios, drive.image, promised == 0 ? drive.loader.size() : promised, device);
  ExpectLoaded(report, drive, bios);
  EXPECT_EQ(report.text.substr(0, drive.kind.first.size()), drive.kind.first);
  return report;
}
