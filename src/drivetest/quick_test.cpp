#include "drivetest/quick_test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/progress.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "platform/byte_order.h"

std::array<BadBlock, kBadBlockRows> BadBlockTable{};

namespace {

constexpr std::uint64_t kBlockSectors = 16384;  // from marker to marker
constexpr std::uint64_t kMarkBit = std::uint64_t{1} << 63;
constexpr double kSectorsPerMebi = 2048;

std::uint64_t DriveSectors() { return DriveReportedBytes / kSectorBytes; }

void AskBeforeTest() {
  if (!Confirmed("\r\nQUICKTEST and CLEAN Drive " + std::to_string(DriveNumber) + "   " + DriveModel +
                 "\r\n\r\nOK TO ERASE AND TEST ALL DATA ON THIS DRIVE? ")) {
    MyExitProcess(kLevelUserAbort);
  }
}

// --- The two passes ------------------------------------------------------------------------------------------------

enum class Pass { kWrite, kRead };

Progress StartPass() { return StartProgress(static_cast<double>(DriveSectors())); }

// Prints a line when one is due; `remaining` in sectors. The seconds left are rounded up and never 0. The debug line of
// the write pass has one blank less than the line that it repeats.
void ReportProgress(Progress& progress, std::uint64_t remaining, Pass pass) {
  const double percent = DuePercent(progress, static_cast<double>(remaining));
  if (percent < 0) {
    return;
  }
  const double seconds = std::floor(SecondsLeft(progress, static_cast<double>(remaining)));
  const std::string rest = "- " + (seconds > 0 ? TimeLeftText(seconds + 1) : "0 min 1 sec") + " remaining";
  const std::string done = PlainNumber(percent) + "% complete ";
  if (pass == Pass::kRead) {
    ConsoleWrite("\r\n" + done + rest);
  } else {
    ConsoleWrite("\r\n" + done + " " + rest);
    DebugWrite(done + rest);
  }
}

bool WriteMarker(std::uint64_t lba) {
  EncodeMarker(lba, SectorBuffer);
  DebugLog(" " + PlainNumber(lba) + " (End=" + PlainNumber(DriveSectors() - 1) + ")");
  return OptNoWrite || DirectWrite(lba, 1);
}

[[noreturn]] void EndWithWriteError() {
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  MyExitProcess(kLevelWriteError);
}

// Where nobody can be asked the first failed write ends the test.
bool GoesOnAfterError(std::uint64_t lba) {
  return !OptSure && Confirmed("*** ERROR *** writing to drive at Sector " + PlainNumber(lba) + "\r\nContinue?", 0,
                               "WRITE ERROR CAUSING VERY SLOW ACCESS!");
}

// Walks the drive from its last sector downwards in steps of 8 MiB, the last one being shorter where the drive ends
// within it.
void WriteMarkers() {
  Progress progress = StartPass();
  const std::uint64_t last = DriveSectors() - 1;
  if (!WriteMarker(last)) {
    ReportBox("\r\n*** ERROR *** writing to drive at Sector " + PlainNumber(last));
  }
  for (std::uint64_t remaining = DriveSectors(); remaining > 0;) {
    const std::uint64_t lba = remaining - 1;
    Diagnose("\r\nWrite sector to " + PlainNumber(lba));
    if (!WriteMarker(lba) && !GoesOnAfterError(lba)) {
      EndWithWriteError();
    }
    remaining -= std::min(remaining, kBlockSectors);
    ReportProgress(progress, remaining, Pass::kWrite);
  }
  if (!WriteMarker(0)) {
    ReportBox("\r\n*** ERROR *** writing to drive at Sector 0 (Aborting!)");
    EndWithWriteError();
  }
}

// What the drive answers at this address. A sector that can't be read leaves the marker read before in the buffer,
// which then counts as found there.
std::int64_t ReadMarker(std::uint64_t lba, std::string_view source = "drive") {
  if (!DirectRead(lba, 1)) {
    ReportBox("\r\n*** ERROR *** reading from " + std::string(source) + " at Sector " + PlainNumber(lba));
  }
  return DecodeMarker(SectorBuffer);
}

bool IsGood(std::uint64_t lba, std::int64_t found) {
  const auto expected = static_cast<std::int64_t>(lba);
  if (found == expected) {
    return true;
  }
  if (BadCount < static_cast<std::int64_t>(kBadBlockRows)) {
    BadBlockTable[static_cast<std::size_t>(BadCount)] = {expected, found};
  }
  ++BadCount;
  return false;
}

// In the order of the write pass; a full table ends the walk.
void ReadMarkers() {
  Progress progress = StartPass();
  for (std::uint64_t remaining = DriveSectors(); remaining > 0;) {
    const std::uint64_t lba = remaining - 1;
    Diagnose("\r\nRead from sector " + PlainNumber(lba));
    const std::int64_t found = ReadMarker(lba);
    DebugLog(" Marker = " + PlainNumber(found) + " at Sector " + PlainNumber(lba));
    if (!IsGood(lba, found)) {
      ConsoleWrite("\r\nError at Block " + PlainNumber(lba) + " - found Block " + PlainNumber(found) + " instead!");
    }
    remaining -= std::min(remaining, kBlockSectors);
    ReportProgress(progress, remaining, Pass::kRead);
    if (BadCount >= static_cast<std::int64_t>(kBadBlockRows)) {
      break;
    }
  }
  const std::uint64_t last = DriveSectors() - 1;
  IsGood(last, ReadMarker(last));
  IsGood(0, ReadMarker(0, "USB drive"));
}

// --- The report ----------------------------------------------------------------------------------------------------

// Over the rows of the table.
struct BadExtent {
  std::int64_t lowest;
  std::int64_t highest;
  std::int64_t lowest_found;
};

BadExtent ExtentOfBadBlocks() {
  const auto behind_drive = static_cast<std::int64_t>(DriveSectors()) + 1;
  BadExtent extent{behind_drive, 0, behind_drive};
  const auto rows = static_cast<std::size_t>(std::min(BadCount, static_cast<std::int64_t>(kBadBlockRows)));
  for (const BadBlock& row : std::span(BadBlockTable).first(rows)) {
    extent.lowest = std::min(extent.lowest, row.expected);
    extent.highest = std::max(extent.highest, row.expected);
    extent.lowest_found = std::min(extent.lowest_found, row.found);
  }
  return extent;
}

// The MiB in front of the lowest bad block, less the block that ends there; below 0 where there is not one good block.
std::int64_t UsableMebi(const BadExtent& extent) {
  const std::int64_t sectors = extent.lowest - static_cast<std::int64_t>(kBlockSectors);
  return static_cast<std::int64_t>(std::floor(static_cast<double>(sectors) / kSectorsPerMebi));
}

std::string PlaceText(std::int64_t lba) {
  return PlainNumber(lba) + " (" + NumberText(static_cast<double>(lba) / kSectorsPerMebi, "#########0.0##") + "Mib)";
}

std::string RecommendationText(const BadExtent& extent) {
  return "Recommended maximum usable partition size: " + PlainNumber(UsableMebi(extent)) +
         "Mib (Sector=" + PlainNumber(extent.lowest - static_cast<std::int64_t>(kBlockSectors)) + ")";
}

void PrintReport(const BadExtent& extent) {
  ConsoleWrite("\r\nMemory tested in blocks of " + PlainNumber(kBlockSectors) + " sectors.");
  ConsoleWrite("\r\n\r\nBAD MEMORY from sector " + PlaceText(extent.lowest) + " to sector " +
               PlaceText(extent.highest));
  if (extent.lowest_found == kNoMarker) {
    ConsoleWrite("\r\nWARNING: no memory detected at one or more locations.");
  }
  ConsoleWrite("\r\n" + RecommendationText(extent) + "\r\n");
}

// --- The end -------------------------------------------------------------------------------------------------------

void WipeFirstSector() {
  ConsoleWrite("\r\nFinished testing - now wiping MBR...");
  std::fill(SectorBuffer.begin(), SectorBuffer.end(), std::uint8_t{0});
  Open_Physical_Disk_hDrive(DriveNumber);
  if (!OptNoWrite) {
    DirectWrite(0, 1);  // a failure goes unreported: the verdict is what counts
  }
  MyCloseHandle(DiskHandle);
  ConsoleWrite("\r\nMBR and partition table erased.");
}

[[noreturn]] void EndPassed() {
  ReportBox(
      "\r\nDevice quick test was OK    *** PASSED ***\r\n\r\nNOTE: Drive filesystem has been erased - please partition "
      "and format it then test with H2TESTW for thorough test.");
  ConsoleWrite(MediaClassText());
  MyExitProcess(kLevelOk);
}

[[noreturn]] void EndFailed(const BadExtent& extent) {
  constexpr std::int64_t kHighestLevel = std::numeric_limits<std::int16_t>::max();
  ConsoleWrite("\r\nQUICKTEST FAILED\r\n");
  ReportBox("                         *** FAILED ***\r\n\r\nDEVICE HAS DUPLICATE OR BAD BLOCKS!\r\n\r\n" +
                RecommendationText(extent),
            kBoxStop);
  const std::int64_t mebi = UsableMebi(extent);
  const bool fits = extent.lowest != 0 && mebi >= 1 && mebi <= kHighestLevel;
  MyExitProcess(fits ? static_cast<std::int16_t>(mebi) : std::int16_t{kLevelOperational});
}

}  // namespace

