#include "transfer/position_expression.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "discovery/identification.h"
#include "disk/files.h"
#include "disk/sector_io.h"
#include "transfer/file_header.h"

namespace {

constexpr int kNamed = 8;     // P1 to P8
constexpr int kMbrNamed = 4;  // P1 to P4
constexpr double kSector = 512;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// How many characters from the start on are a number; 0 where there is none.
std::size_t NumberLength(const std::string& text) {
  std::size_t at = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  bool has_digits = false;
  bool has_point = false;
  for (; at < text.size() && (IsDigit(text[at]) || (text[at] == '.' && !has_point)); ++at) {
    has_digits = has_digits || IsDigit(text[at]);
    has_point = has_point || text[at] == '.';
  }
  if (!has_digits) {
    return 0;
  }
  if (at < text.size() && text[at] == 'E') {
    std::size_t exponent = at + 1;
    exponent += exponent < text.size() && (text[exponent] == '-' || text[exponent] == '+') ? 1 : 0;
    if (exponent < text.size() && IsDigit(text[exponent])) {
      at = exponent;
      while (at < text.size() && IsDigit(text[at])) {
        ++at;
      }
    }
  }
  return at;
}

bool Contains(const std::string& text, std::string_view word) { return text.find(word) != std::string::npos; }

// The words MBR and MBR+ never count as the unit MB.
bool HasMegabytes(const std::string& text) { return Contains(text, "MB") && !Contains(text, "MBR"); }

bool HasMbrAlone(const std::string& text) { return Contains(text, "MBR") && !Contains(text, "MBR+"); }

// A number with a unit, in bytes; nothing where there is no unit.
std::optional<double> BytesOfUnit(const std::string& text) {
  constexpr double kStep = 1024;
  const double number = LeadingNumber(text);
  if (Contains(text, "KB")) {
    return number * kStep;
  }
  if (HasMegabytes(text)) {
    return number * kStep * kStep;
  }
  if (Contains(text, "GB")) {
    return number * kStep * kStep * kStep;
  }
  if (Contains(text, "SEC")) {
    return number * kSector;
  }
  return std::nullopt;
}

double First(const Extent& extent) { return static_cast<double>(extent.first); }
double Last(const Extent& extent) { return static_cast<double>(extent.last); }

// The extent that the text names with P1 to P8, EXT or PEXT.
const Extent* NamedExtent(const PartitionExtents& extents, const std::string& text) {
  for (int n = 1; n <= kNamed; ++n) {
    if (Contains(text, "P" + std::to_string(n))) {
      return &ExtentOf(extents, n);
    }
  }
  return Contains(text, "EXT") ? &extents[kPext] : nullptr;
}

bool PextInUse(const PartitionExtents& extents) { return extents[kPext].first != 0 || extents[kPext].last != 0; }

// The lowest start that isn't 0 among P1 to P`count`, 0 where there is none.
double LowestStart(const PartitionExtents& extents, int count) {
  double lowest = 0;
  for (int n = 1; n <= count; ++n) {
    const double first = First(ExtentOf(extents, n));
    if (first != 0 && (lowest == 0 || first < lowest)) {
      lowest = first;
    }
  }
  return lowest;
}

// Where the extended partition is in use, all partitions start with it, if it lies in front of P1 to P`count`, all of
// them in use; else nothing tells where they start, and the result is 0.
double AllStart(const PartitionExtents& extents, int count) {
  if (!PextInUse(extents)) {
    return LowestStart(extents, count);
  }
  for (int n = 1; n <= count; ++n) {
    if (First(extents[kPext]) >= First(ExtentOf(extents, n))) {
      return 0;
    }
  }
  return First(extents[kPext]);
}

bool PextEndsLast(const PartitionExtents& extents) {
  for (int n = 1; n <= kMbrNamed; ++n) {
    if (Last(extents[kPext]) <= Last(ExtentOf(extents, n))) {
      return false;
    }
  }
  return true;
}

// The last LBA of all partitions.
double AllEnd(const PartitionExtents& extents) {
  if (PextEndsLast(extents)) {
    return Last(extents[kPext]);
  }
  double highest = Last(ExtentOf(extents, 1));
  for (int n = 2; n <= kNamed; ++n) {
    highest = std::max(highest, Last(ExtentOf(extents, n)));
  }
  return highest;
}

[[noreturn]] void EndWithMessage(const std::string& message) {
  ReportBox("\r\n" + message);
  MyExitProcess(kLevelOperational);
}

[[noreturn]] void RefuseDriveTable() {
  EndWithMessage("Invalid partition table on drive " + std::to_string(DriveNumber));
}

// The lowest start that is not 0 among P1 to P8 and PEXT, which is MBR+ on a drive.
double FirstPartitionStart(const PartitionExtents& extents) {
  const double lowest = LowestStart(extents, kNamed);
  const double extended = First(extents[kPext]);
  return extended != 0 && (lowest == 0 || extended < lowest) ? extended : lowest;
}

double DriveLengthByName(const std::string& text, double start) {
  PartitionExtents extents{};
  const bool readable = ReadPartitionExtents(extents);
  if (readable) {
    if (const Extent* extent = NamedExtent(extents, text)) {
      return Last(*extent) - start + 1;
    }
    if (Contains(text, "PALL")) {
      const double span = Last(extents[kPall]) - First(extents[kPall]) + 1;
      return std::max(AllEnd(extents) - start + 1, span);
    }
  }
  if (Contains(text, "DALL")) {
    return std::floor(static_cast<double>(DriveReportedBytes) / kSector) - start;
  }
  return Contains(text, "MBR+") ? FirstPartitionStart(extents) : 0;
}

// Bytes up to the partition with the lowest number, or to the extended one in front of it or alone; nothing without.
std::optional<double> FileMbrPlus(const PartitionExtents& extents) {
  std::optional<double> start;
  for (int n = kNamed; n >= 1; --n) {
    if (const Extent& extent = ExtentOf(extents, n); extent.first != 0 || extent.last != 0) {
      start = First(extent) * kSector;
    }
  }
  const double extended = First(extents[kPext]) * kSector;
  if (PextInUse(extents) && (!start || extended < *start)) {
    start = extended;
  }
  return start;
}

// The value of a name in a file's table; nothing where the text names nothing, or an entry that is empty.
std::optional<double> FileLengthByName(const PartitionExtents& extents, const std::string& text, double start) {
  const auto up_to = [start](double last) { return last * kSector - start + kSector; };
  if (const Extent* extent = NamedExtent(extents, text)) {
    return extent->last > 0 ? std::optional(up_to(Last(*extent))) : std::nullopt;
  }
  if (Contains(text, "MBR+")) {
    return FileMbrPlus(extents);
  }
  if (Contains(text, "PALL")) {
    double length = up_to(AllEnd(extents));
    if (Last(extents[kPall]) * kSector > length) {
      length = up_to(Last(extents[kPall]));
    }
    return length == 0 ? std::nullopt : std::optional(length);
  }
  return std::nullopt;
}

std::string ExtentRow(std::string_view label, double first, double last, double bytes) {
  const auto number = [](double value) { return NumberText(value, ""); };
  return std::string(label) + number(first) + " (" + number(first * kSector) + " bytes) End=" + number(last) + " (" +
         number(last * kSector) + " bytes) Size=" + number(bytes) + "\r\n";
}

}  // namespace

