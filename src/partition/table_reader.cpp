#include "partition/table_reader.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "console/console.h"
#include "console/number_text.h"
#include "disk/sector_io.h"
#include "partition/mbr_builder.h"

namespace {

constexpr int kMbrEntries = 4;
constexpr int kMostExtents = 8;
constexpr std::uint8_t kTypeExtended = 0x05;
constexpr std::uint8_t kTypeExtendedLba = 0x0F;
constexpr std::uint8_t kTypeProtective = 0xEE;

// A GPT header and its entries.
constexpr std::string_view kGptSignature = "EFI PART";
constexpr std::uint64_t kGptEntriesLba = 72;
constexpr std::uint64_t kGptEntryCount = 80;
constexpr std::uint64_t kGptEntryBytes = 84;
constexpr std::uint64_t kEntriesAt = 1024;  // LBA 2, the only place that is read
constexpr std::uint64_t kEntryFirst = 32;
constexpr std::uint64_t kEntryLast = 40;
constexpr std::int64_t kMostGptEntries = 12;

struct TypeName {
  std::uint8_t type;
  std::string_view name;
};
constexpr std::array kTypeNames{
    TypeName{0x01, "12-bit FAT"},
    TypeName{0x02, "XENIX"},
    TypeName{0x03, "XENIX"},
    TypeName{0x04, "16-bit FAT"},
    TypeName{0x05, "EXT (8GB max)"},
    TypeName{0x06, "16-bit FAT (32GB max)"},
    TypeName{0x07, "NTFS\\exFAT"},
    TypeName{0x08, "OS2"},
    TypeName{0x09, "AIX"},
    TypeName{0x0A, "Coherent"},
    TypeName{0x0B, "FAT32 (2047GB max)"},
    TypeName{0x0C, "FAT32LBA (2047GB max)"},
    TypeName{0x0D, "unknown"},
    TypeName{0x0E, "FAT16LBA"},
    TypeName{0x0F, "EXTLBA"},
    TypeName{0x21, "Hidden(rsvd)"},
    TypeName{kTypeProtective, "***GPT PARTITION***"},
};

std::uint8_t ByteAt(std::uint64_t offset) {
  return offset < SectorBuffer.size() ? SectorBuffer[static_cast<std::size_t>(offset)] : 0;
}

// An entry of the MBR, by its number from 1 to 4.
struct Entry {
  std::uint64_t base;
  explicit Entry(int number) : base(kTableOffset + sizeof(PartitionEntry) * static_cast<std::uint64_t>(number - 1)) {}
  std::uint8_t Status() const { return ByteAt(base); }
  std::uint8_t Type() const { return ByteAt(base + offsetof(PartitionEntry, type)); }
  std::uint64_t First() const { return ReadLe32(base + offsetof(PartitionEntry, first_lba)); }
  std::uint64_t Sectors() const { return ReadLe32(base + offsetof(PartitionEntry, sectors)); }
  // A status of 0, or of 80h to 9Fh.
  bool HasGoodStatus() const { return Status() == 0 || (Status() & 0xE0) == 0x80; }
  bool IsExtended() const { return Type() == kTypeExtended || Type() == kTypeExtendedLba; }
};

bool ReadMbrExtents(PartitionExtents& extents) {
  bool found = false;
  for (int i = 1; i <= kMbrEntries; ++i) {
    const Entry entry(i);
    if (!entry.HasGoodStatus() || entry.Sectors() == 0 || entry.Type() == 0) {
      continue;
    }
    const Extent extent{static_cast<std::int64_t>(entry.First()),
                        static_cast<std::int64_t>(entry.First() + entry.Sectors() - 1)};
    (entry.IsExtended() ? extents[kPext] : ExtentOf(extents, i)) = extent;
    found = true;
  }
  return found;
}

int ProtectiveSlot() {
  for (int i = 1; i <= kMbrEntries; ++i) {
    if (Entry(i).Type() == kTypeProtective) {
      return i;
    }
  }
  return 0;
}

// True when a GPT header that can be used lies at this byte of the buffer.
bool AcceptHeader(std::uint64_t header) {
  for (std::size_t i = 0; i < kGptSignature.size(); ++i) {
    if (ByteAt(header + i) != static_cast<std::uint8_t>(kGptSignature[i])) {
      return false;
    }
  }
  if (ReadLe64(header + kGptEntriesLba) != 2) {
    ReportBox(
        "\r\n\r\nWarning: GPT Partition list does not start at Sector LBA2. Sorry, Korventix can only parse standard "
        "GPT "
        "partition formats.\r\n");
    return false;
  }
  return true;
}

// The entries in use take the extents from slot `slot` on, the protective entry's own first of all.
void ReadGptEntries(PartitionExtents& extents, std::uint64_t header, int slot) {
  std::int64_t entries = ReadLe32(header + kGptEntryCount);
  if (entries > kMostGptEntries - slot) {
    entries = kMostGptEntries;
  }
  const std::uint64_t entry_bytes = ReadLe32(header + kGptEntryBytes);
  const std::int64_t last = entries - slot;
  std::uint64_t entry = kEntriesAt;
  for (std::int64_t k = 0; k <= last && LastTransferBytes >= entry + kEntryFirst; ++k, entry += entry_bytes) {
    if (ReadLe64(entry) == 0) {
      continue;
    }
    const Extent extent{ReadLe64(entry + kEntryFirst), ReadLe64(entry + kEntryLast)};
    if (slot <= kMostExtents) {
      ExtentOf(extents, slot) = extent;
    }
    extents[kPall].first = std::max(extents[kPall].first, extent.first);
    extents[kPall].last = std::max(extents[kPall].last, extent.last);
    ++slot;
  }
}

std::string GroupedLba(std::uint64_t value) { return NumberText(value, "0,000,000,000"); }

std::string MebibytesOf(std::uint64_t sectors) {
  constexpr double kSectorsPerMebibyte = 2048;
  constexpr double kThousandths = 1000;
  const double rounded = std::round(static_cast<double>(sectors) / kSectorsPerMebibyte * kThousandths);
  return PlainNumber(rounded / kThousandths);
}

// A CHS address whose bytes stand at head, sector, cylinder.
std::string ChsText(std::uint64_t at) {
  const int sector_byte = ByteAt(at + 1);
  return "CYL:" + std::to_string(ByteAt(at + 2) + 4 * (sector_byte & 0xC0)) + " HD:" + std::to_string(ByteAt(at)) +
         " SEC:" + std::to_string(sector_byte & 63);
}

std::string EntryText(int number) {
  const Entry entry(number);
  const auto* name =
      std::find_if(kTypeNames.begin(), kTypeNames.end(), [&](const TypeName& row) { return row.type == entry.Type(); });
  std::string text = "\r\n\r\nMBR Partition " + std::to_string(number) + "   SIZE=" + MebibytesOf(entry.Sectors()) +
                     "MiB   Type: " + HexPad(entry.Type(), 2) + " ";
  text += name == kTypeNames.end() ? "" : name->name;
  text += (entry.Status() & 0x80) != 0 ? "  *ACTIVE*" : "       ";
  text += "\r\nSTART POS   = " + ChsText(entry.base + offsetof(PartitionEntry, start_head)) +
          "       END POS = " + ChsText(entry.base + offsetof(PartitionEntry, end_head)) + "\r\n";
  text += "START (LBA) = " + GroupedLba(entry.First()) + " (" + HexPad(entry.First(), 8) + ")";
  text += " SIZE (LBA) = " + GroupedLba(entry.Sectors()) + " (" + HexPad(entry.Sectors(), 8) + ")";
  const std::uint64_t end = entry.First() + entry.Sectors();
  return text + (end > 0 ? " [End=" + GroupedLba(end - 1) + "]" : "");
}

}  // namespace