void EncodeMarker(std::uint64_t lba, ByteSpan sector) { StoreLittle(sector.data(), lba | kMarkBit, sizeof lba); }

std::int64_t DecodeMarker(ConstByteSpan sector) {
  const std::uint64_t value = LoadLittle(sector.data(), sizeof value);
  return (value & kMarkBit) != 0 ? static_cast<std::int64_t>(value & ~kMarkBit) : kNoMarker;
}

void QuickTest() {
  constexpr std::uint32_t kBeforeUnlock = 500;
  AskBeforeTest();
  Lock_Unlock_All_Volumes(DriveNumber, "LOCK");
  SectorBuffer.assign(kSectorBytes, 0xFF);
  ConsoleWrite("\r\nWriting marker blocks to drive " + std::to_string(DriveNumber));
  const std::int64_t start = port->CalendarSeconds();
  WriteMarkers();
  ConsoleWrite("\r\nReading back marker blocks...");
  ReadMarkers();
  port->Wait(kBeforeUnlock);
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  MyCloseHandle(DiskHandle);
  const BadExtent extent = ExtentOfBadBlocks();
  if (BadCount > 0) {
    PrintReport(extent);
  }
  ConsoleWrite("\r\nTest took " + PlainNumber(port->CalendarSeconds() - start) + " seconds.");
  WipeFirstSector();
  if (BadCount == 0) {
    EndPassed();
  }
  EndFailed(extent);
}
