#include "format/format_service.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "discovery/drive_list.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "format/images/boot_images.h"
#include "host/windows_version.h"
#include "partition/mbr_builder.h"

namespace {

constexpr std::uint32_t kStatusInterrupted = 0x0F;  // the old file system is gone, the new one not complete
constexpr std::uint32_t kStatusCompleted = 0x0B;
constexpr std::size_t kLetterCharacters = 2;

struct StatusRow {
  std::uint32_t status;
  std::string_view log;
  bool fails;
  std::string_view error;  // as the last status
};
constexpr std::array kStatuses{
    StatusRow{0x01, " FS has completed initialisation", false, "Error: FS completed initialisation OK."},
    StatusRow{0x06, " Insufficient rights!", true, "Error: Insufficient access rights."},
    StatusRow{0x07, " Write Protect!", true, "Error: Write protect error."},
    StatusRow{0x08, " Disk locked for access!", true,
              "Error: Volume is locked for access or not accessible. Please quit any Explorer window or application "
              "accessing "},  // with the letter behind
    StatusRow{kStatusCompleted, " COMPLETED.", false, ""},
    StatusRow{0x0E, " Output ???", false, "Error: Output error??."},
    StatusRow{kStatusInterrupted, " FS has been initialised", false, "Error: FS has been wiped (but not completed)."},
    StatusRow{0x10, " Cluster size too small", true, "Error: Cluster size too small."},
};
constexpr std::uint32_t kStatusLocked = 0x08;

const StatusRow* RowOf(std::uint32_t status) {
  const auto* found =
      std::find_if(kStatuses.begin(), kStatuses.end(), [=](const StatusRow& row) { return row.status == status; });
  return found == kStatuses.end() ? nullptr : found;
}

// What the two kinds of volume differ in.
struct KindTexts {
  std::string_view title;
  std::string_view start;
  std::string_view file_system;  // as the service is asked for it
  std::string_view trace;
  std::string_view command;  // behind the letter in the fallback's command line
  std::string_view heading;
  std::string_view wrong_sector;
  std::string_view jump;   // what a boot sector begins with
  std::string_view name;   // and has at kNameOffset
  std::size_t head_bytes;  // of the sector that are the volume's own
};
constexpr std::size_t kNameOffset = 3;
constexpr KindTexts kExfatTexts{
    "\r\nEXFAT_Format: FORMATTING AS exFAT",
    "\r\nRunning Windows FormatEx API on volume ",
    "EXFAT",
    " Result of Format_NTFS (exFAT) was ",
    " /fs:EXFAT /q /x /v:",
    "\r\nReading EXFAT Volume Boot Record at LBA ",
    "\r\nNew Partition Boot Record is not exFAT or invalid!\r\n",
    "\xEB",
    "EXFAT",
    0x79,
};
constexpr KindTexts kNtfsTexts{
    "\r\nNTFS_Format: FORMATTING AS NTFS",
    "\r\nRunning Windows NTFS FormatEx API on volume ",
    "",
    " Result of Format_NTFS was ",
    " /fs:NTFS /q /x /v:",
    "\r\nReading NTFS Volume Boot Record at LBA ",
    "\r\nNew Boot sector is not NTFS or invalid!\r\n",
    "\xEB\x52",
    "NTFS",
    0x54,
};
const KindTexts& TextsOf(ServiceFormat kind) { return kind == ServiceFormat::kExfat ? kExfatTexts : kNtfsTexts; }

// A letter may not be there at once after the table has changed: three looks, with longer and longer waits.
std::string WaitForLetter() {
  constexpr std::uint32_t kFirstWait = 1000;
  ReMount_Drive(DriveNumber);
  port->Wait(kFirstWait);
  std::string letter = GetDriveLetter(DriveNumber);
  for (const std::uint32_t wait : {2000U, 5000U}) {
    if (letter.size() != kLetterCharacters) {
      port->Wait(wait);
      ReMount_Drive(DriveNumber);
      letter = GetDriveLetter(DriveNumber);
    }
  }
  if (letter.size() != kLetterCharacters) {
    ReportBox("\r\nNo drive letter obtained for drive " + std::to_string(DriveNumber), kBoxStop);
    MyExitProcess(kLevelOperational);
  }
  return letter;
}

// The system's own command for NTFS takes no removable drives before Vista.
bool FallbackOffered(ServiceFormat kind) {
  return kind == ServiceFormat::kExfat || WindowsVersionIndex() >= kWindowsVista ||
         UpperCase(DriveMedia).find("REMOVABLE") == std::string::npos;
}

// A box whatever OptSure says: another program is about to be let at the drive.
void OfferFallback(const std::string& command) {
  const int answer =
      port->ShowBox("FormatEx failed: OK to format using \r\n" + command, kBoxOkCancel, "Use Windows Format?");
  if (answer == kAnswerOk && RunAndWait(command) == 0) {
    FormatOk = true;
  }
}

std::string FinalError(const std::string& letter) {
  const StatusRow* row = RowOf(FormatStatus);
  if (row == nullptr) {
    return "Unknown format error " + std::to_string(FormatStatus) + "!";
  }
  return std::string(row->error) + (FormatStatus == kStatusLocked ? letter + "." : "");
}

void OpenDriveAgain() {
  constexpr std::uint32_t kSettle = 500;
  constexpr std::uint32_t kSecondTry = 1000;
  port->Wait(kSettle);
  if (Open_Physical_Disk_hDrive(DriveNumber)) {
    return;
  }
  port->Wait(kSecondTry);
  if (!Open_Physical_Disk_hDrive(DriveNumber)) {
    // Behind the code stands the number of a run-time error, of which there are none.
    ConsoleWrite("\r\nFailed to open handle on disk " + std::to_string(DriveNumber) +
                 " Err=" + std::to_string(LastOpenError) + "0");
    MyExitProcess(kLevelOperational);
  }
}

bool SectorHas(std::size_t offset, std::string_view text) {
  return std::equal(text.begin(), text.end(), SectorBuffer.begin() + static_cast<std::ptrdiff_t>(offset),
                    [](char character, std::uint8_t byte) { return static_cast<std::uint8_t>(character) == byte; });
}

void CheckBootSector(ServiceFormat kind) {
  constexpr int kWindowsXp = 7;
  const KindTexts& texts = TextsOf(kind);
  if (SectorHas(0, texts.jump) && SectorHas(kNameOffset, texts.name) && SectorHas(kSignatureOffset, "\x55\xAA")) {
    return;
  }
  ConsoleWrite(texts.wrong_sector);
  if (kind == ServiceFormat::kExfat && WindowsVersionIndex() == kWindowsXp) {
    ConsoleWrite("\r\nPlease install the KB955704 update for exFAT support on XP.\r\n");
  }
  MyExitProcess(kLevelBootRecord);
}

}  // namespace

