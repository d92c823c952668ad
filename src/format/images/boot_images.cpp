#include "format/images/boot_images.h"

#include <optional>
#include <string>

#include "console/console.h"
#include "disk/sector_io.h"

namespace {

constexpr std::size_t kLineCharacters = 73;
constexpr std::size_t kBytesPerLine = 16;
constexpr std::string_view kSentinel = "ZZZZ";

// The dumps are made of the assembler sources by the build.
constexpr std::string_view kMbr =
#include "Mbr_Code.inc"
    ;
constexpr std::string_view kFat32Bootmgr =
#include "Fat32Bootmgr_Code.inc"
    ;
constexpr std::string_view kFat32BootmgrExt =
#include "Fat32BootmgrExt_Code.inc"
    ;
constexpr std::string_view kFat32Ntldr =
#include "Fat32Ntldr_Code.inc"
    ;
constexpr std::string_view kFat32NtldrExt =
#include "Fat32NtldrExt_Code.inc"
    ;
constexpr std::string_view kFat16Bootmgr =
#include "Fat16Bootmgr_Code.inc"
    ;
constexpr std::string_view kFat16Ntldr =
#include "Fat16Ntldr_Code.inc"
    ;
constexpr std::string_view kFat12Bootmgr =
#include "Fat12Bootmgr_Code.inc"
    ;
constexpr std::string_view kFat16FreeDos =
#include "Fat16FreeDos_Code.inc"
    ;
constexpr std::string_view kFat32FreeDos =
#include "Fat32FreeDos_Code.inc"
    ;
constexpr std::string_view kFat16MsDos =
#include "Fat16MsDos_Code.inc"
    ;
constexpr std::string_view kFat16Zip =
#include "Fat16Zip_Code.inc"
    ;
constexpr std::string_view kFat32MsDos =
#include "Fat32MsDos_Code.inc"
    ;
constexpr std::string_view kFat32MsDosExt =
#include "Fat32MsDosExt_Code.inc"
    ;
constexpr std::string_view kBootMgrExfat =
#include "BootMgrEXFAT_Code.inc"
    ;
constexpr std::string_view kBootmgrNtfs =
#include "Bootmgr_NTFS_Code.inc"
    ;
constexpr std::string_view kNtldrNtfs =
#include "NTLDR_NTFS_Code.inc"
    ;

std::optional<std::uint8_t> HexPair(std::string_view pair) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const std::size_t high = kDigits.find(pair[0]);
  const std::size_t low = kDigits.find(pair[1]);
  if (high == std::string_view::npos || low == std::string_view::npos) {
    return std::nullopt;
  }
  return static_cast<std::uint8_t>(high * 16 + low);
}

// Stores the sixteen bytes of a line; false at a pair that is no number, or where they don't fit.
bool ParseLine(std::string_view line, ByteSpan target) {
  constexpr std::size_t kFirstPair = 5;
  constexpr std::size_t kHyphen = 2;
  constexpr std::size_t kPair = 3;
  for (std::size_t i = 0; i < kBytesPerLine; ++i) {
    const std::size_t column = kFirstPair + kPair * i + (i < kBytesPerLine / 2 ? 0 : kHyphen);
    const std::optional<std::uint8_t> byte = HexPair(line.substr(column, 2));
    if (!byte || i >= target.size()) {
      return false;
    }
    target[i] = *byte;
  }
  return true;
}

// For the images of several sectors. The caller goes on after a failure.
void ParseLargeDump(std::string_view text, std::string_view procedure) {
  if (!ParseDump(text, BinArray)) {
    ReportBox(std::string(procedure) + " failed to parse correctly!");
  }
}

}  // namespace

bool ParseDump(std::string_view text, ByteSpan target) {
  std::size_t count = 0;
  DumpParsedOk = false;
  do {
    if (text.size() < kLineCharacters + kSentinel.size() || !ParseLine(text, target.subspan(count))) {
      return false;
    }
    count += kBytesPerLine;
    text.remove_prefix(kLineCharacters);
  } while (!text.starts_with(kSentinel));
  DumpParsedOk = count % kSectorBytes == 0;
  return DumpParsedOk;
}

void Mbr_Code() { ParseDump(kMbr, SectorBuffer); }
void Fat32Bootmgr_Code() { ParseDump(kFat32Bootmgr, BinArray); }
void Fat32BootmgrExt_Code() { ParseDump(kFat32BootmgrExt, SectorBuffer); }
void Fat32Ntldr_Code() { ParseDump(kFat32Ntldr, BinArray); }
void Fat32NtldrExt_Code() { ParseDump(kFat32NtldrExt, SectorBuffer); }
void Fat16Bootmgr_Code() { ParseDump(kFat16Bootmgr, BinArray); }
void Fat16Ntldr_Code() { ParseDump(kFat16Ntldr, BinArray); }
void Fat12Bootmgr_Code() { ParseDump(kFat12Bootmgr, BinArray); }
void Fat16FreeDos_Code() { ParseDump(kFat16FreeDos, BinArray); }
void Fat32FreeDos_Code() { ParseDump(kFat32FreeDos, BinArray); }
void Fat16MsDos_Code() { ParseDump(kFat16MsDos, BinArray); }
void Fat16Zip_Code() { ParseDump(kFat16Zip, BinArray); }
void Fat32MsDos_Code() { ParseDump(kFat32MsDos, BinArray); }
void Fat32MsDosExt_Code() { ParseDump(kFat32MsDosExt, SectorBuffer); }
void BootMgrEXFAT_Code() { ParseLargeDump(kBootMgrExfat, "BootMgrEXFAT_Code"); }
void Bootmgr_NTFS_Code() { ParseLargeDump(kBootmgrNtfs, "Bootmgr_NTFS_Code"); }
void NTLDR_NTFS_Code() { ParseLargeDump(kNtldrNtfs, "NTLDR_NTFS_Code"); }
