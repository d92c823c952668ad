#include "drivetest/speed_test.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "discovery/identification.h"
#include "disk/files.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "host/host_description.h"

namespace {

constexpr std::int32_t kRunSectors = 130'000;
constexpr std::uint32_t kRunBytes = std::uint32_t{kRunSectors} * kSectorBytes;
constexpr double kMebi = 1'048'576;
constexpr const char* kLocalFile = "USBSpeed.csv";
constexpr const char* kDecimalPointFile = "USBSpeedDP.csv";
constexpr const char* kDecimalPointSeparator = ",";

void AskBeforeTest() {
  if (!Confirmed("\r\nNON-DESTRUCTIVE SPEEDTEST on Drive " + std::to_string(DriveNumber) + "\r\n\r\n   " + DriveModel +
                     "\r\n\r\nWARNING: DATA MAY BE DESTROYED IF A WRITE ERROR OCCURS!\r\n",
                 0, "Non-destructive read/write speed test")) {
    MyExitProcess(kLevelUserAbort);
  }
}

void TakeDriveForOneself() {
  MyCloseHandle(DiskHandle);
  GetUSBDiskDriveInfo(DriveNumber);
  ReMount_Drive(DriveNumber);
  Lock_Unlock_All_Volumes(DriveNumber, "LOCK");
  MyCloseHandle(DiskHandle);
  Open_Physical_Disk_hDrive(DriveNumber);  // where that fails, so does the read
}

// --- Speeds --------------------------------------------------------------------------------------------------------

// Milliseconds of one transfer of the whole run, at least 1; 0 when it failed. Nothing but the transfer lies between
// the two ticks, which wrap at 2^32.
std::uint32_t TimeOf(bool (*transfer)(std::uint64_t, std::int32_t)) {
  const std::uint32_t start = port->TickCount();
  const bool done = transfer(0, kRunSectors);
  const std::uint32_t end = port->TickCount();
  return done ? std::max(end - start, std::uint32_t{1}) : 0;
}

double MebiPerSecond(std::uint32_t milliseconds) { return kRunBytes / (milliseconds / 1000.0 * kMebi); }

// The divisor of the time is meant to be 1024: figures of earlier runs would not compare with any other.
double MegaPerSecond(std::uint32_t milliseconds) { return kRunBytes / (milliseconds / 1024.0 * 1'000'000); }

std::string LocalSpeed(double speed) { return NumberText(speed, ".0"); }

// The same cut to one decimal, but without commas.
std::string DecimalPointSpeed(double speed) { return PlainNumber(std::floor(speed * 10) / 10); }

// "Read 63.4765625 MiB in 2 seconds = 31.7MiB/s".
std::string SpeedText(std::string_view done, std::uint32_t milliseconds) {
  return "\r\n" + std::string(done) + " " + PlainNumber(kRunBytes / kMebi) + " MiB in " +
         PlainNumber(milliseconds / 1000.0) + " seconds = " + LocalSpeed(MebiPerSecond(milliseconds)) + "MiB/s ";
}

// --- The two files -------------------------------------------------------------------------------------------------

// The comma in the first name is one in both files.
std::string HeaderRow(const std::string& separator) {
  std::string row = "USB MODEL,SIZE (MiB)";
  for (const char* name : {"Operating System", "Platform", "Seq. Rd/Wr", "SPEED (MiB/s)", "SPEED (MB/s)"}) {
    row += separator + name;
  }
  return row + "\r\n";
}

std::string SpeedRow(const std::string& separator, const std::string& direction, const std::string& mebi,
                     const std::string& mega) {
  // Joined by a comma in both files; the texts keep the commas of their own.
  const std::string host = HostOsText + "," + HostPcText;
  std::string row = DriveModel;
  for (const std::string& field : {PlainNumber(DriveReportedBytes >> 20), host, direction, mebi, mega}) {
    row += separator + field;
  }
  return row + "\r\n";
}

// A file that can't be opened loses its rows, and the test goes on.
void AppendToFile(const char* name, const std::string& text) {
  const Handle file =
      port->OpenFile(port->PathBesideProgram(name), {kAccessWrite, kShareRead, kOpenAlways, kFlagNormal});
  if (file == kInvalidHandle) {
    return;
  }
  std::uint64_t end = 0;
  std::uint32_t moved = 0;
  if (port->QueryFileSize(file, end) && port->Seek(file, static_cast<std::int64_t>(end))) {
    port->Write(file, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, moved);
  }
  port->Close(file);
}

// A header goes in front of the first row of a new file.
enum class Header { kWhereNew, kNone };

void AppendRow(const char* name, const std::string& separator, Header header, const std::string& row) {
  const bool begins = header == Header::kWhereNew && !FileExists(port->PathBesideProgram(name));
  AppendToFile(name, begins ? HeaderRow(separator) + row : row);
}

void KeepSpeed(const std::string& direction, std::uint32_t milliseconds, Header header) {
  const double mebi = MebiPerSecond(milliseconds);
  const double mega = MegaPerSecond(milliseconds);
  AppendRow(kLocalFile, CsvSeparator, header, SpeedRow(CsvSeparator, direction, LocalSpeed(mebi), LocalSpeed(mega)));
  AppendRow(kDecimalPointFile, kDecimalPointSeparator, header,
            SpeedRow(kDecimalPointSeparator, direction, DecimalPointSpeed(mebi), DecimalPointSpeed(mega)));
}

// --- The two transfers ---------------------------------------------------------------------------------------------

void MeasureReading() {
  ConsoleWrite("\r\nReading drive " + std::to_string(DriveNumber) + " - please wait ...");
  Diagnose("\r\nRead from sector 0");
  const std::uint32_t milliseconds = TimeOf(DirectRead);
  // What a read has not brought would be overwritten with what the buffer holds.
  if (milliseconds == 0 || LastTransferBytes != kRunBytes) {
    ReportBox("\r\n*** ERROR *** reading from drive at Sector 0");
    MyExitProcess(kLevelOperational);
  }
  ConsoleWrite(SpeedText("Read", milliseconds) + "READ SPEED");
  KeepSpeed("READ", milliseconds, Header::kWhereNew);
}

void MeasureWriting() {
  DisMount_All_Volumes(DriveNumber);
  ConsoleWrite("\r\nWriting to drive " + std::to_string(DriveNumber) + " - please wait ...");
  Diagnose("\r\nWrite start sector 0");
  const std::uint32_t milliseconds = TimeOf(DirectWrite);
  if (milliseconds == 0) {
    ReportBox(
        "\r\n*** ERROR *** writing to drive at Sector 0\r\n\r\nPossibly Write Access denied - try Ejecting drive or "
        "unplug/replug");
    MyExitProcess(kLevelWriteError);
  }
  ConsoleWrite(SpeedText("Wrote", milliseconds) + "WRITE SPEED\r\n");
  KeepSpeed("WRITE", milliseconds, Header::kNone);
}

}  // namespace

void SpeedTest() {
  constexpr std::uint32_t kForTheReader = 5000;
  CsvSeparator = port->DecimalSign() == ',' ? ";" : ",";
  SizeSectorBuffer(kRunBytes);
  AskBeforeTest();
  TakeDriveForOneself();
  MeasureReading();
  MeasureWriting();
  const std::string note = "peedtest results written to " + port->ProgramFolder() + "\\";
  ConsoleWrite("\r\nNote: S" + note + kLocalFile + "   in local csv format.");
  ConsoleWrite("\r\n      S" + note + kDecimalPointFile + " as csv using commas and decimal points.");
  ConsoleWrite("\r\n");
  port->Wait(kForTheReader);
  MyExitProcess(kLevelOk);
}
