#include "console/sector_dump.h"

#include <algorithm>

#include "console/console.h"
#include "console/number_text.h"
#include "disk/sector_io.h"

namespace {

constexpr std::size_t kMostBytesShown = 102'400;  // 200 sectors
constexpr std::size_t kBytesPerLine = 16;
constexpr std::uint64_t kSectorsPerMebibyte = 2048;

std::string SectorHeading(std::uint64_t sector) {
  return "\r\n\r\n[Sector " + PlainNumber(sector) + "]  " + PlainNumber(sector / kSectorsPerMebibyte) + "MB";
}

// One line of the dump; an incomplete one has no character column.
std::string DumpLine(std::size_t offset, ConstByteSpan bytes) {
  std::string line = "\r\n" + HexPad(offset, 4) + " ";
  std::string characters;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    line += HexPad(bytes[i], 2) + " ";
    characters += bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.';
    if (i + 1 == kBytesPerLine / 2) {
      line += "- ";
      characters += " ";
    }
  }
  if (bytes.size() == kBytesPerLine) {
    line += " " + characters;
  }
  return line;
}

}  // namespace

void DumpSector(ConstByteSpan buffer, std::size_t count) {
  if (count == 0) {
    count = LastTransferBytes;
  }
  count = std::min({count, kMostBytesShown, buffer.size()});
  DumpText += "\r\n\r\n============= SECTOR DATA ================\r\n";
  for (std::size_t at = 0; at < count; at += kBytesPerLine) {
    if (at % kSectorBytes == 0) {
      DumpText += SectorHeading(LastSectorLba + at / kSectorBytes);
    }
    DumpText += DumpLine(at, buffer.subspan(at, std::min(kBytesPerLine, count - at)));
  }
  DumpText += "\r\n\r\n========= END OF SECTOR DATA ================\r\n";
}

void PrintDump(ConstByteSpan buffer) {
  DumpSector(buffer, 0);
  ConsoleWrite(DumpText);
  DumpText.clear();
}
