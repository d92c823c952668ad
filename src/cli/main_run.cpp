#include "cli/main_run.h"

#include <string>

#include "cli/command_line.h"
#include "cli/option_model.h"
#include "cli/preparation.h"
#include "cli/usage_text.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/random_source.h"
#include "console/sector_dump.h"
#include "discovery/drive_list.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "drivetest/erase.h"
#include "drivetest/quick_test.h"
#include "drivetest/speed_test.h"
#include "host/host_description.h"
#include "host/windows_version.h"
#include "partition/reorder.h"
#include "transfer/copy.h"
#include "transfer/file_header.h"
#include "transfer/inspection.h"

namespace {

constexpr std::string_view kVersion = KORVENTIX_VERSION;
constexpr std::uint64_t kLargeDeviceBytes = 65'000'000'000;

// FIND and GETDRV print lines for batch files and nothing else.
bool SpeaksToBatchFiles() { return HasKeyword(" GETDRV") || HasKeyword(" FIND"); }

void StartUp() {
  port->SuppressErrorBoxes();
  SeedRandom(port->RandomSeed());
  if (!ConsoleWrite("")) {
    NoConsole = true;
  }
  DescribeHost();
}

void PrintBanner() {
  const std::string title = std::string(kProgramName) + " v" + std::string(kVersion);
  if (SpeaksToBatchFiles() || ConsoleWrite("\r\n" + title + "\r\n" + std::string(title.size(), '=') + "\r\n")) {
    return;
  }
  port->ShowBox("Please relink for console output", kBoxOk, kProgramName);
  NoConsole = true;
}

void PrintSetLine(const std::string& name, const std::string& value) { ConsoleWrite("\r\nSET " + name + "=" + value); }

// The lines of one drive: description, usable bytes and letter, behind the variables' common name.
void PrintDriveLines(const std::string& name, const std::string& description, std::int64_t bytes, std::int32_t drive) {
  PrintSetLine(name + "DESC", description);
  PrintSetLine(name + "SIZE", PlainNumber(bytes));
  PrintSetLine(name + "LETTER", GetDriveLetter(drive));
}

// FIND: what the scan found, as lines of a batch file.
[[noreturn]] void FindCommand() {
  ListDrives(false);
  if (FoundDrive == kNoDriveFound) {
    PrintSetLine("DRIVE", "");
    PrintSetLine("DRIVEDESC", FoundDriveDesc);
    PrintSetLine("DRIVESIZE", "0");
    PrintSetLine("DRIVELETTER", "(NO USB DRIVES WITH MEDIA)");
    MyExitProcess(kLevelNotFound);
  }
  PrintSetLine("DRIVE", std::to_string(FoundDrive));
  PrintDriveLines("DRIVE", FoundDriveDesc, FoundDriveSize, FoundDrive);
  for (std::int32_t drive = 0; drive <= kHighestListedDrive; ++drive) {
    const auto entry = static_cast<std::size_t>(drive);
    if (DriveListSize[entry] != 0) {
      PrintDriveLines("DRIVE" + std::to_string(drive), DriveListDesc[entry], DriveListSize[entry], drive);
    }
  }
  MyExitProcess(kLevelOk);
}

[[noreturn]] void ListCommand() {
  ListDrives(true);
  MyExitProcess(FoundDrive == kNoDriveFound ? kLevelNotFound : kLevelOk);
}

// GETDRV: the same lines for the drive that the command names; a number without a place in the list has no description
// and no size.
[[noreturn]] void GetDriveCommand() {
  const std::int32_t drive = DriveNumber;  // the scan overwrites it
  ListDrives(false);
  if (FoundDrive != kNoDriveFound) {
    PrintSetLine("USBDRIVE", std::to_string(drive));
    if (drive >= 0 && drive <= kHighestListedDrive) {
      const auto entry = static_cast<std::size_t>(drive);
      PrintSetLine("USBDRIVEDESC", DriveListDesc[entry]);
      PrintSetLine("USBDRIVESIZE", PlainNumber(DriveListSize[entry]));
    }
    PrintSetLine("USBDRIVELETTER", GetDriveLetter(drive));
  }
  MyExitProcess(kLevelOk);
}

// The modes that are answered without a drive, in the order in which they take the run.
void RunModesWithoutDrive(const PositionArguments& arguments) {
  if (HasKeyword(" FIND")) {
    FindCommand();
  }
  if (HasKeyword(" LIST")) {
    ListCommand();
  }
  if (HasKeyword(" FILEINFO")) {
    FileInfo(arguments.file_start, arguments.copy_length);
  }
}

void RefuseDrive() {
  const std::string drive = std::to_string(DriveNumber);
  if (!OptAllDrives && DriveBus != "USB") {
    ReportBox("\r\nDrive " + drive + " is not a USB drive!");
    MyExitProcess(kLevelNotUsb);
  }
  if (DriveBytes == 0) {
    ReportBox(
        "\r\nCannot find drive " + drive +
        "\r\nPlease ensure you have specified DRIVE=n where n is a NUMBER not a letter - add ALLDRIVES for non-USB "
        "drives.");
    MyExitProcess(kLevelNotFound);
  }
  if (BytesPerSector != kSectorBytes) {
    constexpr std::uint32_t kAdvancedFormat = 4096;
    ReportBox("\r\nERROR: Drive " + drive + " is reported as " +
              (BytesPerSector == kAdvancedFormat ? "a 4K" : "not a 512") + "-bytes per sector drive!");
    MyExitProcess(kLevelOperational);
  }
}

void AskAboutLargeDevice() {
  if (DriveReportedBytes > kLargeDeviceBytes &&
      !Confirmed("Drive " + std::to_string(DriveNumber) + " " + DriveModel +
                 " appears to be a large device!\r\nPress OK to continue or Cancel to abort")) {
    MyExitProcess(kLevelUserAbort);
  }
}

void OpenDrive() {
  constexpr std::uint32_t kBeforeSecondTry = 1000;
  if (Open_Physical_Disk_hDrive(DriveNumber)) {
    return;
  }
  port->Wait(kBeforeSecondTry);
  if (Open_Physical_Disk_hDrive(DriveNumber)) {
    return;
  }
  if (WindowsVersionIndex() >= kWindowsVista) {
    ReportBox("Error accessing device - Please right-click on .exe file and choose 'Run as Administrator'", kBoxStop,
              WindowsVersionText());
  } else {
    // Behind "Err=" stand a run-time error's description, this code and that error's number: there are no run-time
    // errors, so the first is empty and the last is 0.
    ReportBox("\r\nFailed to open handle on disk " + std::to_string(DriveNumber) +
              " Err=" + std::to_string(LastOpenError) + "0");
  }
  MyExitProcess(kLevelOperational);
}

void CheckAndOpenDrive() {
  MountDriveVolumes(DriveNumber);
  GetUSBDiskDriveInfo(DriveNumber);
  ConsoleWrite("\r\nAccessing Drive " + std::to_string(DriveNumber) + " - \"" + DriveModel + "\" (" +
               NumberText(DriveReportedBytes, "") + " bytes)\r\n");
  RefuseDrive();
  AskAboutLargeDevice();
  OpenDrive();
}

void ProveFirstSectors() {
  if (!DirectRead(0, 2)) {
    ConsoleWrite("\r\nError accessing sector 0 on Drive " + std::to_string(DriveNumber) + "\r\n" + LastErrorText +
                 "\r\n");
    MyExitProcess(kLevelOperational);
  }
  if (OptDebug) {
    DebugWrite("\r\nCURRENT DRIVE CONTENTS:");
    PrintDump(SectorBuffer);
  }
}

// A copy without a file shows how it is done.
void RequireFile() {
  if (FileName.empty()) {
    ShowUsage(true);
    ReportBox("\r\nNeed FILE=\"fred.bin\" (in quotes)\r\n");
    MyExitProcess(kLevelOperational);
  }
}

// The modes on an open drive, in the order in which they take the run.
void RunModesOnDrive(const PositionArguments& arguments) {
  if (HasKeyword(" DRIVEINFO") || HasKeyword(" USBINFO")) {
    DriveInfoCommand(arguments.usb_start, arguments.copy_length);
  }
  if (HasKeyword(" USBTOFILE")) {
    RequireFile();
    DriveToFileCommand(arguments.usb_start, arguments.file_start, arguments.copy_length);
  }
  if (HasKeyword(" FILETOUSB")) {
    RequireFile();
    FileToDriveCommand(arguments.usb_start, arguments.file_start, arguments.copy_length);
  }
  ProveFirstSectors();
  if (HasKeyword(" FIRSTPART")) {
    ReorderPartitions(DriveNumber, FirstPart);
  }
  if (HasKeyword(" CLEAN")) {
    CleanDrive(DriveNumber);
  }
  if (HasKeyword(" ERASE")) {
    EraseDrive();
  }
  if (HasKeyword(" QUICKTEST")) {
    QuickTest();
  }
  if (HasKeyword(" SPEEDTEST")) {
    SpeedTest();
  }
}

}  // namespace

