#include "format/exfat.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "cli/option_model.h"
#include "console/console.h"
#include "disk/sector_io.h"
#include "format/format_service.h"
#include "format/images/boot_images.h"
#include "platform/exfat_checksum.h"

namespace {

// Makes the image look for GRLDR: the first five of the name's seven characters, which are all that the code compares
// then, and the two operands that hold the length.
void PatchForGrub4Dos() {
  struct Patch {
    std::size_t index;
    std::uint8_t value;
  };
  constexpr std::array kPatches{Patch{0x15E, 'G'}, Patch{0x160, 'R'}, Patch{0x162, 'L'}, Patch{0x164, 'D'},
                                Patch{0x166, 'R'}, Patch{0x304, 5},   Patch{0x337, 5}};
  for (const Patch& patch : kPatches) {
    BinArray[patch.index] = patch.value;
  }
}

void LoadBootCode() {
  if (BootType != "EXFATBOOTMGR") {
    ConsoleWrite("\r\nEXFAT_Format: Unsupported EXFAT boot type specified - use BOOTMGR.");
    MyExitProcess(kLevelBadParameter);
  }
  BootMgrEXFAT_Code();
  if (UseGrub4Dos) {
    PatchForGrub4Dos();
  }
  ConsoleWrite(UseGrub4Dos ? "\r\nWriting GRLDR for EXFAT" : "\r\nWriting BOOTMGR for EXFAT");
}

}  // namespace

void EXFAT_Format(const std::string& label) {
  const std::string letter = PrepareFormat(label, ServiceFormat::kExfat);
  if (!FormatOk) {
    return;
  }
  LoadBootCode();
  MergeBootCode(ServiceFormat::kExfat, kExfatRegionSectors);
  ExfatBootChecksum(SectorBuffer);
  WriteBootCode(letter, kExfatRegionSectors, /*copies=*/2);
}

void ExfatBootChecksum(ByteSpan buffer) { StoreExfatChecksum(buffer); }
