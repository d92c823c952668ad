#include "support/program.h"

#include "cli/command_line.h"
#include "cli/main_run.h"
#include "cli/option_model.h"
#include "console/console.h"
#include "console/sector_dump.h"
#include "discovery/drive_list.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "drivetest/quick_test.h"
#include "drivetest/speed_test.h"
#include "format/format_service.h"
#include "format/images/boot_images.h"
#include "host/host_description.h"
#include "partition/mbr_builder.h"
#include "transfer/file_header.h"

namespace {

void ResetOptions() {
  CmdLine.clear();
  DriveNumber = 0;
  VolumeName = "KORVENTIX";
  SizeLimit = 0;
  FirstPart = 0;
  BootType.clear();
  for (bool* flag :
       {&WantBootCode, &UseFat16,   &UseFat32,  &UseNtfs,      &UseExfat,  &UseGrub4Dos,  &OptZip,  &OptChs,
        &Opt2Ptn,      &Opt2Mbr,    &OptNoAct,  &OptForceLba,  &OptUsbFdd, &OptAllDrives, &OptSure, &OptWriteMbrOnly,
        &OptDebug,     &OptNoWrite, &NoConsole, &DumpParsedOk, &FormatOk,  &FormatFailed}) {
    *flag = false;
  }
}

}  // namespace

void ResetProgram(Platform& machine) {
  port = &machine;
  ResetOptions();
  LastOpenError = 0;
  StdOutHandle = DiskHandle = FileHandle = VolumeHandle = 0;
  LockedVolumeHandles.fill(0);
  SectorBuffer.clear();
  SectorBuffer.shrink_to_fit();
  DumpText.clear();
  BinArray.fill(0);
  LastSectorLba = 0;
  LastTransferBytes = LastDllError = FormatStatus = 0;
  LastErrorText.clear();
  FileName.clear();
  FilePath.clear();
  DriveBus = DriveMedia = DriveModel = DriveFirmware = DriveSerial = "";
  DriveReportedBytes = 0;
  ::DriveBytes = 0;
  BytesPerSector = 512;
  FoundDrive = kNoDriveFound;
  FoundDriveDesc.clear();
  FoundDriveSize = 0;
  DriveListDesc.fill("");
  DriveListSize.fill(0);
  BadCount = 0;
  BadBlockTable.fill({});
  CsvSeparator = HostPcText = HostOsText = "";
  StartLba = GeomHeads = GeomSpt = 0;
  PartStartLba = PartSectors = DriveSectors = SecondPartLba = 0;
}

std::int32_t RunMain(Platform& machine) {
  ResetProgram(machine);
  try {
    Main();
  } catch (const RunEnded& end) {
    return end.level;
  }
}
