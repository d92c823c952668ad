#include "format/fat12.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "disk/sector_io.h"
#include "format/fat_volume.h"
#include "format/images/boot_images.h"
#include "platform/byte_order.h"

namespace {

// The layout, in sectors from the partition's start; it is that of the image's own parameter block.
constexpr std::uint64_t kSectors = 63;
constexpr std::uint64_t kFirstFat = 6;
constexpr std::uint64_t kSecondFat = 7;
constexpr std::uint64_t kRoot = 8;

constexpr std::size_t kHiddenSectorsOffset = 0x1C;
constexpr std::size_t kSerialOffset = 0x27;
constexpr std::string_view kLabel = "PTN2       ";
constexpr std::uint8_t kLabelAttribute = 0x08;

void ShowBuffer() {
  if (OptDebug) {
    DumpText.clear();
    PrintDump(SectorBuffer);
  }
}

// Writes the sector in SectorBuffer, or ends the run.
void WriteSector(std::uint64_t lba, std::string_view success, std::string_view failure) {
  if (!DirectWrite(lba, 1)) {
    ConsoleWrite("\r\n" + LastErrorText);
    FailWrite("\r\n*** ERROR *** writing " + std::string(failure) + " - 1 block at LBA " + PlainNumber(lba));
  }
  Diagnose("\r\n" + std::string(success) + " at LBA " + PlainNumber(lba));
}

void WriteBootSector(std::uint64_t lba) {
  std::copy_n(BinArray.begin(), kSectorBytes, SectorBuffer.begin());
  ShowBuffer();
  if (DirectWrite(lba, 1)) {
    Diagnose("\r\nPartition boot sector written OK to LBA " + PlainNumber(lba));
  } else {
    ReportBox("\r\n*** ERROR *** writing FAT12 partition boot sector");  // and the run goes on
  }
}

}  // namespace

void FormatFat12(const std::string& /*label*/, std::uint64_t lba) {
  DumpParsedOk = false;
  Fat12Bootmgr_Code();
  if (!DumpParsedOk) {
    MyExitProcess(kLevelBadParameter);
  }
  Store32(&BinArray[kHiddenSectorsOffset], static_cast<std::uint32_t>(lba));
  DrawVolumeSerial(&BinArray[kSerialOffset]);
  ClearSectors(lba, lba + kSectors - 1);
  WriteBootSector(lba);

  SizeSectorBuffer(kSectorBytes);
  Store32(SectorBuffer.data(), 0x00FFFF00U | kMediaHardDisk);
  ShowBuffer();
  WriteSector(lba + kFirstFat, "First FAT12 table written OK", "First FAT table");
  WriteSector(lba + kSecondFat, "2nd FAT12 table written OK - 1 block", "2nd FAT table");

  SizeSectorBuffer(kSectorBytes);
  std::copy(kLabel.begin(), kLabel.end(), SectorBuffer.begin());
  SectorBuffer[kLabel.size()] = kLabelAttribute;
  ShowBuffer();
  WriteSector(lba + kRoot, "Volume Label", "Volume Label");
}
