#include "format/ntfs.h"

#include <cstdint>

#include "cli/option_model.h"
#include "console/console.h"
#include "format/format_service.h"
#include "format/images/boot_images.h"

namespace {

// Parses the image of BootType into BinArray and returns its sectors.
std::int32_t LoadBootCode() {
  constexpr std::int32_t kNtldrSectors = 7;
  constexpr std::int32_t kBootmgrSectors = 9;
  if (BootType == "NTFSNTLDR") {
    NTLDR_NTFS_Code();
    return kNtldrSectors;
  }
  if (BootType == "NTFSBOOTMGR") {
    Bootmgr_NTFS_Code();
    return kBootmgrSectors;
  }
  ConsoleWrite("\r\nNTFS_Format: Unsupported NTFS boot type specified - use NTLDR or BOOTMGR.");
  MyExitProcess(kLevelBadParameter);
}

}  // namespace

void NTFS_Format(const std::string& label) {
  const std::string letter = PrepareFormat(label, ServiceFormat::kNtfs);
  if (!FormatOk) {
    return;
  }
  const std::int32_t sectors = LoadBootCode();
  MergeBootCode(ServiceFormat::kNtfs, sectors);
  WriteBootCode(letter, sectors, /*copies=*/1);
}
