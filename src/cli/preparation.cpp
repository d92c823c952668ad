#include "cli/preparation.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "format/exfat.h"
#include "format/fat12.h"
#include "format/fat16.h"
#include "format/fat32.h"
#include "format/images/boot_images.h"
#include "format/ntfs.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"

namespace {

constexpr std::uint32_t kSettle = 1000;  // milliseconds around the writes of the MBR

std::string DriveText() { return std::to_string(DriveNumber); }

void PutSignature() {
  SectorBuffer[kSignatureOffset] = 0x55;
  SectorBuffer[kSignatureOffset + 1] = 0xAA;
}

void RefuseLargeFat16() {
  constexpr std::int64_t kFourGiB = 4'294'967'296;
  const std::int64_t part_bytes = SizeLimit > 0 && SizeLimit <= DriveBytes ? SizeLimit : DriveBytes;
  if (UseFat16 && part_bytes > kFourGiB) {
    ReportBox("\r\nError: Cannot exceed 4GB for FAT16. Use FAT32, exFAT or NTFS?", kBoxExclamation);
    MyExitProcess(kLevelBadParameter);
  }
}

void BuildMbr() {
  Mbr_Code();
  std::fill(SectorBuffer.begin() + kTableOffset, SectorBuffer.begin() + kSectorBytes, std::uint8_t{0});
  BuildPartitionEntry(kTableOffset);
  if (Opt2Ptn && !OptZip) {
    BuildSecondEntry(kSecondEntryOffset);
  }
  if (OptDebug) {
    DebugWrite("\r\nBUFFER TO WRITE:");
    PrintDump(SectorBuffer);
  }
}

void AskBeforeWriting() {
  if (OptNoWrite) {
    ConsoleWrite("\r\nMBR Sector not written to disk - aborting...");
    MyExitProcess(kLevelUserAbort);
  }
  if (!Confirmed("\r\nERASE DRIVE " + DriveText() + "  - " + DriveModel +
                     "\r\n\r\nOK TO ERASE ALL DATA ON THIS DRIVE \r\nand create a new partition?",
                 kBoxExclamation)) {
    ConsoleWrite("\r\nUser aborted!");
    MyExitProcess(kLevelUserAbort);
  }
}

// The MBR as built goes in front of the partition, and the one at LBA 0 leads there: its entry starts one sector
// earlier, with the length unchanged. Only the last write counts.
bool WriteTwoMbrs() {
  DirectWrite(static_cast<std::uint64_t>(PartStartLba - 1), 1);
  std::uint8_t* entry = &SectorBuffer[kTableOffset];
  if (!OptForceLba) {
    --entry[offsetof(PartitionEntry, start_head)];
    entry[offsetof(PartitionEntry, start_sector)] = static_cast<std::uint8_t>(GeomSpt);
  }
  const std::int32_t second_mbr = StartLba - 1;
  ConsoleWrite("SLBA=" + PlainNumber(second_mbr));
  Store32(entry + offsetof(PartitionEntry, first_lba), static_cast<std::uint32_t>(second_mbr));
  return DirectWrite(0, 1);
}

void WriteMbr() {
  const bool written = Opt2Mbr && !OptUsbFdd ? WriteTwoMbrs() : DirectWrite(0, 1);
  port->Wait(kSettle);
  if (!written) {
    ConsoleWrite("\r\n" + LastErrorText);
    ReportBox("WRITE ERROR (MBR WRITE PROTECTED?)!", kBoxStop);
    MyExitProcess(kLevelWriteError);
  }
  if (!OptUsbFdd) {
    ConsoleWrite("\r\nNew MBR written OK");
  }
  if (OptDebug) {
    ConsoleWrite("\r\nReading back Block 0 ...");
    DirectRead(0, 2);  // for the eye alone
    PrintDump(SectorBuffer);
  }
}

// Old boot records are wiped in three overlapping passes (LBA 33 twice) and at the partition's start. Only the last
// write counts: a drive that refuses an earlier one alone goes on.
void ClearOldBootRecords() {
  constexpr std::int32_t kPassSectors = 33;
  constexpr std::int64_t kReachOfPasses = 70;  // a partition that starts up to here has been covered already
  constexpr std::int32_t kVolumeSectors = 30;
  SizeSectorBuffer(std::size_t{kPassSectors} * kSectorBytes);
  ConsoleWrite("\r\nClearing out old VBRs (LBA 1-100)");
  bool written = false;
  for (const std::uint64_t lba : {1U, 33U, 66U}) {
    written = DirectWrite(lba, kPassSectors);
  }
  if (PartStartLba > kReachOfPasses) {
    ConsoleWrite("\r\nClearing 30 sectors at VBR from LBA " + PlainNumber(PartStartLba));
    written = DirectWrite(static_cast<std::uint64_t>(PartStartLba), kVolumeSectors);
  }
  if (!written) {
    ReportBox(
        "Disk Write Error! - Check Disk Manager has assigned a drive letter for this drive - then CLEAN it - remove it "
        "and then re-insert it.",
        kBoxStop, "KORVENTIX - DISK WRITE ERROR!");
    MyExitProcess(kLevelWriteError);
  }
}

// The second partition's boot record is made for tracks of 63 sectors.
bool SecondPartitionIsFormatted() { return Opt2Ptn && !OptZip && GeomSpt == 63; }

void FreeDrive() {
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  MyCloseHandle(DiskHandle);
}

void FormatVolumes() {
  if (!WantBootCode) {
    return;
  }
  if (SecondPartitionIsFormatted()) {
    FormatFat12(VolumeName, static_cast<std::uint64_t>(SecondPartLba));
  }
  // The platform's format service needs the drive free; the other formatters write through the handle and the locks.
  if (UseNtfs) {
    FreeDrive();
    NTFS_Format(VolumeName);
  }
  if (UseExfat) {
    FreeDrive();
    EXFAT_Format(VolumeName);
  }
  if (UseFat32) {
    FormatFat32(VolumeName);
  }
  if (UseFat16) {
    FormatFat16(VolumeName);
  }
}

[[noreturn]] void GiveDriveBack() {
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  ConsoleWrite(MediaClassText());
  MyCloseHandle(DiskHandle);
  ConsoleWrite("\r\nRemounting drive " + DriveText());
  ReMount_Drive(DriveNumber);
  ConsoleWrite("\r\nOperation completed OK\r\n");
  MyExitProcess(kLevelOk);
}

}  // namespace

