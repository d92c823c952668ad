#include "transfer/inspection.h"

#include <algorithm>
#include <cmath>

#include "cli/option_model.h"
#include "cli/usage_text.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "discovery/identification.h"
#include "disk/files.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "transfer/boot_record_text.h"
#include "transfer/file_header.h"
#include "transfer/position_expression.h"

namespace {

constexpr std::int64_t kHeaderSectors = 6;
constexpr const char* kDefaultLength = "3072";

// LENGTH= was not given, or asks for nothing.
bool IsZero(const std::string& expression) { return IsPlainNumber(expression) && LeadingNumber(expression) == 0; }

[[noreturn]] void EndWithBox(const std::string& message, std::int16_t level, int buttons = kBoxOk) {
  ReportBox(message, buttons);
  MyExitProcess(level);
}

// A box that is only for the eye.
void ShowReport(const std::string& report, std::string_view title) {
  if (!OptSure) {
    port->ShowBox(report, kBoxOk, title);
  }
}

void ReadDrive(double start, std::int64_t sectors) {
  const std::int64_t first = WholePart(start);
  const std::int64_t count = first == 0 ? kHeaderSectors : sectors;
  SizeSectorBuffer(static_cast<std::size_t>(count) * kSectorBytes);
  if (!DirectRead(static_cast<std::uint64_t>(first), static_cast<std::int32_t>(count))) {
    EndWithBox("\r\nError accessing sector " + PlainNumber(start) + " on Drive " + std::to_string(DriveNumber) +
                   "\r\n" + LastErrorText + "\r\n",
               kLevelOperational);
  }
}

std::string DriveReport(double start) {
  if (start != 0) {
    return BootRecordText() + "\r\n";
  }
  PartitionExtents extents{};
  if (ReadPartitionExtents(extents)) {
    return ExtentsText(extents) + PartitionTableText() + "\r\n";
  }
  const bool signed_sector = SectorBuffer[kSignatureOffset] == 0x55 && SectorBuffer[kSignatureOffset + 1] == 0xAA;
  return signed_sector ? BootRecordText() + "\r\n" : "";
}

// A size in bytes, with its unit and its last sector.
std::string SizeLine(std::string_view label, double bytes) {
  return std::string(label) + NumberText(bytes, "") + " bytes (" + SizeText(bytes, 3) + ")  Last LBA " +
         NumberText(std::floor(bytes / kSectorBytes) - 1, "") + "\r\n";
}

std::string DriveHeader() {
  std::string text = "Drive " + std::to_string(DriveNumber) + "  " + DriveModel + "  ";
  if (const std::string firmware = CutAtNul(DriveFirmware); !firmware.empty()) {
    text += "F/W Rev.=" + firmware;
  }
  if (!Trim(DriveSerial).empty()) {
    text += "  Serial No.=" + CutAtNul(DriveSerial);
  }
  return text + "\r\n" + SizeLine("Reported size ", static_cast<double>(DriveReportedBytes)) +
         SizeLine("Dalmerion Max ", static_cast<double>(DriveBytes));
}

// Reads so many bytes of the file from `start` on into SectorBuffer.
void ReadFileStretch(double start, std::int64_t bytes) {
  FileHandle = port->OpenFile(FilePath, kReadFile);
  if (FileHandle == kInvalidHandle) {
    EndWithBox("\r\nInvalid file " + FileName, kLevelOperational);
  }
  SizeSectorBuffer(static_cast<std::size_t>(bytes));
  Diagnose("File pointer at " + PlainNumber(start) + " for reading " + PlainNumber(bytes) + " bytes\r\n");
  if (!port->Seek(FileHandle, WholePart(start))) {
    EndWithBox("\r\nPosition too large? " + PlainNumber(start) + " " + SystemErrorText(port->LastError()),
               kLevelOperational);
  }
  std::uint32_t moved = 0;
  if (!port->Read(FileHandle, ByteSpan(SectorBuffer).first(static_cast<std::size_t>(bytes)), moved) || moved != bytes) {
    EndWithBox("File read error!", kLevelOperational);
  }
  port->Close(FileHandle);
  FileHandle = 0;
}

std::string FileReport(double start, std::int64_t bytes) {
  if (bytes < static_cast<std::int64_t>(kSectorBytes)) {
    return "";
  }
  PartitionExtents extents{};
  if (start == 0 && ReadPartitionExtents(extents)) {
    return ExtentsText(extents) + PartitionTableText() + "\r\n";
  }
  return BootRecordText() + "\r\n";
}

}  // namespace

void DriveInfoCommand(const std::string& usb_start, const std::string& copy_length) {
  constexpr std::int64_t kMostSectors = 100;
  LoadDriveHeader();
  const double start = EvalDriveStart(usb_start);
  const double length = EvalDriveLength(IsZero(copy_length) ? kDefaultLength : copy_length, start);
  const std::int64_t sectors = std::clamp<std::int64_t>(WholePart(length), 1, kMostSectors);
  ReadDrive(start, sectors);
  DumpText.clear();
  DumpSector(
      SectorBuffer,
      static_cast<std::size_t>(WholePart(start) == 0 ? std::min(sectors, kHeaderSectors) : sectors) * kSectorBytes);
  const std::string report = DriveHeader() + DriveReport(start);
  ConsoleWrite(report + DumpText);
  ShowReport(report, "");
  MyExitProcess(kLevelOk);
}

void FileInfo(const std::string& file_start, const std::string& copy_length) {
  if (FileName.empty()) {
    ShowUsage(true);
    MyExitProcess(kLevelOperational);
  }
  if (!FileExists(FilePath)) {
    EndWithBox("File " + FileName + " does not exist!", kLevelBadParameter);
  }
  if (!LoadFileHeader()) {
    EndWithBox("ERROR: Could not open file " + FileName, kLevelOperational, kBoxStop);
  }
  const double start = EvalFileStart(FileName, file_start);
  const double length = EvalFileLength(FileName, IsZero(copy_length) ? kDefaultLength : copy_length, start);
  const std::int64_t bytes = std::clamp<std::int64_t>(WholePart(length), 0, LastTransferBytes);
  ReadFileStretch(start, bytes);
  LastSectorLba = static_cast<std::uint64_t>(WholePart(start) / kSectorBytes);
  DumpText.clear();
  const auto shown = static_cast<std::size_t>(bytes);
  DumpSector(ConstByteSpan(SectorBuffer).first(shown), shown);
  const std::string report = FileReport(start, bytes);
  const std::string start_line = "\r\nFile Start Byte " + PlainNumber(start) + " (Sector " +
                                 NumberText(start / kSectorBytes, "#############0.0##") + ")";
  const std::uint64_t size = FileLength(FilePath);
  const std::string size_line = "\r\n" + FileName + " is " + NumberText(size, "##################0") + " bytes long (" +
                                SizeText(static_cast<double>(size), 3) + ").\r\n";
  ConsoleWrite(start_line + DumpText + "\r\n" + report + size_line + "\r\n");
  ShowReport(start_line + report + size_line + "\r\n", "KORVENTIX - FILEINFO");
  MyExitProcess(kLevelOk);
}
