#include "platform/simulated/volume_table.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/byte_order.h"

namespace {

// A master boot record, an extended one, and any boot record.
constexpr std::size_t kRecordBytes = 512;
constexpr std::size_t kSignatureOffset = 510;
constexpr std::size_t kTableOffset = 446;
constexpr std::size_t kTableEntries = 4;
constexpr std::size_t kEntryBytes = 16;
constexpr std::size_t kEntryType = 4;
constexpr std::size_t kEntryFirst = 8;
constexpr std::size_t kEntrySectors = 12;
constexpr std::uint8_t kStatusActive = 0x80;
constexpr std::uint8_t kTypeProtective = 0xEE;
constexpr std::array<std::uint8_t, 3> kExtendedTypes = {0x05, 0x0F, 0x85};
// A chain of extended boot records may lead anywhere: it ends here.
constexpr int kMostLogical = 128;

// A BIOS parameter block.
constexpr std::size_t kOemOffset = 3;
constexpr std::size_t kBytesPerSectorOffset = 11;
constexpr std::size_t kSectorsPerClusterOffset = 13;
constexpr std::size_t kReservedOffset = 14;
constexpr std::size_t kFatsOffset = 16;
constexpr std::size_t kRootEntriesOffset = 17;
constexpr std::size_t kTotal16Offset = 19;
constexpr std::size_t kFatSectors16Offset = 22;
constexpr std::size_t kTotal32Offset = 32;
constexpr std::size_t kFatSectors32Offset = 36;
constexpr std::size_t kNtfsTotalOffset = 40;
constexpr std::size_t kExfatClustersOffset = 92;
constexpr std::size_t kExfatSectorShiftOffset = 108;
constexpr std::size_t kExfatClusterShiftOffset = 109;
constexpr std::uint64_t kDirectoryEntryBytes = 32;

// A GUID partition table.
constexpr std::uint64_t kGptHeaderSector = 1;
constexpr std::string_view kGptSignature = "EFI PART";
constexpr std::size_t kGptEntriesSector = 72;
constexpr std::size_t kGptEntryCount = 80;
constexpr std::size_t kGptEntryBytes = 84;
constexpr std::size_t kGptTypeBytes = 16;
constexpr std::size_t kGptEntryFirst = 32;
constexpr std::size_t kGptEntryLast = 40;
constexpr std::uint64_t kLeastGptEntryBytes = 128;
constexpr std::uint64_t kMostGptBytes = std::uint64_t{1} << 20;  // of all entries; a usual table has 16 KiB

using Bytes = std::vector<std::uint8_t>;

bool HasText(const Bytes& from, std::size_t offset, std::string_view text) {
  return std::equal(text.begin(), text.end(), from.begin() + static_cast<std::ptrdiff_t>(offset),
                    [](char character, std::uint8_t byte) { return static_cast<std::uint8_t>(character) == byte; });
}

struct TableEntry {
  std::uint8_t status;
  std::uint8_t type;
  std::uint64_t first;
  std::uint64_t sectors;
  bool Used() const { return type != 0 && sectors != 0; }
  bool Extended() const {
    return std::find(kExtendedTypes.begin(), kExtendedTypes.end(), type) != kExtendedTypes.end();
  }
};

TableEntry EntryOf(const Bytes& record, std::size_t index) {
  const std::size_t at = kTableOffset + index * kEntryBytes;
  return {record[at], record[at + kEntryType], LoadLittle(record.data() + at + kEntryFirst, 4),
          LoadLittle(record.data() + at + kEntrySectors, 4)};
}

bool HasSignature(const Bytes& record) {
  return record[kSignatureOffset] == 0x55 && record[kSignatureOffset + 1] == 0xAA;
}

bool IsPowerOfTwo(std::uint64_t value) { return value != 0 && (value & (value - 1)) == 0; }

// A jump, and behind it the name of a file system or the values of a FAT volume.
bool IsBootRecord(const Bytes& record) {
  const bool jump = record[0] == 0xE9 || record[0] == 0xEB;
  if (!HasSignature(record) || !jump) {
    return false;
  }
  if (HasText(record, kOemOffset, "NTFS    ") || HasText(record, kOemOffset, "EXFAT   ")) {
    return true;
  }
  const std::uint64_t sector_bytes = LoadLittle(record.data() + kBytesPerSectorOffset, 2);
  const std::uint8_t fats = record[kFatsOffset];
  return IsPowerOfTwo(sector_bytes) && sector_bytes >= 512 && sector_bytes <= 4096 &&
         IsPowerOfTwo(record[kSectorsPerClusterOffset]) && LoadLittle(record.data() + kReservedOffset, 2) != 0 &&
         (fats == 1 || fats == 2);
}

// Bytes in the clusters of a FAT volume.
std::uint64_t FatBytes(const std::uint8_t* record) {
  const auto field = [record](std::size_t offset, std::size_t wide_offset) {
    const std::uint64_t narrow = LoadLittle(record + offset, 2);
    return narrow != 0 ? narrow : LoadLittle(record + wide_offset, 4);
  };
  const std::uint64_t sector_bytes = LoadLittle(record + kBytesPerSectorOffset, 2);
  const std::uint64_t root_bytes = LoadLittle(record + kRootEntriesOffset, 2) * kDirectoryEntryBytes;
  const std::uint64_t used = LoadLittle(record + kReservedOffset, 2) +
                             record[kFatsOffset] * field(kFatSectors16Offset, kFatSectors32Offset) +
                             (root_bytes + sector_bytes - 1) / sector_bytes;
  const std::uint64_t total = field(kTotal16Offset, kTotal32Offset);
  const std::uint64_t cluster = record[kSectorsPerClusterOffset];
  return total > used ? (total - used) / cluster * cluster * sector_bytes : 0;
}

// Nothing where the fields can't be those of a volume.
std::optional<std::uint64_t> ExfatBytes(const std::uint8_t* record) {
  constexpr int kLargestShift = 25;  // clusters of 32 MiB
  const int shift = record[kExfatSectorShiftOffset] + record[kExfatClusterShiftOffset];
  if (shift > kLargestShift) {
    return std::nullopt;
  }
  return LoadLittle(record + kExfatClustersOffset, 4) << shift;
}

class TableReader {
 public:
  explicit TableReader(SimulatedDrive& drive)
      : drive_(drive), sector_bytes_(drive.Traits().sector_bytes), sectors_(drive.Size() / sector_bytes_) {}