bool IsPlainNumber(const std::string& text) { return !text.empty() && NumberLength(text) == text.size(); }

double LeadingNumber(const std::string& text) {
  const double value = std::strtod(text.substr(0, NumberLength(text)).c_str(), nullptr);
  return std::isfinite(value) ? value : std::copysign(std::numeric_limits<double>::max(), value);
}

std::int64_t WholePart(double value) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  if (value >= kTwoTo63) {
    return std::numeric_limits<std::int64_t>::max();
  }
  return value < -kTwoTo63 ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(value);
}

double EvalDriveStart(const std::string& expression) {
  const std::string text = UpperCase(expression);
  if (IsPlainNumber(text)) {
    return LeadingNumber(text);
  }
  if (const std::optional<double> bytes = BytesOfUnit(text)) {
    return *bytes / kSector;
  }
  if (Contains(text, "MBR") || Contains(text, "DALL")) {
    return 0;
  }
  PartitionExtents extents{};
  if (!ReadPartitionExtents(extents)) {
    RefuseDriveTable();
  }
  double start = LeadingNumber(text);  // a word that names nothing
  bool named = false;
  if (const Extent* extent = NamedExtent(extents, text)) {
    start = First(*extent);
    named = true;
  } else if (Contains(text, "PALL")) {
    start = AllStart(extents, kMbrNamed);
    if (start == 0 && !PextInUse(extents)) {
      start = First(extents[kPall]);
    }
    named = true;
  }
  if (named && start == 0) {
    RefuseDriveTable();
  }
  return start;
}

