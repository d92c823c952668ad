#include "format/fat32.h"

#include <algorithm>
#include <cmath>
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

constexpr std::uint32_t kEntriesPerSector = 128;
constexpr std::uint32_t kAlignment = 2048;    // 1 MiB
constexpr std::uint32_t kLeastReserved = 34;  // up to the copy of the extended boot code, and some room
constexpr std::uint32_t kBackupDistance = 6;  // from a boot sector to its copy
constexpr std::uint32_t kFatChunk = 1024;     // sectors a transfer
constexpr std::uint32_t kRootCluster = 2;
constexpr std::size_t kBootCodeOffset = 0x5A;
constexpr std::size_t kBootCodeBytes = kSignatureOffset - kBootCodeOffset;
constexpr std::string_view kOemName = "MSDOS5.1";
constexpr std::string_view kFileSystem = "FAT32   ";

struct BootSector {
  FatParameterBlock parameters;            // 0x000
  std::uint8_t fat_sectors[4];             // 0x024
  std::uint8_t flags_and_version[4];       // 0x028: 0
  std::uint8_t root_cluster[4];            // 0x02C
  std::uint8_t info_sector[2];             // 0x030
  std::uint8_t backup_sector[2];           // 0x032
  std::uint8_t unused[12];                 // 0x034
  FatVolumeBlock volume;                   // 0x040
  std::uint8_t boot_code[kBootCodeBytes];  // 0x05A
  std::uint8_t signature[2];               // 0x1FE
};
static_assert(sizeof(BootSector) == kSectorBytes);
static_assert(offsetof(BootSector, volume) == 0x40 && offsetof(BootSector, boot_code) == kBootCodeOffset);

struct InfoSector {
  std::uint8_t lead[4];           // 0x000
  std::uint8_t unused[480];       // 0x004
  std::uint8_t structure[4];      // 0x1E4
  std::uint8_t free_clusters[4];  // 0x1E8: unknown
  std::uint8_t next_free[4];      // 0x1EC
  std::uint8_t unused_too[12];    // 0x1F0
  std::uint8_t trail[4];          // 0x1FC
};
static_assert(sizeof(InfoSector) == kSectorBytes && offsetof(InfoSector, next_free) == 0x1EC);

struct TrailSector {
  std::uint8_t unused[508];  // 0x000
  std::uint8_t trail[4];     // 0x1FC
};
static_assert(sizeof(TrailSector) == kSectorBytes);

struct BootBlock {
  BootSector boot;
  InfoSector info;
  TrailSector third;
};
static_assert(sizeof(BootBlock) == std::size_t{3} * kSectorBytes);

constexpr std::uint32_t kTrailSignature = 0xAA550000;

// The volume that is being written: its first LBA and its numbers.
struct Volume {
  std::uint64_t start;
  Fat32Layout layout;
  std::uint64_t FatLba(std::uint32_t copy) const { return start + layout.reserved + std::uint64_t{copy} * layout.fat; }
  std::uint64_t RootLba() const { return FatLba(kFatCopies); }
};

void FillBootSector(BootSector& boot, const Fat32Layout& layout) {
  FillParameterBlock(boot.parameters, layout.cluster, layout.reserved);
  std::copy(kOemName.begin(), kOemName.end(), boot.parameters.oem_name);
  Store32(boot.fat_sectors, layout.fat);
  Store32(boot.root_cluster, kRootCluster);
  Store16(boot.info_sector, 1);
  Store16(boot.backup_sector, kBackupDistance);
  FillVolumeBlock(boot.volume, kFileSystem);
  std::memcpy(boot.boot_code, &BinArray[kBootCodeOffset], sizeof boot.boot_code);
  Store16(boot.signature, 0xAA55);
}

BootBlock MakeBootBlock(const Volume& volume) {
  BootBlock block{};
  FillBootSector(block.boot, volume.layout);
  Store32(block.info.lead, 0x41615252);
  Store32(block.info.structure, 0x61417272);
  Store32(block.info.free_clusters, 0xFFFFFFFF);
  Store32(block.info.next_free, kRootCluster + 1);
  Store32(block.info.trail, kTrailSignature);
  Store32(block.third.trail, kTrailSignature);
  return block;
}

