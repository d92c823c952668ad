#include "cli/command_line.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "transfer/file_header.h"

namespace {

constexpr std::size_t kVolumeNameCharacters = 11;

[[noreturn]] void RefuseLine(std::string_view message) {
  ConsoleWrite(message);
  MyExitProcess(kLevelBadParameter);
}

// What stands behind the first occurrence of a value keyword, at most `most` characters; false where it is absent.
bool FindValue(std::string_view keyword, std::size_t most, std::string& value) {
  const std::size_t at = CmdLine.find(keyword);
  if (at == std::string::npos) {
    return false;
  }
  value = CmdLine.substr(at + keyword.size(), most);
  return true;
}

// The same, cut at the first blank.
bool FindWord(std::string_view keyword, std::size_t most, std::string& value) {
  if (!FindValue(keyword, most, value)) {
    return false;
  }
  value = value.substr(0, value.find(' '));
  return true;
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Whole bytes in the leading decimal number of MiB, of at most eleven characters: exact, since digits and scale stay
// below 2^64. No number reads as 0, a number below 0 as no limit.
std::int64_t BytesOfMebibytes(std::string_view text) {
  constexpr std::uint64_t kMebibyte = 1'048'576;
  if (text.starts_with('+')) {
    text.remove_prefix(1);
  }
  std::uint64_t digits = 0;
  std::uint64_t scale = 1;
  bool in_fraction = false;
  for (const char character : text) {
    if (character == '.' && !in_fraction) {
      in_fraction = true;
    } else if (IsDigit(character)) {
      digits = digits * 10 + static_cast<std::uint64_t>(character - '0');
      scale *= in_fraction ? 10 : 1;
    } else {
      break;
    }
  }
  return static_cast<std::int64_t>(digits * kMebibyte / scale);
}

// A keyword and the boot type that it stands for.
struct BootRow {
  std::string_view keyword;
  std::string_view boot_type;
};

// Run from top to bottom: the last row that matches wins, whatever the order of the words on the line.
constexpr std::array kFat16BootTypes{
    BootRow{" DOSZIP", "FAT16ZIP"},    BootRow{" MSDOS", "FAT16MSDOS"},     BootRow{" XP", "FAT16NTLDR"},
    BootRow{" NTLDR", "FAT16NTLDR"},   BootRow{" VISTA", "FAT16BOOTMGR"},   BootRow{" WIN7", "FAT16BOOTMGR"},
    BootRow{" WINPE", "FAT16BOOTMGR"}, BootRow{" FREEDOS", "FAT16FREEDOS"}, BootRow{" BOOTMGR", "FAT16BOOTMGR"},
};
constexpr std::array kNtfsBootTypes{
    BootRow{" XP", "NTFSNTLDR"},     BootRow{" NTLDR", "NTFSNTLDR"},   BootRow{" VISTA", "NTFSBOOTMGR"},
    BootRow{" WIN7", "NTFSBOOTMGR"}, BootRow{" WINPE", "NTFSBOOTMGR"}, BootRow{" BOOTMGR", "NTFSBOOTMGR"},
};
constexpr std::array kExfatBootTypes{
    BootRow{" GRUB4DOS", "EXFATBOOTMGR"}, BootRow{" VISTA", "EXFATBOOTMGR"},   BootRow{" WIN7", "EXFATBOOTMGR"},
    BootRow{" WINPE", "EXFATBOOTMGR"},    BootRow{" BOOTMGR", "EXFATBOOTMGR"},
};
constexpr std::array kFat32BootTypes{
    BootRow{" DOSZIP", "FAT32ZIP"},   BootRow{" MSDOS", "FAT32MSDOS"},   BootRow{" FREEDOS", "FAT32FREEDOS"},
    BootRow{" XP", "FAT32NTLDR"},     BootRow{" NTLDR", "FAT32NTLDR"},   BootRow{" VISTA", "FAT32BOOTMGR"},
    BootRow{" WIN7", "FAT32BOOTMGR"}, BootRow{" WINPE", "FAT32BOOTMGR"}, BootRow{" BOOTMGR", "FAT32BOOTMGR"},
};

template <std::size_t Rows>
void RunBootTable(const std::array<BootRow, Rows>& table) {
  BootType.clear();
  for (const BootRow& row : table) {
    if (HasKeyword(row.keyword)) {
      BootType = row.boot_type;
    }
  }
}

void NoteBootType() {
  WantBootCode = WantBootCode || !BootType.empty();
  OptZip = OptZip || BootType == "FAT16ZIP" || BootType == "FAT32ZIP";
}

std::string FlagText(bool flag) { return flag ? "True" : "False"; }

}  // namespace

bool HasKeyword(std::string_view keyword) { return CmdLine.find(keyword) != std::string::npos; }

void BuildCmdLine(const std::string& raw_line) { CmdLine = " " + UpperCase(raw_line); }

std::string TakeVolumeName(const std::string& raw_line) {
  constexpr std::string_view kKeyword = "VOLUME=";
  const std::size_t at = CmdLine.find(kKeyword);
  if (at == std::string::npos) {
    return "";
  }
  // CmdLine has one blank more in front, so the value begins one character earlier in the line as typed.
  const std::string value = raw_line.substr(at + kKeyword.size() - 1);
  if (Trim(value).size() > kVolumeNameCharacters) {
    RefuseLine("\r\nERROR: Volume name longer than 11 characters (must be last parameter on command line)!");
  }
  VolumeName = value.substr(0, kVolumeNameCharacters);
  CmdLine.erase(at);
  return "\r\nVolume name requested=" + value;
}

void ParseSizeLimit() {
  constexpr std::size_t kMostCharacters = 11;
  std::string size;
  if (FindWord("SIZE=", kMostCharacters, size)) {
    SizeLimit = BytesOfMebibytes(size);
  }
}

static void ParseFirstPart() {
  std::string digit;
  if (FindValue("FIRSTPART=", 1, digit) && !digit.empty() && IsDigit(digit[0])) {
    FirstPart = static_cast<std::int16_t>(digit[0] - '0');
  }
  if (FirstPart > 4 || (FirstPart < 2 && FirstPart != 0)) {
    RefuseLine("ERROR: FIRSTPART value must be between 2 and 4!");
  }
}

// The file's name in upper case, and as it was typed: the file system may tell cases apart.
static void ParseFile() {
  constexpr std::string_view kKeyword = "FILE=\"";
  if (FindValue(kKeyword, std::string::npos, FileName)) {
    FileName = FileName.substr(0, FileName.find('"'));
    // The line as typed has no blank in front.
    FilePath = port->OriginalText(CmdLine.find(kKeyword) + kKeyword.size() - 1, FileName.size());
  }
}

PositionArguments ParseArguments() {
  PositionArguments arguments;
  ParseFile();
  FindWord("USBSTART=", std::string::npos, arguments.usb_start);
  FindWord("FILESTART=", std::string::npos, arguments.file_start);
  FindWord("LENGTH=", std::string::npos, arguments.copy_length);
  ParseFirstPart();
  return arguments;
}

void ParseLayoutFlags() {
  Opt2Ptn = HasKeyword(" 2PTN");
  OptNoAct = HasKeyword(" NOACT");
  OptForceLba = HasKeyword(" FORCELBA");
  Opt2Mbr = HasKeyword(" 2MBR");
  OptWriteMbrOnly = HasKeyword(" WRITEMBRONLY");
  OptUsbFdd = HasKeyword(" USBFDD");
  if (Opt2Ptn && OptUsbFdd) {
    RefuseLine("ERROR: Cannot specify USBFDD and 2PTN options!");
  }
}

void DeriveBootType() {
  RunBootTable(kFat16BootTypes);
  NoteBootType();
  if (HasKeyword(" NTFS")) {
    UseNtfs = true;
    RunBootTable(kNtfsBootTypes);  // no default: what the FAT16 list decided on formatting stays
    NoteBootType();
  }
  if (HasKeyword(" EXFAT")) {
    UseExfat = true;
    RunBootTable(kExfatBootTypes);
    UseGrub4Dos = HasKeyword(" GRUB4DOS");
    if (BootType.empty()) {
      ConsoleWrite("\r\nWARNING: Defaulting to installing BOOTMGR bootsectors.\r\n");
      BootType = "EXFATBOOTMGR";
    }
    NoteBootType();
  }
  if (HasKeyword(" FAT32")) {
    UseFat32 = true;
    RunBootTable(kFat32BootTypes);
    if (BootType.empty()) {
      ConsoleWrite("\r\nWARNING: Defaulting to installing an MSDOS boot sector.");
      BootType = "FAT32MSDOS";
    }
    NoteBootType();
  }
  UseFat16 = !UseNtfs && !UseExfat && !UseFat32;
}

void ParseRunFlags() {
  constexpr std::int64_t kBytesOf512M = 512'000'000;
  if (HasKeyword(" 512M")) {
    SizeLimit = kBytesOf512M;
  }
  OptZip = OptZip || HasKeyword(" ZIP");
  OptDebug = HasKeyword(" DEBUG");
  OptNoWrite = HasKeyword(" NOWRITE");
  OptSure = HasKeyword(" SURE");
  OptChs = HasKeyword(" CHS");
  DebugWrite("OSTYPE=" + BootType + " ZIP=" + FlagText(OptZip) + " 2PTN=" + FlagText(Opt2Ptn) +
             " FORCELBA=" + FlagText(OptForceLba) + " USBFDD=" + FlagText(OptUsbFdd) + "\r\n");
}

void RefuseConflicts() {
  if (UseNtfs && OptUsbFdd) {
    RefuseLine("ERROR: Cannot specify USBFDD and NTFS options!");
  }
  if (UseNtfs && HasKeyword(" DOS")) {
    RefuseLine("ERROR: Cannot specify DOS and NTFS options (use BOOTMGR)!");
  }
  if (UseExfat && OptUsbFdd) {
    RefuseLine("ERROR: Cannot specify USBFDD and EXFAT options!");
  }
}

bool ParseDriveNumber() {
  constexpr std::size_t kCharacters = 2;
  std::string value;
  if (!FindValue("DRIVE=", kCharacters, value) || value.empty()) {
    return false;
  }
  // A number is an optional sign, digits and at most one point behind them.
  std::string digits = Trim(value);
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) {
    digits.erase(0, 1);
  }
  if (digits.ends_with('.')) {
    digits.pop_back();
  }
  if (!digits.empty() && std::all_of(digits.begin(), digits.end(), IsDigit)) {
    DriveNumber = std::stoi(digits) * (negative ? -1 : 1);
  }
  return true;
}
