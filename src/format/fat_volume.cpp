#include "format/fat_volume.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/random_source.h"
#include "disk/sector_io.h"
#include "format/images/boot_images.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"

namespace {

constexpr std::size_t kLabelCharacters = 11;
constexpr std::uint8_t kLabelAndArchive = 0x28;

struct DirectoryEntry {
  char name[kLabelCharacters];       // 0x00
  std::uint8_t attributes;           // 0x0B
  std::uint8_t unused[12];           // 0x0C
  std::uint8_t date[2];              // 0x18
  std::uint8_t cluster_and_size[6];  // 0x1A
};
static_assert(sizeof(DirectoryEntry) == 32 && offsetof(DirectoryEntry, date) == 0x18);

constexpr std::array kBootImages{
    FatBootImages{"FAT16BOOTMGR", Fat16Bootmgr_Code, nullptr, 0},
    FatBootImages{"FAT16FREEDOS", Fat16FreeDos_Code, nullptr, 0},
    FatBootImages{"FAT16MSDOS", Fat16MsDos_Code, nullptr, 0},
    FatBootImages{"FAT16NTLDR", Fat16Ntldr_Code, nullptr, 0},
    FatBootImages{"FAT16ZIP", Fat16Zip_Code, nullptr, 0},
    FatBootImages{"FAT32BOOTMGR", Fat32Bootmgr_Code, Fat32BootmgrExt_Code, 12},
    FatBootImages{"FAT32FREEDOS", Fat32FreeDos_Code, nullptr, 0},
    FatBootImages{"FAT32MSDOS", Fat32MsDos_Code, Fat32MsDosExt_Code, 2},
    FatBootImages{"FAT32NTLDR", Fat32Ntldr_Code, Fat32NtldrExt_Code, 12},
    FatBootImages{"FAT32ZIP", Fat32MsDos_Code, Fat32MsDosExt_Code, 2},
};

}  // namespace

std::uint64_t VolumeStartLba() { return OptUsbFdd ? 0 : static_cast<std::uint64_t>(StartLba); }

std::uint8_t MediaDescriptor() { return OptZip ? kMediaFloppy : kMediaHardDisk; }

std::uint8_t BiosDriveNumber() { return OptZip ? kDriveFloppy : kDriveHardDisk; }

std::string DriveNumberText() {
  return HexPad(BiosDriveNumber(), 2) + (BiosDriveNumber() == kDriveHardDisk ? "h (hard disk)" : "h (floppy disk)");
}

void DrawVolumeSerial(std::uint8_t* serial) {
  for (const float range : {170.0F, 187.0F, 204.0F, 221.0F}) {
    *serial++ = static_cast<std::uint8_t>(std::nearbyint(range * NextRandom()));  // ties to even
  }
}

std::string PaddedLabel(const std::string& label) { return label + std::string(kLabelCharacters, ' '); }

void StoreLabelEntry(const std::string& padded_label) {
  DirectoryEntry entry{};
  std::copy_n(padded_label.begin(), kLabelCharacters, entry.name);
  entry.attributes = kLabelAndArchive;
  entry.date[0] = 0x21;  // 1 January 2000
  entry.date[1] = 0x28;
  std::memcpy(SectorBuffer.data(), &entry, sizeof entry);
}

const FatBootImages* ImagesOfBootType() {
  const auto* found = std::find_if(kBootImages.begin(), kBootImages.end(),
                                   [](const FatBootImages& row) { return row.boot_type == BootType; });
  return found == kBootImages.end() ? nullptr : found;
}

void LoadBootImage() {
  DumpParsedOk = false;
  if (const FatBootImages* images = ImagesOfBootType()) {
    images->boot_sector();
  }
  if (!DumpParsedOk) {
    ReportBox("\r\nCOMMAND LINE ERROR: No support for " + BootType + " bootcode");
    MyExitProcess(kLevelBadParameter);
  }
}

void FillParameterBlock(FatParameterBlock& block, std::uint8_t cluster_sectors, std::uint16_t reserved_sectors) {
  std::memcpy(block.jump, BinArray.data(), sizeof block.jump);
  Store16(block.sector_bytes, kSectorBytes);
  block.cluster_sectors = cluster_sectors;
  Store16(block.reserved_sectors, reserved_sectors);
  block.fats = kFatCopies;
  block.media = MediaDescriptor();
  Store16(block.track_sectors, static_cast<std::uint16_t>(GeomSpt));
  Store16(block.heads, static_cast<std::uint16_t>(GeomHeads));
  Store32(block.hidden_sectors, static_cast<std::uint32_t>(VolumeStartLba()));
  Store32(block.total_sectors, static_cast<std::uint32_t>(PartSectors));  // within the limit of the format
}

void FillVolumeBlock(FatVolumeBlock& block, std::string_view file_system) {
  constexpr std::string_view kNoLabel = "NO NAME    ";
  constexpr std::uint8_t kExtendedSignature = 0x29;
  block.drive_number = BiosDriveNumber();
  block.extended_signature = kExtendedSignature;
  DrawVolumeSerial(block.serial);
  std::copy(kNoLabel.begin(), kNoLabel.end(), block.label);
  std::copy(file_system.begin(), file_system.end(), block.file_system);
}

void ClearSectors(std::uint64_t first, std::uint64_t last) {
  std::fill_n(SectorBuffer.begin(), kSectorBytes, std::uint8_t{0});
  for (std::uint64_t lba = first; lba <= last; ++lba) {
    DirectWrite(lba, 1);
  }
}

void FailWrite(const std::string& message) {
  ReportBox(message);
  MyExitProcess(kLevelWriteError);
}
