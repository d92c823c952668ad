#include "cli/unavailable.h"

#include <string>

#include "cli/option_model.h"
#include "console/console.h"
#include "format/fat_volume.h"

void EndUnavailable(std::string_view what) {
  ConsoleWrite("\r\n" + std::string(what) + " is not available in this version!");
  MyExitProcess(kLevelUnknown);
}

void RefuseUnavailableFormat() {
  if (!WantBootCode) {
    return;
  }
  if (UseNtfs) {
    EndUnavailable("Formatting as NTFS");
  }
  if (UseExfat) {
    EndUnavailable("Formatting as exFAT");
  }
  if (ImagesOfBootType() == nullptr) {
    EndUnavailable("Boot code for " + BootType);
  }
}
