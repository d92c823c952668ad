#include "boot/exfat_boot_code.h"

#include <string_view>

#include "disk/sector_io.h"
#include "format/images/boot_images.h"
#include "platform/byte_order.h"

std::string MasterBootRecord(std::uint32_t first_lba, std::uint32_t sectors) {
  constexpr std::size_t kEntry = 0x1BE;
  SizeSectorBuffer(kSectorBytes);
  Mbr_Code();
  Store32(&SectorBuffer[kEntry], 0x80);            // active
  Store32(&SectorBuffer[kEntry + 4], 0xFFFFFE07);  // exFAT; ends at cylinder 1023, head 254, sector 63
  Store32(&SectorBuffer[kEntry + 8], first_lba);
  Store32(&SectorBuffer[kEntry + 12], sectors);
  return {SectorBuffer.begin(), SectorBuffer.begin() + kSectorBytes};
}

std::string ExfatBootCode(bool for_grldr) {
  constexpr std::size_t kBytes = std::size_t{12} * kSectorBytes;
  constexpr std::string_view kName = "GRLDR";
  BootMgrEXFAT_Code();
  std::string code(BinArray.begin(), BinArray.begin() + kBytes);
  if (for_grldr) {
    for (std::size_t i = 0; i < kName.size(); ++i) {
      code[0x15E + 2 * i] = kName[i];
    }
    code[0x304] = static_cast<char>(kName.size());
    code[0x337] = static_cast<char>(kName.size());
  }
  return code;
}