  std::vector<VolumeExtent> Run() {
    const Bytes record = ReadSectors(0, 1);
    if (!IsTable(record)) {
      if (!record.empty() && IsBootRecord(record)) {
        Add(0, sectors_);
      }
    } else if (drive_.Traits().removable) {
      AddFirstPrimary(record);
    } else {
      AddAll(record);
    }
    return std::move(volumes_);
  }

 private:
  // Empty when they can't be read.
  Bytes ReadSectors(std::uint64_t first, std::uint64_t count) {
    if (first >= sectors_) {
      return {};  // and its position might not fit 64 bits
    }
    Bytes bytes(static_cast<std::size_t>(count * sector_bytes_));
    return drive_.Read(first * sector_bytes_, bytes) == kErrorNone ? bytes : Bytes();
  }

  bool IsTable(const Bytes& record) const {
    if (record.size() < kRecordBytes || !HasSignature(record)) {
      return false;
    }
    bool used = false;
    for (std::size_t i = 0; i < kTableEntries; ++i) {
      const TableEntry entry = EntryOf(record, i);
      if (entry.status != 0 && entry.status != kStatusActive) {
        return false;
      }
      used = used || (entry.Used() && entry.first < sectors_);
    }
    return used;
  }

  // Adds a volume that begins inside the drive, unless one begins there already; a loop in a chain finds nothing new.
  void Add(std::uint64_t first, std::uint64_t count) {
    const bool known = std::any_of(volumes_.begin(), volumes_.end(),
                                   [=](const VolumeExtent& volume) { return volume.first_sector == first; });
    if (first < sectors_ && count != 0 && !known) {
      volumes_.push_back({first, std::min(count, sectors_ - first)});
    }
  }