std::string PrepareFormat(const std::string& label, ServiceFormat kind) {
  const KindTexts& texts = TextsOf(kind);
  ConsoleWrite(texts.title);
  std::string letter = WaitForLetter();
  ConsoleWrite(std::string(texts.start) + letter + " - please wait...");
  Format_NTFS(letter, label, std::string(texts.file_system));
  DebugLog(std::string(texts.trace) + (FormatOk ? "True" : "False"));
  if (!FormatOk && FallbackOffered(kind)) {
    OfferFallback("FORMAT.COM /y " + letter + std::string(texts.command) + label);
  }
  if (!FormatOk) {
    ReportBox("\r\n" + FinalError(letter), kBoxStop);
    if (FormatStatus != kStatusInterrupted) {
      MyExitProcess(kLevelOperational);
    }
  }
  return letter;
}

void Format_NTFS(const std::string& volume, const std::string& label, const std::string& file_system) {
  const std::string root = volume.substr(0, kLetterCharacters);
  const std::string type = DriveTypeText(root);
  std::uint32_t media = 0;
  if (type == "Removable Drive") {
    media = kMediaRemovable;
  } else if (type == "Fixed Drive") {
    media = kMediaFixed;
  } else {
    ReportBox("Unsupported drive type: " + type);
    return;
  }
  DebugLog(" ------- FORMAT API -------------");
  port->FormatVolume(root, media, file_system == "EXFAT" ? "EXFAT" : "NTFS", label, FormatExCallback);
}

