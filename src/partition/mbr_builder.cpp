#include "partition/mbr_builder.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/random_source.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "platform/byte_order.h"

namespace {

constexpr double kMebibyte = 1'048'576;
constexpr std::int64_t kSecondPartitionRoom = 63LL * kSectorBytes;
constexpr std::int64_t kMostCylinders = 1024;  // ten bits in a CHS address
constexpr std::int64_t kLastCylinder = kMostCylinders - 1;
constexpr std::uint8_t kBeyondHead = 254;  // the CHS address of what CHS can't say: cylinder 1023, head 254, sector 63
constexpr std::uint8_t kBeyondSector = 254;
constexpr std::uint8_t kBeyondCylinder = 255;
constexpr std::uint8_t kActive = 0x80;
constexpr std::uint8_t kTypeFat16 = 0x06;
constexpr std::uint8_t kTypeFat32Lba = 0x0C;
constexpr std::uint8_t kTypeFat16Lba = 0x0E;
constexpr std::uint8_t kTypeHiddenSecond = 0x21;

// A place in the geometry in use; the sector counts from 0.
struct ChsPosition {
  std::int64_t cylinder;
  std::int64_t head;
  std::int64_t sector;
  std::int64_t Sectors() const { return cylinder * GeomHeads * GeomSpt + head * GeomSpt + sector; }
};

// What the table gets as a CHS address: the sector byte carries bits 8 and 9 of the cylinder. Partition 1 counts
// sectors from 0 up to the moment it is stored, so 254 there is stored as 255.
struct ChsBytes {
  std::uint8_t cylinder;
  std::uint8_t head;
  std::uint8_t sector;
};

// Partition 1 as the second entry needs it.
ChsPosition start_of_first;
ChsBytes end_of_first;
std::int64_t end_cylinder;  // the last cylinder, or the cylinder count where that is above 1023

std::string Mebibytes(std::int64_t bytes) { return PlainNumber(static_cast<double>(bytes) / kMebibyte) + "MiB"; }

std::uint8_t CylinderBitsOf(std::int64_t cylinder) { return static_cast<std::uint8_t>((cylinder & 0x300) / 4); }

void ApplySizeLimit() {
  if (SizeLimit <= 0 || SizeLimit == DriveBytes) {
    return;
  }
  const std::string drive_size = "\r\nDrive size is " + Mebibytes(DriveBytes);
  if (SizeLimit > DriveBytes) {
    ReportBox(drive_size + "\r\nWARNING: Partition size NOT changed to " + Mebibytes(SizeLimit), kBoxOk);
    return;
  }
  ConsoleWrite(drive_size);
  ConsoleWrite("\r\nInformation: Partition size reduced to " + Mebibytes(SizeLimit) + " (" + PlainNumber(SizeLimit) +
               " bytes)");
  DriveBytes = SizeLimit;
}

// Heads and sectors that reach a drive of `sectors` sectors within 1024 cylinders, as ZIP drives and old BIOSes count.
void ChooseZipGeometry(std::int64_t sectors) {
  GeomHeads = 64;
  GeomSpt = 32;
  if (sectors > kMostCylinders * GeomHeads * GeomSpt) {
    GeomHeads = 128;
  }
  if (sectors > kMostCylinders * GeomHeads * GeomSpt) {
    GeomHeads = 255;
  }
  if (sectors > kMostCylinders * GeomHeads * 63 || (GeomHeads == 255 && OptUsbFdd && !OptChs)) {
    GeomSpt = 63;
  }
  ConsoleWrite("\r\nUsing " + PlainNumber(GeomHeads) + " Heads per cylinder and " + PlainNumber(GeomSpt) +
               " sectors per track");
}

void ChooseStart() {
  StartLba = 2048;
  start_of_first = {0, 1, 0};
  GeomHeads = 255;
  GeomSpt = 63;
  if (UseNtfs || UseExfat) {
    start_of_first = {0, 32, 32};
  }
  if (OptZip || OptChs) {
    StartLba = 32;
    start_of_first = {0, 1, 0};
    ChooseZipGeometry(DriveBytes / kSectorBytes);
  }
}

// Sets PartSectors and the end of partition 1: the last whole cylinder, or, where CHS can't say it, the drive's end.
// The count runs from the CHS start, which on FAT drives is not StartLba: the partition then passes the last whole
// cylinder by the difference, for which identification has kept a cylinder back. Meant so; readers of the table see
// LBAs.
void ChooseEnd() {
  DriveSectors = DriveBytes / kSectorBytes;
  PartSectors = DriveSectors - StartLba;
  end_cylinder = DriveSectors / GeomHeads / GeomSpt;
  if (end_cylinder > kLastCylinder) {
    end_of_first = {kBeyondCylinder, kBeyondHead, kBeyondSector};
    return;
  }
  end_cylinder = std::max<std::int64_t>(end_cylinder - 1, 0);
  const ChsPosition end{end_cylinder, GeomHeads - 1, GeomSpt - 1};
  PartSectors = end.Sectors() - start_of_first.Sectors() + 1;
  end_of_first = {static_cast<std::uint8_t>(end_cylinder), static_cast<std::uint8_t>(end.head),
                  static_cast<std::uint8_t>(end.sector | CylinderBitsOf(end_cylinder))};
}

std::uint8_t PartitionType() {
  if (UseFat32) {
    return kTypeFat32Lba;
  }
  return OptChs ? kTypeFat16 : kTypeFat16Lba;
}

void StoreEntry(std::size_t base, PartitionEntry entry, std::int64_t first_lba, std::int64_t sectors) {
  Store32(entry.first_lba, static_cast<std::uint32_t>(first_lba));
  Store32(entry.sectors, static_cast<std::uint32_t>(sectors));  // the field holds no more than the lower 32 bits
  std::memcpy(&SectorBuffer[base], &entry, sizeof entry);
}

void StoreDiskSignature() {
  std::string text = "\r\nDisk Signature (1b8-1bb) = ";
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<std::uint8_t>(255 * NextRandom());  // 0 to 254
    SectorBuffer[kDiskSignatureOffset + i] = byte;
    text += HexPad(byte, 2) + " ";
  }
  ConsoleWrite(text);
}