double EvalDriveLength(const std::string& expression, double drive_start) {
  const std::string text = UpperCase(expression);
  if (IsPlainNumber(text)) {
    const double sectors = LeadingNumber(text) / kSector;
    const double whole = std::floor(sectors);
    return sectors == whole ? whole : whole + 1;
  }
  if (const std::optional<double> bytes = BytesOfUnit(text)) {
    return *bytes / kSector;
  }
  if (HasMbrAlone(text)) {
    return 1;
  }
  const double sectors = DriveLengthByName(text, drive_start);
  if (sectors == 0) {
    RefuseDriveTable();
  }
  return sectors;
}

double EvalFileStart(const std::string& file_name, const std::string& expression) {
  const std::string text = UpperCase(expression);
  if (Contains(text, "MBR")) {
    return 0;
  }
  if (IsPlainNumber(text)) {
    return LeadingNumber(text);
  }
  if (const std::optional<double> bytes = BytesOfUnit(text)) {
    return *bytes;
  }
  PartitionExtents extents{};
  bool found = ReadPartitionExtents(extents);
  double start = LeadingNumber(text);  // a word that names nothing
  if (const Extent* extent = NamedExtent(extents, text)) {
    start = First(*extent) * kSector;
    found = found && start != 0;
  } else if (Contains(text, "PALL")) {
    start = AllStart(extents, kNamed) * kSector;
    found = found && start != 0;
  }
  if (!found) {
    EndWithMessage("Requested partition table entry in file " + file_name + " not found!");
  }
  return start;
}

double EvalFileLength(const std::string& file_name, const std::string& expression, double file_start) {
  const std::string text = UpperCase(expression);
  if (HasMbrAlone(text)) {
    return kSector;
  }
  const bool is_zero = IsPlainNumber(text) && LeadingNumber(text) == 0;
  if (!is_zero) {
    if (IsPlainNumber(text)) {
      return LeadingNumber(text);
    }
    if (const std::optional<double> bytes = BytesOfUnit(text)) {
      return *bytes;
    }
    if (Contains(text, "DALL")) {
      return static_cast<double>(DriveReportedBytes) - file_start;
    }
  }
  if (!FileExists(FilePath)) {
    return LeadingNumber(text);
  }
  LoadFileHeader();  // one that can't be read has no table, and its length all the same
  PartitionExtents extents{};
  const bool readable = ReadPartitionExtents(extents);
  std::optional<double> length = is_zero ? std::optional(0.0) : std::nullopt;
  if (readable && !is_zero) {
    length = FileLengthByName(extents, text, file_start);
  }
  if (length && *length == 0 && (readable || is_zero)) {
    length = static_cast<double>(FileLength(FilePath)) - file_start;
  }
  if (!length || *length == 0) {
    EndWithMessage("No valid partition table entry (" + (is_zero ? "0" : text) + ") in file " + file_name +
                   " or file not found!");
  }
  return *length;
}

std::string ExtentsText(const PartitionExtents& extents) {
  std::string text = "\r\n\r\n";
  double highest = 0;
  const auto add_row = [&](const std::string& label, const Extent& extent, double size) {
    if (extent.first > 0) {
      text += ExtentRow(label + "   Start=", First(extent), Last(extent), size * kSector);
    }
    highest = std::max(highest, Last(extent));
  };
  for (int n = 1; n <= kNamed; ++n) {
    const Extent& extent = ExtentOf(extents, n);
    add_row("P" + std::to_string(n), extent, Last(extent) - First(extent) + 1);
    if (n == kMbrNamed) {  // the extended partition's size is shown one sector smaller
      add_row("PEXT", extents[kPext], Last(extents[kPext]) - First(extents[kPext]));
    }
  }
  const double lowest = FirstPartitionStart(extents);
  text += ExtentRow("PALL Start=", lowest, highest, (highest - lowest + 1) * kSector);
  if (DriveReportedBytes != 0) {
    const std::string bytes = NumberText(DriveReportedBytes, "");
    text += "DALL Start=0 (0 bytes) End=" + NumberText(DriveReportedBytes / kSectorBytes - 1, "") + " (" + bytes +
            " bytes) Size=" + bytes + "\r\n";
  }
  return text;
}