Extent& ExtentOf(PartitionExtents& extents, int n) {
  return extents[static_cast<std::size_t>(n <= kMbrEntries ? n - 1 : n + 1)];
}

const Extent& ExtentOf(const PartitionExtents& extents, int n) {
  return extents[static_cast<std::size_t>(n <= kMbrEntries ? n - 1 : n + 1)];
}

bool ReadPartitionExtents(PartitionExtents& extents) {
  const Extent all = extents[kPall];
  extents.fill({});
  extents[kPall] = all;
  if (ByteAt(kSignatureOffset) != 0x55 || ByteAt(kSignatureOffset + 1) != 0xAA) {
    return false;
  }
  const bool found = ReadMbrExtents(extents);
  const int slot = ProtectiveSlot();
  if (slot == 0) {
    return found;
  }
  const auto header_lba = static_cast<std::uint64_t>(ExtentOf(extents, slot).first);
  const std::uint64_t header = header_lba * kSectorBytes;
  if (LastTransferBytes >= header + kSectorBytes && AcceptHeader(header)) {
    ReadGptEntries(extents, header, slot);
  }
  return found;
}

std::string PartitionTableText() {
  std::string text = "\r\nDisk Signature bytes (1B8h-1BBh) = ";
  for (std::uint64_t i = 0; i < 4; ++i) {
    text += (i > 0 ? " " : "") + HexPad(ByteAt(kDiskSignatureOffset + i), 2);
  }
  for (int i = 1; i <= kMbrEntries; ++i) {
    text += EntryText(i);
  }
  return text;
}

std::uint32_t ReadLe32(std::uint64_t offset) {
  std::uint32_t value = 0;
  for (std::uint64_t i = 4; i-- > 0;) {
    value = value << 8 | ByteAt(offset + i);
  }
  return value;
}

std::int64_t ReadLe64(std::uint64_t offset) {
  constexpr std::uint32_t kHighestBit = 0x80000000;
  const std::uint32_t high = ReadLe32(offset + 4);
  if ((high & kHighestBit) != 0) {
    return -1;
  }
  return static_cast<std::int64_t>(std::uint64_t{high} << 32 | ReadLe32(offset));
}
