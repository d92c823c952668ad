#include <algorithm>
#include <cmath>

#include "cli/command_line.h"
#include "cli/option_model.h"
#include "cli/usage_text.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/progress.h"
#include "discovery/drive_list.h"
#include "discovery/identification.h"
#include "disk/files.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "transfer/copy.h"
#include "transfer/file_header.h"
#include "transfer/position_expression.h"

namespace {

constexpr std::int64_t kSector = kSectorBytes;

// What the user asks for: sectors on the drive, bytes in the file, bytes.
struct Stretch {
  double usb_start;
  double file_start;
  double length;
};

Stretch Evaluate(const std::string& usb_start, const std::string& file_start, const std::string& length) {
  Stretch stretch{};
  LoadDriveHeader();
  stretch.usb_start = EvalDriveStart(usb_start);
  LoadFileHeader();
  stretch.file_start = EvalFileStart(FileName, file_start);
  stretch.length = EvalFileLength(FileName, length, stretch.file_start);
  return stretch;
}

// "Byte n (Sector s or z)"; the size may count differently from the byte, and so may the sector.
std::string Row(double byte, double sector, double size) {
  return "Byte " + NumberText(byte, "") + " (Sector " + NumberText(sector, ".0##") + " or " + SizeText(size, 3) + ")";
}

std::string Warnings(double file_end, double drive_end, double file_bytes) {
  std::string text;
  if (file_end > file_bytes) {
    text += "\r\n\r\nWARNING: File is not large enough for the requested action!";
  }
  const auto drive_bytes = static_cast<double>(DriveReportedBytes);
  if (drive_end > drive_bytes) {
    text += "\r\n\r\nWARNING: Drive is not large enough for the requested action (" + PlainNumber(drive_end) + " v. " +
            PlainNumber(drive_bytes) + ") !";
  }
  return text;
}

std::string Plan(const Stretch& stretch) {
  const double length = stretch.length;
  const double from = stretch.file_start;
  const double to = stretch.usb_start * kSector;
  const double file_end = from + length;
  const double drive_end = length + to;
  const auto drive_bytes = static_cast<double>(DriveReportedBytes);
  const auto file_bytes = static_cast<double>(FileLength(FilePath));
  return "\r\nLength to write:        " + NumberText(length, "") + " bytes (" + NumberText(length / kSector, ".0##") +
         " sectors or " + SizeText(length, 3) + ")\r\n" +  //
         "\r\nFrom: File Start position:    " + Row(from, from / kSector, from) +
         "\r\nTo:    USB Start position:   " + Row(to, stretch.usb_start, to) + "\r\n" +
         "\r\nUSB Last Sector written:     " + Row(drive_end - 1, stretch.usb_start + length / kSector - 1, drive_end) +
         "\r\nUSB Drive Ends at:             " + Row(drive_bytes - 1, drive_bytes / kSector - 1, drive_bytes - 1) +
         "\r\n" +  //
         "\r\nFile End byte:      " + Row(file_end - 1, file_end / kSector - 1, file_end) +
         "\r\nLast file byte:    " + Row(file_bytes - 1, file_bytes / kSector - 1, file_bytes - 1) +
         Warnings(file_end, drive_end, file_bytes);
}

// The last fault that is found decides the message.
void RefuseBadValues(const Stretch& stretch) {
  std::string message;
  if (stretch.usb_start < 0) {
    message = "USB start parameter " + PlainNumber(stretch.usb_start) + " invalid";
  }
  if (stretch.file_start < 0) {
    message = "File start byte parameter " + PlainNumber(stretch.file_start) + " invalid";
  }
  if (stretch.length < 1) {
    message = "Length of bytes to copy = " + PlainNumber(stretch.length) + "!";
  }
  if (!message.empty()) {
    ShowUsage(true);
    ReportBox("\r\n" + message, kBoxExclamation);
    MyExitProcess(kLevelBadParameter);
  }
}

std::string RemainderWarning(double length) {
  const double sectors = std::trunc(length / kSector);
  if (sectors * kSector == length) {
    return "";
  }
  return "\r\n\r\nWARNING: Remainder (" + PlainNumber((sectors + 1) * kSector - length) +
         " bytes) written to the last sector of the drive will be garbage!";
}

void ReportProgress(Progress& progress, std::int64_t total, std::int64_t remaining) {
  const auto left = static_cast<double>(remaining);
  const double percent = DuePercent(progress, left);
  if (percent < 0) {
    return;
  }
  constexpr double kKibi = 1024;
  const std::string line = PlainNumber(percent) + "% complete, " +
                           PlainNumber((static_cast<double>(total) - left) / kKibi) + "KiB written to USB drive - " +
                           TimeLeftText(SecondsLeft(progress, left)) + " remaining\r\n";
  ConsoleWrite(line);
  DebugWrite(line);
}

[[noreturn]] void EndCopy(const std::string& message, std::int16_t level) {
  ReportBox(message);
  Lock_Unlock_All_Volumes(DriveNumber, "UNLOCK");
  MyExitProcess(level);
}

// Reads the chunk into SectorBuffer. What lies behind the file's end keeps what the buffer held, and so it does where
// the file can't be positioned.
void ReadChunk(std::uint64_t position, std::int64_t bytes, std::int64_t remaining) {
  if (!port->Seek(FileHandle, static_cast<std::int64_t>(position))) {
    Diagnose("SetFilePointer failed");
  }
  Diagnose("Reading " + PlainNumber(bytes) + " starting at position " + PlainNumber(position) + " (" +
           PlainNumber(remaining) + " bytes remaining)\r\n");
  std::uint32_t moved = 0;
  if (!port->Read(FileHandle, ByteSpan(SectorBuffer).first(static_cast<std::size_t>(bytes)), moved)) {
    EndCopy("File read error - Length=" + PlainNumber(bytes), kLevelOperational);
  }
}

void WriteChunk(std::uint64_t sector, std::int64_t sectors) {
  Diagnose("USB Write sector to " + PlainNumber(sector) + " for " + PlainNumber(sectors) + " sectors\r\n");
  if (!OptNoWrite && !DirectWrite(sector, static_cast<std::int32_t>(sectors))) {
    EndCopy("\r\n*** ERROR *** writing to USB drive at Sector " + PlainNumber(sector), kLevelWriteError);
  }
}

void CopyChunks(const Stretch& stretch, std::int64_t total) {
  Progress progress = StartProgress(static_cast<double>(total));
  auto position = static_cast<std::uint64_t>(WholePart(stretch.file_start));
  auto sector = static_cast<std::uint64_t>(WholePart(stretch.usb_start));
  for (std::int64_t remaining = total; remaining > 0;) {
    const std::int64_t wanted = std::min(remaining, kChunkBytes);
    ReadChunk(position, wanted, remaining);
    const std::int64_t sectors = (wanted + kSector - 1) / kSector;
    WriteChunk(sector, sectors);
    position += static_cast<std::uint64_t>(sectors * kSector);
    remaining -= sectors * kSector;
    sector += static_cast<std::uint64_t>(sectors);
    ReportProgress(progress, total, remaining);
  }
}

void OpenSource() {
  FileHandle = port->OpenFile(FilePath, kReadFile);
  if (FileHandle == kInvalidHandle) {
    ReportBox("Invalid file " + FileName);
    MyExitProcess(kLevelOperational);
  }
}

bool CopyFileToDrive(const Stretch& stretch) {
  constexpr std::uint32_t kSettle = 1000;
  if (!FileExists(FilePath) || FileLength(FilePath) == 0) {
    return false;
  }
  const std::int64_t total = WholePart(stretch.length);
  OpenSource();
  Open_Lock_Dismount_Volume(GetDriveLetter(DriveNumber));
  port->Wait(kSettle);
  SizeSectorBuffer(static_cast<std::size_t>(kChunkBytes));
  ConsoleWrite("\r\nWriting " + PlainNumber(total) + " bytes from file " + FileName + ", starting at byte " +
               PlainNumber(stretch.file_start) + ", to USB drive " + std::to_string(DriveNumber) +
               ", starting at sector " + PlainNumber(stretch.usb_start) + "\r\n");
  Diagnose(port->DateTimeText() + " ChunkSize=" + PlainNumber(kChunkBytes));
  CopyChunks(stretch, total);
  port->Close(FileHandle);
  FileHandle = 0;
  UnLock_Close_Volume();
  MyCloseHandle(DiskHandle);
  ConsoleWrite("\r\nRemounting drive " + std::to_string(DriveNumber) + "...");
  ReMount_Drive(DriveNumber);
  ConsoleWrite("\r\nFinished");
  return true;
}

}  // namespace

void FileToDriveCommand(const std::string& usb_start, const std::string& file_start, const std::string& length) {
  if (!FileExists(FilePath)) {
    ReportBox("Error: File " + FileName + " does not exist!", kBoxExclamation);
    MyExitProcess(kLevelBadParameter);
  }
  const Stretch stretch = Evaluate(usb_start, file_start, length);
  const std::string plan = Plan(stretch);
  RefuseBadValues(stretch);
  const std::string what = "Write " + PlainNumber(stretch.length) + " bytes (" + SizeText(stretch.length, 3) + ")";
  const std::string where = " starting at file position " + PlainNumber(stretch.file_start) + " bytes, to USB sector " +
                            PlainNumber(stretch.usb_start) + " " + DriveLine(1) + RemainderWarning(stretch.length) +
                            "\r\n" + plan;
  ConsoleWrite("\r\n" + what + " from file " + FileName + where);
  if (!Confirmed(CmdLine.substr(1) + "\r\n\r\n" + what + where, 0, "FILE ---> USB")) {
    MyExitProcess(kLevelUserAbort);
  }
  MyExitProcess(CopyFileToDrive(stretch) ? kLevelOk : kLevelOperational);
}
