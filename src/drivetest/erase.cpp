#include "drivetest/erase.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/progress.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"

namespace {

constexpr std::uint64_t kEraseChunkBytes = std::uint64_t{600} * kSectorBytes;

void WaitForRemount() {
  constexpr std::uint32_t kSettle = 1000;
  for (int i = 0; i < 2; ++i) {
    port->Wait(kSettle);
  }
}

void WriteChunk(std::uint64_t lba, std::uint64_t bytes) {
  if (OptDebug) {
    ConsoleWrite("Write sector to " + PlainNumber(lba) + "\r\n");
  }
  if (!OptNoWrite && !DirectWrite(lba, static_cast<std::int32_t>(bytes / kSectorBytes))) {
    ReportBox("\r\n*** ERROR *** writing to drive at Sector " + PlainNumber(lba));
    Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
    MyExitProcess(kLevelWriteError);
  }
}

void ReportProgress(Progress& progress, std::uint64_t remaining) {
  const auto left = static_cast<double>(remaining);
  const double percent = DuePercent(progress, left);
  if (percent < 0) {
    return;
  }
  constexpr std::uint64_t kKibi = 1024;
  const std::uint64_t written = (DriveReportedBytes - remaining) / kKibi;
  const std::string line = PlainNumber(percent) + "% complete, " + PlainNumber(written) + "KiB written to drive - " +
                           TimeLeftText(SecondsLeft(progress, left)) + " remaining";
  ConsoleWrite(line + "\r\n");
  DebugWrite(line);
}

void FillDrive() {
  SizeSectorBuffer(kEraseChunkBytes);
  std::fill(SectorBuffer.begin(), SectorBuffer.end(), std::uint8_t{0xFF});
  ConsoleWrite("Writing 0FFh bytes to drive " + std::to_string(DriveNumber));
  Progress progress = StartProgress(static_cast<double>(DriveReportedBytes));
  std::uint64_t lba = 0;
  for (std::uint64_t remaining = DriveReportedBytes; remaining > 0;) {
    const std::uint64_t step = std::min(remaining, kEraseChunkBytes);
    WriteChunk(lba, step);
    remaining -= step;
    lba += step / kSectorBytes;
    ReportProgress(progress, remaining);
  }
}

void ClearFirstSector() {
  std::fill_n(SectorBuffer.begin(), kSectorBytes, std::uint8_t{0});
  Open_Physical_Disk_hDrive(DriveNumber);
  if (!OptNoWrite) {
    DirectWrite(0, 1);  // a failure goes unreported
  }
  ReMount_Drive(DriveNumber);
  MyCloseHandle(DiskHandle);
}

}  // namespace

void EraseDrive() {
  constexpr std::uint32_t kBeforeUnlock = 500;
  constexpr std::uint32_t kAtTheEnd = 1000;
  if (!Confirmed("\r\nERASE Drive " + std::to_string(DriveNumber) +
                 " for write faster performance (may take several hours!)  \r\n\r\n" + DriveModel +
                 "\r\n\r\nOK TO ERASE ALL DATA ON THIS DRIVE? ")) {
    MyExitProcess(kLevelUserAbort);
  }
  ReMount_Drive(DriveNumber);
  WaitForRemount();
  FillDrive();
  MyCloseHandle(DiskHandle);
  port->Wait(kBeforeUnlock);
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  ConsoleWrite("\r\nFinished");
  ClearFirstSector();
  ConsoleWrite("\r\nMBR and partition table now erased.");
  port->Wait(kAtTheEnd);
  MyExitProcess(kLevelOk);
}