  void AddFirstPrimary(const Bytes& record) {
    for (std::size_t i = 0; i < kTableEntries && volumes_.empty(); ++i) {
      AddPrimary(EntryOf(record, i));
    }
  }

  void AddPrimary(const TableEntry& entry) {
    if (entry.Used() && !entry.Extended() && entry.type != kTypeProtective) {
      Add(entry.first, entry.sectors);
    }
  }

  void AddAll(const Bytes& record) {
    for (std::size_t i = 0; i < kTableEntries; ++i) {
      AddPrimary(EntryOf(record, i));
    }
    for (std::size_t i = 0; i < kTableEntries; ++i) {
      const TableEntry entry = EntryOf(record, i);
      if (entry.Used() && entry.Extended()) {
        AddLogical(entry.first);
      } else if (entry.Used() && entry.type == kTypeProtective) {
        AddGptEntries();
      }
    }
  }

  // Each extended record describes one volume, counted from itself, and the next record, counted from the first.
  void AddLogical(std::uint64_t chain_start) {
    std::uint64_t at = chain_start;
    for (int i = 0; i < kMostLogical; ++i) {
      const Bytes record = ReadSectors(at, 1);
      if (record.empty() || !HasSignature(record)) {
        return;
      }
      const TableEntry logical = EntryOf(record, 0);
      if (logical.Used()) {
        Add(at + logical.first, logical.sectors);
      }
      const TableEntry next = EntryOf(record, 1);
      if (!next.Used() || !next.Extended()) {
        return;
      }
      at = chain_start + next.first;
    }
  }

  void AddGptEntries() {
    const Bytes header = ReadSectors(kGptHeaderSector, 1);
    if (header.empty() || !HasText(header, 0, kGptSignature)) {
      return;
    }
    const std::uint64_t count = LoadLittle(header.data() + kGptEntryCount, 4);
    const std::uint64_t entry_bytes = LoadLittle(header.data() + kGptEntryBytes, 4);
    if (!IsPowerOfTwo(entry_bytes) || entry_bytes < kLeastGptEntryBytes || count > kMostGptBytes / entry_bytes) {
      return;
    }
    const std::uint64_t sectors = (count * entry_bytes + sector_bytes_ - 1) / sector_bytes_;
    const Bytes entries = ReadSectors(LoadLittle(header.data() + kGptEntriesSector, 8), sectors);
    for (std::size_t i = 0; !entries.empty() && i < count; ++i) {
      AddGptEntry(entries, i * static_cast<std::size_t>(entry_bytes));
    }
  }

  void AddGptEntry(const Bytes& entries, std::size_t at) {
    const auto type = entries.begin() + static_cast<std::ptrdiff_t>(at);
    const bool used = std::any_of(type, type + kGptTypeBytes, [](std::uint8_t byte) { return byte != 0; });
    const std::uint64_t first = LoadLittle(entries.data() + at + kGptEntryFirst, 8);
    const std::uint64_t last = LoadLittle(entries.data() + at + kGptEntryLast, 8);
    if (used && first <= last && last < sectors_) {
      Add(first, last - first + 1);
    }
  }

  SimulatedDrive& drive_;
  std::uint64_t sector_bytes_;
  std::uint64_t sectors_;
  std::vector<VolumeExtent> volumes_;
};

}  // namespace

std::vector<VolumeExtent> ReadVolumeExtents(SimulatedDrive& drive) { return TableReader(drive).Run(); }

std::optional<std::uint64_t> FileSystemBytes(SimulatedDrive& drive, std::uint64_t position) {
  Bytes record(drive.Traits().sector_bytes);
  if (drive.Read(position, record) != kErrorNone || !IsBootRecord(record)) {
    return std::nullopt;
  }
  if (HasText(record, kOemOffset, "EXFAT   ")) {
    return ExfatBytes(record.data());
  }
  if (HasText(record, kOemOffset, "NTFS    ")) {
    return LoadLittle(record.data() + kNtfsTotalOffset, 8) * LoadLittle(record.data() + kBytesPerSectorOffset, 2);
  }
  return FatBytes(record.data());
}