void DescribeBootSector(const Volume& volume) {
  const std::string media = HexPad(MediaDescriptor(), 2) + "h";
  ConsoleWrite("\r\n15h Media Descriptor: " + media);
  ConsoleWrite("\r\n15h Media Descriptor: " +
               std::string(MediaDescriptor() == kMediaHardDisk ? "Hard Disk " : "Floppy ") + media);
  Diagnose("\r\n03h System ID: MSWIN4.1");  // this text, whatever OEM name the sector holds
  Diagnose("\r\n0Bh Sector Size: " + PlainNumber(kSectorBytes));
  Diagnose("\r\n0dh Cluster size: " + PlainNumber(int{volume.layout.cluster}));
  Diagnose("\r\n0Eh Reserved Sectors: " + PlainNumber(volume.layout.reserved));
  Diagnose("\r\n10h Number of Fats: " + PlainNumber(kFatCopies));
  Diagnose("\r\n18h Sectors per track: " + PlainNumber(GeomSpt));
  Diagnose("\r\n1ah Heads per Cylinder: " + PlainNumber(GeomHeads));
  Diagnose("\r\n1ch Relative Hidden sectors (from LBA 0): " + PlainNumber(volume.start));
  Diagnose("\r\n20h Total Sectors (if over 65536): " + PlainNumber(PartSectors));
  Diagnose("\r\n24h No secs per FAT: " + PlainNumber(volume.layout.fat));
  Diagnose("\r\n2ch Cluster no of start of root dir: " + PlainNumber(kRootCluster));
  Diagnose("\r\n52h FileSystem ID: FAT32");
  ConsoleWrite("\r\n40h Drive Number: " + DriveNumberText());
}

void WriteBootBlock(const Volume& volume) {
  const BootBlock block = MakeBootBlock(volume);
  DescribeBootSector(volume);
  SizeSectorBuffer(sizeof block);
  std::memcpy(SectorBuffer.data(), &block, sizeof block);
  if (OptDebug) {
    PrintDump(SectorBuffer);
  }
  constexpr std::int32_t kBlockSectors = sizeof(BootBlock) / kSectorBytes;
  if (!DirectWrite(volume.start, kBlockSectors) || !DirectWrite(volume.start + kBackupDistance, kBlockSectors)) {
    FailWrite("\r\n*** ERROR *** writing partition boot sector");
  }
  Diagnose("\r\nPartition boot sector written OK to LBA " + PlainNumber(volume.start));
}

// The only sector of a FAT that holds data: the two reserved entries and the root directory's one cluster.
void WriteFirstFatSector(const Volume& volume, std::uint32_t copy) {
  SizeSectorBuffer(kSectorBytes);
  Store32(SectorBuffer.data(), 0x0FFFFF00U | MediaDescriptor());
  Store32(&SectorBuffer[4], 0x0FFFFFFF);
  Store32(&SectorBuffer[8], 0x0FFFFFFF);
  const std::uint64_t lba = volume.FatLba(copy);
  if (!DirectWrite(lba, 1)) {
    // "First" whichever copy it is.
    FailWrite("\r\n*** ERROR *** writing First FAT table - " + PlainNumber(volume.layout.fat) + " blocks at LBA " +
              PlainNumber(lba) + "\r\n" + LastErrorText);
  }
  Diagnose(std::string(copy == 0 ? "\r\n1st" : "\r\n2nd") + " FAT table written OK - 1 block at LBA " +
           PlainNumber(lba));
}

void WriteFats(const Volume& volume) {
  const std::uint32_t fat = volume.layout.fat;
  ConsoleWrite("\r\nWriting FAT tables starting at " + PlainNumber(volume.FatLba(0)) + " = 0% ");
  for (std::uint32_t copy = 0; copy < kFatCopies; ++copy) {
    WriteFirstFatSector(volume, copy);
    for (std::uint32_t done = 1; done < fat;) {
      const std::uint32_t chunk = std::min(fat - done, kFatChunk);
      ZeroSectors(volume.FatLba(copy) + done, chunk);
      done += chunk;
      const std::uint64_t written = done + std::uint64_t{copy} * fat;
      ConsoleWrite(PlainNumber(written * 100 / (std::uint64_t{kFatCopies} * fat)) + "% ");
    }
  }
}