void WriteMbrOnly() {
  if (OptNoWrite) {
    ConsoleWrite("\r\nSector not written to disk by request!");
    MyExitProcess(kLevelUserAbort);
  }
  if (!Confirmed(
          "\r\nWrite new MBR boot code only (keep disk signature and partition table).\r\n\r\nOK to update bytes "
          "0-1B7h on DRIVE " +
          DriveText() + "   (" + DriveModel + ")")) {
    MyExitProcess(kLevelUserAbort);
  }
  Lock_Unlock_All_Volumes(DriveNumber, "LOCK");
  Mbr_Code();
  std::array<std::uint8_t, kMbrCodeBytes> boot_code{};
  std::copy_n(SectorBuffer.begin(), boot_code.size(), boot_code.begin());
  LoadDriveHeader();
  std::copy(boot_code.begin(), boot_code.end(), SectorBuffer.begin());
  PutSignature();
  const bool written = DirectWrite(0, 1);
  port->Wait(kSettle);
  // The volumes stay locked: the end of the process lets them go.
  MyExitProcess(written ? kLevelOk : kLevelWriteError);
}

void PrepareDrive() {
  RefuseLargeFat16();
  MountDriveVolumes(DriveNumber);
  BuildMbr();
  AskBeforeWriting();
  ConsoleWrite("\r\n\r\n------ NOW PREPARING DRIVE " + DriveText() + " ----------\r\n");
  port->Wait(kSettle);
  Lock_Unlock_All_Volumes(DriveNumber, "LOCK");
  WriteMbr();
  ClearOldBootRecords();
  CloseShellPopups();
  MountDriveVolumes(DriveNumber);
  FormatVolumes();
  GiveDriveBack();
}