std::uint32_t FormatExCallback(std::uint32_t status, std::uint32_t sub_action, std::uint32_t action_info) {
  const StatusRow* row = RowOf(status);
  FormatFailed = FormatFailed || (row != nullptr && row->fails);
  if (status != kStatusCompleted) {
    FormatStatus = status;
  }
  DebugLog(" Status: " + std::to_string(status) + " SubAction: " + std::to_string(sub_action) +
           " ActionInfo: " + std::to_string(action_info) + std::string(row == nullptr ? "" : row->log));
  FormatOk = status == kStatusCompleted && !FormatFailed;
  return 1;
}

std::int32_t RunAndWait(const std::string& command) {
  constexpr std::int32_t kNotStarted = -1;
  constexpr std::int32_t kStateUnknown = -2;
  constexpr std::uint32_t kPoll = 55;
  const Handle process = port->StartProcess(command);
  if (process == kInvalidHandle) {
    return kNotStarted;
  }
  std::int32_t result = kStateUnknown;
  std::uint32_t code = kStillActive;
  while (code == kStillActive) {
    if (!port->QueryExitCode(process, code)) {
      result = kStateUnknown;
      break;
    }
    port->Wait(kPoll);
    result = static_cast<std::int32_t>(code);
  }
  port->Close(process);
  return result;
}

std::string DriveTypeText(const std::string& root) {
  constexpr std::array<std::string_view, 7> kTypes{"Unknown Drive", "Unmounted Drive",      "Removable Drive",
                                                   "Fixed Drive",   "Remote/Network Drive", "CD-ROM Drive",
                                                   "RAM Disk"};
  const std::uint32_t type = port->DriveType(root + "\\");
  return std::string(type < kTypes.size() ? kTypes[type] : "Drive Doesn't Exist");
}

void ReadVolumeBootRecord(ServiceFormat kind) {
  const KindTexts& texts = TextsOf(kind);
  ConsoleWrite(std::string(texts.heading) + PlainNumber(StartLba));
  OpenDriveAgain();
  DirectRead(static_cast<std::uint64_t>(StartLba), 1);  // a failure leaves a sector that the check refuses
  if (OptDebug) {
    PrintDump(SectorBuffer);
  }
  CheckBootSector(kind);
  std::copy_n(SectorBuffer.begin(), texts.head_bytes, BinArray.begin());
  ConsoleWrite(" OK");
  if (OptDebug) {
    ConsoleWrite("\r\nNew Volume boot sector now ...");
    PrintDump(BinArray);
  }
}

void MergeBootCode(ServiceFormat kind, std::int32_t sectors) {
  const std::size_t bytes = static_cast<std::size_t>(sectors) * kSectorBytes;
  SizeSectorBuffer(bytes);
  ReadVolumeBootRecord(kind);
  Diagnose("\r\nPerforming memory copy from BinArray to SectorBuffer..");
  std::copy_n(BinArray.begin(), bytes, SectorBuffer.begin());
  Diagnose("\r\nFinished memory copy from BinArray to SectorBuffer..");
}

void WriteBootCode(const std::string& letter, std::int32_t sectors, int copies) {
  constexpr std::uint32_t kBeforeWrite = 1000;
  constexpr std::uint32_t kBetweenRemounts = 2000;
  port->Wait(kBeforeWrite);
  Diagnose("\r\nWriting " + std::to_string(sectors) + " blocks to drive " + std::to_string(DriveNumber));
  Open_Lock_Dismount_Volume(letter);
  bool written = true;
  auto lba = static_cast<std::uint64_t>(StartLba);
  for (int copy = 0; copy < copies && written; ++copy) {
    written = DirectWrite(lba, sectors);
    lba += static_cast<std::uint64_t>(sectors);
  }
  UnLock_Close_Volume();
  if (!written) {
    ConsoleWrite("\r\nERROR: Write to Disk Failed! " + LastErrorText + "\r\n");
    MyExitProcess(kLevelWriteError);
  }
  ConsoleWrite("\r\nBoot sector code updated OK");
  if (OptDebug) {
    PrintDump(SectorBuffer);
  }
  ReMount_Drive(DriveNumber);  // the system is to see the new boot sector
  port->Wait(kBetweenRemounts);
  ReMount_Drive(DriveNumber);
}