void WriteRootDirectory(const Volume& volume, const std::string& padded_label) {
  ConsoleWrite("\r\nWriting root directory starting at " + PlainNumber(volume.RootLba()));
  for (std::uint32_t i = 0; i < volume.layout.cluster; ++i) {
    if (i <= 1) {  // the label's sector, then one zero sector for all others
      SizeSectorBuffer(kSectorBytes);
    }
    if (i == 0) {
      StoreLabelEntry(padded_label);
    }
    const std::uint64_t lba = volume.RootLba() + i;
    if (!DirectWrite(lba, 1)) {
      // The number in this message counts from the start of the volume.
      FailWrite("\r\n*** ERROR *** writing First Dir entries at LBA " + PlainNumber(lba - volume.start) +
                LastErrorText);
    }
    Diagnose("\r\nRoot directory written OK - 32 blocks at LBA " + PlainNumber(lba));
  }
  ConsoleWrite("\r\nVolume Name: " + padded_label);
}

void WriteExtendedSector(std::uint64_t lba) {
  if (!DirectWrite(lba, 1)) {
    FailWrite("ERROR: Write to disk failed at " + PlainNumber(lba) + "\r\n");
  }
  if (OptDebug) {
    PrintDump(SectorBuffer);
  }
}

// True when the volume can be FAT32. Too large a volume shows a box, whatever OptSure says, and nothing on the console.
bool SizeFits() {
  if (PartSectors > kFat32MostSectors) {
    port->ShowBox("Disk is too large for FAT32  (over 2TB)!", kBoxOk | kBoxExclamation, kProgramName);
    return false;
  }
  if (PartSectors < kFat32LeastSectors) {
    ReportBox("ERROR: FAT32 must be at least 263MB. Use FAT16 instead.");
    MyExitProcess(kLevelBadParameter);
  }
  return true;
}

}  // namespace

Fat32Layout ComputeFat32Layout(std::int64_t sectors, std::int64_t start_lba) {
  constexpr std::int64_t kStep = 16'777'216;  // 8 GiB: the cluster doubles above one, two and four of them
  std::uint8_t cluster = 8;
  for (std::int64_t limit = kStep; limit <= 4 * kStep && sectors > limit; limit *= 2) {
    cluster = static_cast<std::uint8_t>(cluster * 2);
  }
  // Rounded to the nearest whole number, ties to the even one: 15,599,052 sectors of 8 a cluster give 15234.449, 15234.
  const double exact = static_cast<double>(sectors) / (kEntriesPerSector * cluster) + 1;
  const auto fat = static_cast<std::uint32_t>(std::nearbyint(exact));
  // FATs and root directory fill the space up to a boundary.
  const std::int64_t used = std::int64_t{kFatCopies} * fat + start_lba + cluster;
  std::int64_t reserved = kAlignment - used % kAlignment;
  if (reserved < kLeastReserved) {
    reserved += kAlignment;
  }
  return {cluster, fat, static_cast<std::uint16_t>(reserved)};
}

void FormatFat32(const std::string& label) {
  const std::string padded_label = PaddedLabel(label);
  ConsoleWrite("\r\nFORMATTING AS FAT32");
  if (!SizeFits()) {
    return;
  }
  LoadBootImage();
  ConsoleWrite("\r\nFAT32 Boot type set to " + BootType);
  const Volume volume{VolumeStartLba(), ComputeFat32Layout(PartSectors, StartLba)};
  WriteBootBlock(volume);
  WriteFats(volume);
  WriteRootDirectory(volume, padded_label);
  WriteExtendedBootCode();
  UnLock_Close_Volume();
}

void ZeroSectors(std::uint64_t lba, std::uint32_t sectors) {
  SizeSectorBuffer(std::size_t{sectors} * kSectorBytes);
  const std::string where = "ectors at " + PlainNumber(lba) + " for " + PlainNumber(sectors) + " zero'd ";
  if (!DirectWrite(lba, static_cast<std::int32_t>(sectors))) {
    FailWrite("\r\n*** ERROR *** clearing s" + where + "\r\n" + LastErrorText);
  }
  Diagnose("\r\nS" + where);
}

void WriteExtendedBootCode() {
  const FatBootImages* images = ImagesOfBootType();
  if (images == nullptr || images->extended == nullptr) {
    return;
  }
  images->extended();
  const std::uint64_t lba = VolumeStartLba() + images->extended_sector;
  ConsoleWrite("\r\nWriting extended boot code to sector " + PlainNumber(lba));
  WriteExtendedSector(lba);
  const std::uint64_t copy = lba + kBackupDistance;
  ConsoleWrite("\r\nWriting 2nd copy of extended boot code to sector " + PlainNumber(copy));
  WriteExtendedSector(copy);
}
