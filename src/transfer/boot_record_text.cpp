#include "transfer/boot_record_text.h"

#include <array>
#include <cmath>
#include <string_view>

#include "console/number_text.h"
#include "disk/sector_io.h"
#include "partition/table_reader.h"

namespace {

std::uint8_t ByteValue(std::size_t offset) { return offset < SectorBuffer.size() ? SectorBuffer[offset] : 0; }
std::uint32_t WordValue(std::size_t offset) { return ByteValue(offset) + 256U * ByteValue(offset + 1); }
std::uint32_t DwordValue(std::size_t offset) { return ReadLe32(offset); }

std::string Field(std::uint32_t value, std::size_t digits) {
  return PlainNumber(value) + " (" + HexPad(value, digits) + "h)";
}
std::string ByteField(std::size_t offset) { return Field(ByteValue(offset), 2); }
std::string WordField(std::size_t offset) { return Field(WordValue(offset), 4); }
std::string DwordField(std::size_t offset) { return Field(DwordValue(offset), 8); }

std::string QwordHexField(std::size_t offset) {
  return HexPad(DwordValue(offset + 4), 8) + HexPad(DwordValue(offset), 8) + "h";
}

std::string LabelText(std::size_t first, std::size_t last) {
  std::string text;
  for (std::size_t at = first; at <= last; ++at) {
    text += static_cast<char>(ByteValue(at));
  }
  return text;
}

std::string MediaField(std::size_t offset) {
  const std::uint8_t media = ByteValue(offset);
  std::string text = ByteField(offset);
  text += media != 0xF8 && media != 0 ? " Floppy" : "";
  text += media == 0xED ? " 720K Floppy" : "";
  text += media == 0xF0 ? " 1.44 or 2.88MB Floppy" : "";
  text += media == 0xF8 ? " HDD" : "";
  return text;
}

std::string DriveField(std::size_t offset) {
  const std::uint8_t drive = ByteValue(offset);
  return ByteField(offset) + (drive == 0 ? " Removable/Floppy Media" : drive == 128 ? " First Fixed Disk" : "");
}

enum class Kind { kNone, kFat16, kFat32, kExfat, kNtfs };

// The tests run in this order, and the last one that passes counts.
Kind Recognise() {
  if (ByteValue(510) != 0x55 || ByteValue(511) != 0xAA) {
    return Kind::kNone;
  }
  const bool version_is_zero = (ByteValue(42) | ByteValue(43)) == 0;
  const auto has_extended_signature = [](std::size_t offset) {
    return ByteValue(offset) == 0x28 || ByteValue(offset) == 0x29;
  };
  Kind kind = Kind::kNone;
  if (has_extended_signature(66) && version_is_zero) {
    kind = Kind::kFat32;
  }
  if (LabelText(3, 7) == "EXFAT" && version_is_zero) {
    kind = Kind::kExfat;
  }
  if (has_extended_signature(38) && !version_is_zero) {
    kind = Kind::kFat16;
  }
  if (LabelText(16, 20) == std::string(5, '\0') && !version_is_zero) {
    kind = Kind::kNtfs;
  }
  return kind;
}

// A field that is shown: its label, what turns it into text, its offset, and whether NTFS volumes have it.
struct FieldRow {
  std::string_view label;
  std::string (*text)(std::size_t offset);
  std::size_t offset;
  bool on_ntfs = false;
};

constexpr std::array kCommonFields{
    FieldRow{"000B Bytes Per Sector = ", WordField, 11, true},
    FieldRow{"000D Sectors Per Cluster = ", ByteField, 13, true},
    FieldRow{"000E Reserved Sectors before first FAT = ", WordField, 14},
    FieldRow{"0010 Number of FATs = ", ByteField, 16},
    FieldRow{"0011 Root Entries = ", WordField, 17},
    FieldRow{"0013 Total Log Sectors (small) = ", WordField, 19},
    FieldRow{"0015 Media Descriptor = ", MediaField, 21, true},
    FieldRow{"0016 Sectors per FAT table = ", WordField, 22},
    FieldRow{"0018 Sectors per Track = ", WordField, 24},
    FieldRow{"001A Number of Heads per Cylinder = ", WordField, 26},
    FieldRow{"001C Hidden Sectors preceding Partition = ", DwordField, 28},
    FieldRow{"0020 Total Log. Sectors (big) = ", DwordField, 32, true},
};
constexpr std::array kFat16Fields{
    FieldRow{"0024 Physical Drive Number = ", DriveField, 36},
    FieldRow{"0026 Extended Boot Signature = ", ByteField, 38},
    FieldRow{"0027 Volume ID Serial No. = ", DwordField, 39},
    FieldRow{"002B Volume Label = ", [](std::size_t offset) { return LabelText(offset, offset + 10); }, 43},
    FieldRow{"0036 FileSystem Type = ", [](std::size_t offset) { return LabelText(offset, offset + 7); }, 54},
};
constexpr std::array kFat32Fields{
    FieldRow{"0024 Log. Sectors per FAT = ", DwordField, 36},
    FieldRow{"0028 Mirroring Flags = ", WordField, 40},
    FieldRow{"002A Version No. = ", WordField, 42},
    FieldRow{"002C Cluster No. of Root Dir Start = ", DwordField, 44},
    FieldRow{"0030 Log. Sector No. of FS Info Sector = ", WordField, 48},
    FieldRow{"0032 First logical sector number of a copy of the three FAT32 boot sectors, typically 6 = ", WordField,
             50},
    FieldRow{"0040 Physical Drive Number = ", DriveField, 64},
    FieldRow{"0042 Extended Boot Signature = ", ByteField, 66},
    FieldRow{"0043 Volume ID Serial No. = ", DwordField, 67},
    FieldRow{"0047 Volume Label = ", [](std::size_t offset) { return LabelText(offset, offset + 10); }, 71},
    FieldRow{"0052 FileSystem Type = ", [](std::size_t offset) { return LabelText(offset, offset + 7); }, 82},
};
constexpr std::array kNtfsFields{
    FieldRow{"0028 Total Sectors on HDD = ", QwordHexField, 40},
    FieldRow{"0030 Log. Cluster no. for $MFT file = ", QwordHexField, 48},
    FieldRow{"0038 Log. Cluster no. for $MFTMirr file = ", QwordHexField, 56},
    FieldRow{"0040 Clusters per MFT Record = ", ByteField, 64},
    FieldRow{"0044 Clusters per Index Buffer = ", ByteField, 68},
    FieldRow{"0048 Volume ID Serial No. = ", QwordHexField, 72},
};

std::string Line(std::string_view label, const std::string& value) { return "\r\n" + std::string(label) + value; }
std::string Line(std::string_view label, std::int64_t value) { return Line(label, PlainNumber(value)); }

template <std::size_t Rows>
std::string Lines(const std::array<FieldRow, Rows>& rows, bool on_ntfs_only = false) {
  std::string text;
  for (const FieldRow& row : rows) {
    if (row.on_ntfs || !on_ntfs_only) {
      text += Line(row.label, row.text(row.offset));
    }
  }
  return text;
}

// LBAs of what FAT16 and FAT32 volumes have alike; `fat` is the size of a FAT in sectors.
struct FatPositions {
  std::int64_t first_fat;
  std::int64_t second_fat;
  std::int64_t behind_fats;
};
FatPositions PositionsWith(std::uint32_t fat) {
  const std::int64_t first = std::int64_t{DwordValue(28)} + WordValue(14);
  return {first, first + fat, first + std::int64_t{ByteValue(16)} * fat};
}
std::string FatLines(const FatPositions& positions) {
  return "\r\n" + Line("First FAT begins at LBA ", positions.first_fat) +
         Line("Second FAT begins at LBA ", positions.second_fat) +
         Line("Root Directory begins at LBA ", positions.behind_fats);
}

std::string Fat16Text() {
  const FatPositions positions = PositionsWith(WordValue(22));
  const std::uint32_t sector_bytes = WordValue(11);
  const double root = sector_bytes == 0 ? 0 : static_cast<double>(WordValue(17)) * 32 / sector_bytes;
  const std::int64_t data = positions.behind_fats + std::llround(root);
  return "BPB TYPE=FAT16" + Lines(kCommonFields) + Lines(kFat16Fields) + FatLines(positions) +
         Line("Cluster 0 begins at LBA ", data - 2 * std::int64_t{ByteValue(13)}) +
         Line("First file data (cluster #2) begins at LBA ", data);
}

std::string Fat32Text() {
  const FatPositions positions = PositionsWith(DwordValue(36));
  const std::int64_t data = positions.behind_fats + ByteValue(13) * (std::int64_t{DwordValue(44)} - 1);
  return "BPB TYPE=FAT32" + Lines(kCommonFields) + Lines(kFat32Fields) + FatLines(positions) +
         Line("First file data (cluster 0) begins at LBA ", data);
}

std::string NtfsText() { return "BPB TYPE=NTFS" + Lines(kCommonFields, true) + Lines(kNtfsFields); }

// 2 to the power of a byte, as a number without a limit of 64 bits.
double PowerOfTwo(std::size_t offset) { return std::ldexp(1.0, ByteValue(offset)); }

std::string ExfatText() {
  const double cluster = PowerOfTwo(109);
  const double heap = static_cast<double>(DwordValue(88)) + static_cast<double>(ReadLe64(64));
  const double root = static_cast<double>(DwordValue(96));
  const auto number = [](double value) { return PlainNumber(value); };
  return "EXFAT" + Line("0040h Partition Offset = ", QwordHexField(64)) +
         Line("0048h Volume Size in sectors = ", PlainNumber(ReadLe64(72)) + "(" + QwordHexField(72) + ")") +
         Line("0050h 1st FAT sector = ", DwordValue(80)) + Line("0054h Size of FAT in sectors = ", DwordValue(84)) +
         Line("0058h Cluster Heap Offset Data Region in sectors = ", DwordValue(88)) +
         Line("005Ch No. Clusters in Heap = ", DwordValue(92)) +
         Line("0060h First Cluster of Root Dir = ", DwordValue(96)) +
         Line("006Ch Bytes per Sector = ", number(PowerOfTwo(108))) +
         Line("006Dh Sectors per Cluster = ", number(cluster)) + Line("006Eh Number of FATs = ", ByteValue(110)) +
         Line("006Fh Drive Select (Int13h) Number = ", HexText(ByteValue(111)) + "h") +
         Line("0070h Percent In Use = ", PlainNumber(int{ByteValue(112)}) + "%") +
         Line("006Ah Volume Flags = ", ByteValue(106)) + Line("Cluster Heap at ", number(heap)) +
         Line("Sector offset of First Cluster of Root Dir = ", number((root - 2) * cluster)) +
         Line("First Directory Entry at ", number(heap + (root - 2) * cluster)) +
         Line("First File at ", number(heap + (root - 1) * cluster));
}

}  // namespace

std::string BootRecordText() {
  std::string text;
  switch (Recognise()) {
    case Kind::kNone:
      return "";
    case Kind::kFat16:
      text = Fat16Text();
      break;
    case Kind::kFat32:
      text = Fat32Text();
      break;
    case Kind::kExfat:
      text = ExfatText();
      break;
    case Kind::kNtfs:
      text = NtfsText();
      break;
  }
  return "\r\n" + text + "\r\n";
}
