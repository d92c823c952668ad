#include "discovery/drive_list.h"

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "discovery/identification.h"
#include "disk/volumes.h"

namespace {

bool DriveCounts() {
  constexpr std::uint64_t kSmallest = 10;
  return DriveReportedBytes > kSmallest;
}

void NoteDrive() {
  if (FoundDrive == kNoDriveFound) {
    FoundDrive = static_cast<std::int16_t>(DriveNumber);
    FoundDriveDesc = DriveModel;
    FoundDriveSize = DriveBytes;
  }
  DriveListDesc[static_cast<std::size_t>(DriveNumber)] = DriveModel;
  DriveListSize[static_cast<std::size_t>(DriveNumber)] = DriveBytes;
}

// The size with its unit, which turns above 1000, so that exactly 1000 stays in the smaller unit.
std::string SizeField(std::int64_t bytes) {
  constexpr double kStep = 1024;
  constexpr double kTurn = 1000;
  constexpr std::size_t kWidth = 8;
  double size = static_cast<double>(bytes) / kStep;
  std::string unit = "KiB";
  for (const char* next : {"MiB", "GiB"}) {
    if (size > kTurn) {
      size /= kStep;
      unit = next;
    }
  }
  return PadText(NumberText(size, "###############0.0"), ' ', kWidth, false) + unit;
}

// A volume that another letter is taken in place of. One without a size isn't: it may just not be formatted yet.
bool IsTooSmall(const std::string& letter) {
  constexpr double kSmallest = 40'000;
  const double size = std::stod(VolumeBytes(letter));
  return size > 0 && size < kSmallest;
}

}  // namespace

void ListDrives(bool show) {
  for (std::int32_t drive = 0; drive <= kHighestListedDrive; ++drive) {
    DriveNumber = drive;
    Diagnose("\r\nCalling GetUSBDiskDriveInfo for drive " + std::to_string(drive));
    GetUSBDiskDriveInfo(drive);
    if (DriveCounts()) {
      NoteDrive();
    }
    if (show) {
      DriveLine(0);
    }
  }
  ConsoleWrite("\r\n\r\n");
}

std::string DriveLine(int mode) {
  constexpr std::size_t kModelWidth = 31;
  constexpr std::size_t kBytesWidth = 12;
  constexpr std::size_t kFirmwareWidth = 5;
  constexpr std::size_t kSerialWidth = 15;
  if (DriveBytes < 1) {
    return "";
  }
  std::string line = DriveNumber == FoundDrive ? "*" : " ";
  line += "DRIVE " + std::to_string(DriveNumber) + " -" + SizeField(DriveBytes) + " " +
          PadText(DriveModel, ' ', kModelWidth, true);
  if (OptDebug) {
    line += " " + GroupDigits(PadText(PlainNumber(DriveBytes), ' ', kBytesWidth, false), "") + " Bytes ";
  }
  line += " ";
  if (mode == 0) {
    line += "Fw=" + PadText(CutAtNul(DriveFirmware), ' ', kFirmwareWidth, true);
    line += " Sno=" + PadText(CutAtNul(DriveSerial), ' ', kSerialWidth, true);
    line += " " + GetDriveLetter(DriveNumber);
  }
  ConsoleWrite("\r\n" + line);
  return line;
}

std::string GetDriveLetter(std::int32_t drive) {
  DebugLog(" GetDriveLetter " + std::to_string(drive));
  if (drive >= kNoDriveFound) {
    return "";
  }
  std::array<std::string, 4> letters;
  Get_Drive_Volumes(drive, letters[0], letters[1], letters[2], letters[3]);
  std::size_t chosen = 0;
  while (chosen + 1 < letters.size() && IsTooSmall(letters[chosen]) && !letters[chosen + 1].empty()) {
    ++chosen;  // the last one is taken as it is, whatever its size
  }
  DebugLog(" GetDriveLetter returned " + letters[chosen]);
  return letters[chosen];
}

std::string VolumeBytes(const std::string& letter) {
  std::uint64_t bytes = 0;
  return PlainNumber(port->QueryVolumeSize(letter, bytes) ? bytes : 0);
}