// One sector on from the end of partition 1; here the sector counts from 1.
ChsPosition NextSector(ChsPosition at) {
  if (at.sector + 1 <= GeomSpt) {
    return {at.cylinder, at.head, at.sector + 1};
  }
  if (at.head + 1 <= GeomHeads - 1) {
    return {at.cylinder, at.head + 1, 1};
  }
  return {at.cylinder + 1, 0, 1};
}

}  // namespace

void BuildPartitionEntry(std::size_t base) {
  ApplySizeLimit();
  if (Opt2Ptn && !OptZip) {
    DriveBytes = std::max<std::int64_t>(DriveBytes - kSecondPartitionRoom, 0);
  }
  ChooseStart();
  ChooseEnd();
  ConsoleWrite("\r\nUsing Cyl:Hd:Sec translation of " + PlainNumber(end_cylinder) + ":" + PlainNumber(GeomHeads) + ":" +
               PlainNumber(GeomSpt));
  if (OptForceLba) {
    end_of_first = {kBeyondCylinder, kBeyondHead, kBeyondSector};
  }
  PartitionEntry entry{};
  entry.status = OptNoAct ? 0 : kActive;
  entry.start_head = static_cast<std::uint8_t>(start_of_first.head);
  entry.start_sector = static_cast<std::uint8_t>(start_of_first.sector + 1);
  entry.start_cylinder = static_cast<std::uint8_t>(start_of_first.cylinder);
  entry.type = PartitionType();
  entry.end_head = end_of_first.head;
  entry.end_sector = static_cast<std::uint8_t>(end_of_first.sector + 1);
  entry.end_cylinder = end_of_first.cylinder;
  ConsoleWrite("\r\nPartition type = " + HexPad(entry.type, 2) + " hex");
  StoreEntry(base, entry, StartLba, PartSectors);
  SectorBuffer[kSignatureOffset] = 0x55;
  SectorBuffer[kSignatureOffset + 1] = 0xAA;
  ConsoleWrite("  P1 ends at cylinder " +
               PlainNumber(static_cast<double>(StartLba + PartSectors) / GeomSpt / GeomHeads));
  if (!OptUsbFdd) {
    ConsoleWrite("\r\nPartition 1 starts at LBA " + PlainNumber(StartLba) + ", size=" + PlainNumber(PartSectors) +
                 " sectors" + (OptNoAct ? " (non-bootable)" : " (Active)"));
    StoreDiskSignature();
  }
  PartStartLba = StartLba;
}

void BuildSecondEntry(std::size_t base) {
  SecondPartLba = StartLba + PartSectors;
  std::int64_t size = GeomSpt;
  ChsPosition start{end_cylinder, end_of_first.head, (end_of_first.sector + 1) & 0x3F};
  ChsBytes start_bytes{kBeyondCylinder, kBeyondHead, 255};
  if (end_cylinder < kLastCylinder) {
    start = NextSector(start);
    start_bytes = {static_cast<std::uint8_t>(start.cylinder), static_cast<std::uint8_t>(start.head),
                   static_cast<std::uint8_t>(start.sector)};
  } else {
    start.head = start_bytes.head;
    start.sector = start_bytes.sector;
  }

  const std::int64_t last = size + SecondPartLba - 1;
  const std::int64_t last_cylinder = last / GeomHeads / GeomSpt;
  ChsBytes end_bytes{kBeyondCylinder, kBeyondHead, kBeyondSector};
  if (last_cylinder <= kLastCylinder) {
    const std::int64_t rest = last - last_cylinder * GeomHeads * GeomSpt;
    const ChsPosition end{last_cylinder, rest / GeomSpt, (rest % GeomSpt) & 0x3F};
    size = end.Sectors() - start.Sectors() + 2;  // the start counts its sector from 1, the end from 0
    start_bytes.cylinder = static_cast<std::uint8_t>(start.cylinder);
    start_bytes.sector = static_cast<std::uint8_t>(start_bytes.sector | CylinderBitsOf(start.cylinder));
    end_bytes = {static_cast<std::uint8_t>(end.cylinder), static_cast<std::uint8_t>(end.head),
                 static_cast<std::uint8_t>(end.sector | CylinderBitsOf(end.cylinder))};
  }
  ConsoleWrite("\r\n2PTN - 2nd hidden partition starts at LBA " + PlainNumber(SecondPartLba) +
               ", size=" + PlainNumber(size) + " sectors");
  if (start.cylinder > kLastCylinder || OptForceLba) {
    end_bytes = {kBeyondCylinder, kBeyondHead, kBeyondSector};
  }
  PartitionEntry entry{};
  entry.start_head = start_bytes.head;
  entry.start_sector = start_bytes.sector;
  entry.start_cylinder = start_bytes.cylinder;
  entry.type = kTypeHiddenSecond;
  entry.end_head = end_bytes.head;
  entry.end_sector = static_cast<std::uint8_t>(end_bytes.sector + 1);
  entry.end_cylinder = end_bytes.cylinder;
  StoreEntry(base, entry, SecondPartLba, size);
}