void Main() {
  constexpr std::size_t kFirstBufferSectors = 6;
  StartUp();
  const std::string raw_line = port->CommandLine();
  BuildCmdLine(raw_line);
  if (!SpeaksToBatchFiles()) {
    ConsoleWrite("\r\nCOMMAND LINE: " + raw_line + "\r\n");
  }
  const std::string volume_message = TakeVolumeName(raw_line);
  OptAllDrives = HasKeyword(" ALLDRIVES");
  ParseSizeLimit();
  PrintBanner();
  SizeSectorBuffer(kFirstBufferSectors * kSectorBytes);
  const PositionArguments arguments = ParseArguments();
  ParseLayoutFlags();
  DeriveBootType();
  ParseRunFlags();
  RefuseConflicts();

  RunModesWithoutDrive(arguments);
  if (!ParseDriveNumber()) {
    ShowUsage(false);
    MyExitProcess(kLevelBadParameter);
  }
  if (!volume_message.empty()) {
    ConsoleWrite(volume_message);
  }
  if (HasKeyword(" GETDRV")) {
    GetDriveCommand();
  }
  CheckAndOpenDrive();
  RunModesOnDrive(arguments);
  if (OptWriteMbrOnly) {
    WriteMbrOnly();
  }
  PrepareDrive();
}
