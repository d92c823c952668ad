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
#include "transfer/copy.h"
#include "transfer/file_header.h"
#include "transfer/position_expression.h"

namespace {

constexpr std::int64_t kSector = kSectorBytes;
// The file is created where it is missing, and what it holds is kept.
constexpr OpenMode kWriteFile{kAccessWrite, kShareWrite, kOpenAlways, kFlagNormal};

// What the user asks for: sectors on the drive, bytes in the file, sectors.
struct Stretch {
  double usb_start;
  double file_start;
  double sectors;
};

Stretch Evaluate(const std::string& usb_start, const std::string& file_start, const std::string& length) {
  Stretch stretch{};
  LoadDriveHeader();
  stretch.usb_start = EvalDriveStart(usb_start);
  const bool whole_drive = IsPlainNumber(length) && LeadingNumber(length) == 0;
  stretch.sectors = EvalDriveLength(whole_drive ? "DALL" : length, stretch.usb_start);
  LoadFileHeader();  // a file that is still to be created leaves the drive's sectors, and its table, in the buffer
  stretch.file_start = IsPlainNumber(file_start) ? LeadingNumber(file_start) : EvalFileStart(FileName, file_start);
  return stretch;
}

// "Sector n (Byte b or z)"; the size may count differently from the byte.
std::string Row(double sector, std::string_view format, double byte, double size) {
  return "Sector " + NumberText(sector, format) + " (Byte " + NumberText(byte, "") + " or " + SizeText(size, 3) + ")";
}

std::string Row(double sector, std::string_view format, double byte) { return Row(sector, format, byte, byte); }

std::string Plan(const Stretch& stretch, std::uint64_t file_length) {
  constexpr std::string_view kFraction = ".0##";
  const double bytes = stretch.sectors * kSector;
  const double start = stretch.usb_start;
  const double end = (start + stretch.sectors) * kSector;
  const auto drive_bytes = static_cast<double>(DriveReportedBytes);
  const double final_bytes = bytes + stretch.file_start;
  std::string plan = "\r\nLength to read:\r\n" + NumberText(stretch.sectors, "") + " sectors (" +
                     NumberText(bytes, "") + " bytes or " + SizeText(bytes, 3) + ")\r\n" +  //
                     "\r\nRead from USB Start position:\r\n" + Row(start, "", start * kSector) +
                     "\r\nWrite to File Start position:\r\n" +
                     Row(stretch.file_start / kSector, "", stretch.file_start) + "\r\n" +
                     "\r\nLast Sector to read:\r\n" + Row(end / kSector - 1, kFraction, end - 1) +
                     "\r\nDrive ends at:\r\n" + Row(drive_bytes / kSector - 1, kFraction, drive_bytes - 1) + "\r\n" +
                     "\r\nFinal File Size:      " + Row(final_bytes / kSector, kFraction, final_bytes);
  if (file_length > 0) {
    const auto length = static_cast<double>(file_length);
    plan += "\r\nCurrent File Size: " + Row(length / kSector, kFraction, length);
  }
  if (end > drive_bytes) {
    plan += "\r\n\r\nWARNING: Drive may not be large enough for the requested action (drive is " +
            PlainNumber(end - drive_bytes) + " bytes too small)!";
  }
  return plan;
}

// The last fault that is found decides the message.
void RefuseBadValues(const Stretch& stretch) {
  std::string message;
  if (stretch.usb_start < 0) {
    message = "USB start parameter sector (" + PlainNumber(stretch.usb_start) + ") invalid.";
  }
  if (stretch.file_start < 0) {
    message = "File start byte parameter (" + PlainNumber(stretch.file_start) + ") invalid.";
  }
  if (stretch.sectors < 1) {
    message = "Number of sectors to copy parameter (" + PlainNumber(stretch.sectors) + ") invalid.";
  }
  if (!message.empty()) {
    ShowUsage(true);
    ReportBox("\r\n" + message + "\r\ndrive/file may not have valid partition structure?");
    MyExitProcess(kLevelBadParameter);
  }
}

[[noreturn]] void EndCopy(const std::string& message, std::int16_t level) {
  ReportBox(message);
  MyExitProcess(level);
}

[[noreturn]] void RefuseTarget() {
  EndCopy("\r\nCannot create or invalid file " + FileName + " " + SystemErrorText(port->LastError()),
          kLevelOperational);
}

// A file that is longer than the result would keep its tail: the user may have it deleted first.
void AskAboutLongerFile(double final_bytes, std::int64_t total) {
  if (static_cast<double>(FileLength(FilePath)) <= final_bytes) {
    return;
  }
  const std::string warning = "WARNING: Existing file is longer! Only the first " + PlainNumber(total) +
                              " bytes of file " + FileName + " will be modified.";
  ConsoleWrite("\r\n" + warning);
  const int answer =
      OptSure ? kAnswerNo
              : port->ShowBox(warning + "\r\nDo you want to delete the file first?", kBoxYesNoCancel, kProgramName);
  if (answer == kAnswerYes) {
    if (!port->RemoveFile(FilePath)) {
      RefuseTarget();
    }
  } else if (answer != kAnswerNo) {
    MyExitProcess(kLevelUserAbort);
  }
}

void ReportProgress(Progress& progress, std::int64_t total, std::int64_t remaining) {
  const auto left = static_cast<double>(remaining);
  const double percent = DuePercent(progress, left);
  if (percent < 0) {
    return;
  }
  constexpr double kKibi = 1024;
  ConsoleWrite(PlainNumber(percent) + "% complete, " + NumberText((static_cast<double>(total) - left) / kKibi, ".0") +
               "KiB written to file - " + TimeLeftText(SecondsLeft(progress, left)) + " remaining\r\n");
}

void WriteChunk(std::uint64_t position, std::int64_t bytes) {
  Diagnose("File write starting at position " + PlainNumber(position) + " length=" + PlainNumber(bytes) + "bytes");
  std::uint32_t moved = 0;
  port->Write(FileHandle, ConstByteSpan(SectorBuffer).first(static_cast<std::size_t>(bytes)), moved);
  if (moved != bytes) {
    EndCopy("File write error!", kLevelOperational);
  }
}

void CopyChunk(std::uint64_t sector, std::uint64_t position, std::int64_t bytes) {
  Diagnose("File pointer set to position " + PlainNumber(position));
  const bool positioned = port->Seek(FileHandle, static_cast<std::int64_t>(position));
  const std::int64_t sectors = bytes / kSector;
  Diagnose("Read USB from sector " + PlainNumber(sector) + " for " + PlainNumber(sectors) + " sectors");
  if (!positioned) {
    EndCopy("SetFilePointer error!", kLevelOperational);
  }
  if (!DirectRead(sector, static_cast<std::int32_t>(sectors))) {
    EndCopy("\r\n*** ERROR *** writing to USB drive at Sector " + PlainNumber(sector), kLevelWriteError);
  }
  if (!OptNoWrite) {
    WriteChunk(position, bytes);
  }
}

void CopyDriveToFile(const Stretch& stretch) {
  const std::int64_t total = WholePart(std::trunc(stretch.sectors) * kSector);
  AskAboutLongerFile(static_cast<double>(total) + stretch.file_start, total);
  FileHandle = port->OpenFile(FilePath, kWriteFile);
  if (FileHandle == kInvalidHandle) {
    RefuseTarget();
  }
  SizeSectorBuffer(static_cast<std::size_t>(kChunkBytes));
  Progress progress = StartProgress(static_cast<double>(total));
  ConsoleWrite("\r\nWriting " + PlainNumber(total) + " bytes to file " + FileName + ", starting from byte " +
               PlainNumber(stretch.file_start) + " in file, from sector " + PlainNumber(stretch.usb_start) +
               " of USB drive " + std::to_string(DriveNumber) + "\r\n");
  auto position = static_cast<std::uint64_t>(WholePart(stretch.file_start));
  auto sector = static_cast<std::uint64_t>(WholePart(stretch.usb_start));
  for (std::int64_t remaining = total; remaining > 0;) {
    const std::int64_t bytes = std::min(remaining, kChunkBytes);
    CopyChunk(sector, position, bytes);
    position += static_cast<std::uint64_t>(bytes);
    remaining -= bytes;
    sector += static_cast<std::uint64_t>(bytes / kSector);
    ReportProgress(progress, total, remaining);
  }
}

}  // namespace

void DriveToFileCommand(const std::string& usb_start, const std::string& file_start, const std::string& length) {
  const Stretch stretch = Evaluate(usb_start, file_start, length);
  const std::string plan = Plan(stretch, FileLength(FilePath));
  RefuseBadValues(stretch);
  const std::string what =
      "Write " + PlainNumber(stretch.sectors) + " sectors (" + SizeText(stretch.sectors * kSector, 3) + ")";
  const std::string where = " starting at file position " + PlainNumber(stretch.file_start) +
                            " bytes, starting from sector " + PlainNumber(stretch.usb_start) + " on USB " +
                            DriveLine(1) + "\r\n" + plan;
  ConsoleWrite("\r\n" + what + " to file " + FileName + where);
  if (!Confirmed(CmdLine.substr(1) + "\r\n\r\n" + what + where, 0, "USB ---> FILE")) {
    MyExitProcess(kLevelUserAbort);
  }
  CopyDriveToFile(stretch);
  MyExitProcess(kLevelOk);
}
