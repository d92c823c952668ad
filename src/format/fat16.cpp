#include "format/fat16.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "format/fat_volume.h"
#include "format/images/boot_images.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"

namespace {

// The layout, in sectors from the volume's start; no part of it depends on the volume's size.
constexpr std::uint32_t kReserved = 1;
constexpr std::uint32_t kFatSectors = 256;
constexpr std::uint32_t kRootEntries = 512;
constexpr std::uint32_t kRootSectors = 32;
constexpr std::uint32_t kFirstFat = kReserved;
constexpr std::uint32_t kSecondFat = kFirstFat + kFatSectors;
constexpr std::uint32_t kRoot = kSecondFat + kFatSectors;

constexpr std::size_t kBootCodeOffset = 0x3E;
constexpr std::size_t kBootCodeBytes = kSignatureOffset - kBootCodeOffset;
constexpr std::string_view kFileSystem = "FAT16   ";

struct BootSector {
  FatParameterBlock parameters;            // 0x000
  FatVolumeBlock volume;                   // 0x024
  std::uint8_t boot_code[kBootCodeBytes];  // 0x03E
  std::uint8_t signature[2];               // 0x1FE
};
static_assert(sizeof(BootSector) == kSectorBytes);
static_assert(offsetof(BootSector, boot_code) == kBootCodeOffset);

// Refuses a volume that can't be FAT16, and warns of one that DOS can't use.
void CheckSize() {
  constexpr std::int64_t kMostForDos = 4'192'902;
  if (PartSectors < kFat16LeastSectors || PartSectors > kFat16MostSectors) {
    ReportBox("\r\nERROR: FAT-16 must be between 300KiB and 4GiB. Specify FAT32 instead.");
    MyExitProcess(kLevelBadParameter);
  }
  if (PartSectors > kMostForDos) {
    ReportBox(
        "\r\nWARNING: DOS and Win9x cannot recognise FAT16 partitions over 2GB - use SIZE=2000 parameter or FAT32.");
  }
}

BootSector MakeBootSector() {
  BootSector boot{};
  FatParameterBlock& parameters = boot.parameters;
  FillParameterBlock(parameters, Fat16ClusterSectors(PartSectors), kReserved);
  std::memcpy(parameters.oem_name, &BinArray[offsetof(FatParameterBlock, oem_name)], sizeof parameters.oem_name);
  Store16(parameters.root_entries, kRootEntries);
  Store16(parameters.fat_16, kFatSectors);
  FillVolumeBlock(boot.volume, kFileSystem);
  std::memcpy(boot.boot_code, &BinArray[kBootCodeOffset], sizeof boot.boot_code);
  Store16(boot.signature, 0xAA55);
  return boot;
}

void DescribeBootSector(std::uint64_t volume) {
  ConsoleWrite("\r\n15h Media Descriptor: " + HexPad(MediaDescriptor(), 2) + "h");
  ConsoleWrite("\r\n15h Media Descriptor: " +
               std::string(MediaDescriptor() == kMediaHardDisk ? "Hard Disk (0f8h)" : "Floppy (0h)"));
  Diagnose("\r\n03h System ID: MSDOS5.0");  // these texts, whatever OEM name and label the sector holds
  Diagnose("\r\n0Bh Sector Size: 512 bytes");
  Diagnose("\r\n0dh Cluster size: " + PlainNumber(int{Fat16ClusterSectors(PartSectors)}));
  Diagnose("\r\n0Eh Reserved Sectors: " + PlainNumber(kReserved));
  Diagnose("\r\n10h Number of Fats: 2");
  Diagnose("\r\n11h Max Root Entries: " + PlainNumber(kRootEntries));
  Diagnose("\r\n16h Sectors per FAT: " + PlainNumber(kFatSectors));
  Diagnose("\r\n18h Sectors per track: " + PlainNumber(GeomSpt));
  Diagnose("\r\n1ah Heads per Cylinder: " + PlainNumber(GeomHeads));
  Diagnose("\r\n1ch Relative Hidden sectors (from LBA 0): " + PlainNumber(volume));
  Diagnose("\r\n20h Total Sectors (if over 65536): " + PlainNumber(PartSectors));
  Diagnose("\r\n13h Total Sectors (if less 65536): 0");
  Diagnose("\r\n2Bh Partition label: NO NAME");
  Diagnose("\r\n36h FileSystem ID: FAT16");
  ConsoleWrite("\r\n24h Drive Number: " + DriveNumberText());
}

void WriteBootSector(std::uint64_t volume) {
  const BootSector boot = MakeBootSector();
  DescribeBootSector(volume);
  std::memcpy(SectorBuffer.data(), &boot, sizeof boot);
  if (OptDebug) {
    PrintDump(SectorBuffer);
  }
  if (!DirectWrite(volume, 1)) {
    FailWrite("\r\n*** ERROR *** writing partition boot sector");
  }
  Diagnose("\r\nPartition boot sector written OK to LBA " + PlainNumber(volume));
}

void WriteFats(std::uint64_t volume) {
  const std::string first = PlainNumber(volume + kFirstFat);
  const std::string second = PlainNumber(volume + kSecondFat);
  SizeSectorBuffer(std::size_t{kFatCopies} * kFatSectors * kSectorBytes);
  Store32(SectorBuffer.data(), 0xFFFFFF00U | MediaDescriptor());
  if (!DirectWrite(volume + kFirstFat, kFatSectors)) {
    ConsoleWrite("\r\n" + LastErrorText);
    FailWrite("\r\n*** ERROR *** writing First FAT table - 256 blocks at LBA " + first);
  }
  Diagnose("\r\nFirst FAT table written OK - 256 blocks at LBA " + first);
  if (!DirectWrite(volume + kSecondFat, kFatSectors)) {
    ConsoleWrite("\r\n*** ERROR *** writing Second FAT table to LBA " + second);
    MyExitProcess(kLevelWriteError);
  }
  Diagnose("\r\nSecond FAT table written OK - 256 blocks at LBA " + second);
}

void WriteRootDirectory(std::uint64_t volume, const std::string& padded_label) {
  const std::string root = PlainNumber(volume + kRoot);
  SizeSectorBuffer(std::size_t{kRootSectors} * kSectorBytes + 1);
  StoreLabelEntry(padded_label);
  if (!DirectWrite(volume + kRoot, kRootSectors)) {
    ConsoleWrite("\r\n*** ERROR *** writing root directory - 32 blocks at LBA " + root);
    MyExitProcess(kLevelWriteError);
  }
  Diagnose("\r\nRoot directory written OK - 32 blocks at LBA " + root);
  ConsoleWrite("\r\nVolume Name: " + padded_label);
}

}  // namespace

std::uint8_t Fat16ClusterSectors(std::int64_t sectors) {
  constexpr std::int64_t kMostClusters = 65'518;
  constexpr int kLargest = 128;
  // FATs and root directory are added here, not subtracted: the step comes a little early, and stays where it is, since
  // volumes made before must keep their size.
  const std::int64_t counted = sectors - kReserved + std::int64_t{kFatCopies} * kFatSectors + kRootSectors;
  int cluster = 2;
  while (cluster < kLargest && counted >= kMostClusters * cluster) {
    cluster *= 2;
  }
  return static_cast<std::uint8_t>(cluster);
}

void FormatFat16(const std::string& label) {
  constexpr std::uint64_t kClearedFirst = 100;  // the old boot sector, the start of an old FAT, and what else lay there
  const std::uint64_t volume = VolumeStartLba();
  const std::string padded_label = PaddedLabel(label);
  ConsoleWrite("\r\nFORMATTING AS FAT16");
  CheckSize();
  LoadBootImage();
  ConsoleWrite("\r\nBoot type set to " + BootType);
  ClearSectors(volume, volume + kClearedFirst);
  WriteBootSector(volume);
  WriteFats(volume);
  WriteRootDirectory(volume, padded_label);
  UnLock_Close_Volume();
}
