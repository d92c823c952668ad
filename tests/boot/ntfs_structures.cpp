#include "boot/ntfs_structures.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr std::size_t kMftField = 0x30;
constexpr std::size_t kMirrorField = 0x38;

constexpr std::size_t kFixups = 0x04;  // of a record or index block
constexpr std::size_t kFirstAttribute = 0x14;
constexpr std::size_t kUsedBytes = 0x18;
constexpr std::size_t kBaseRecord = 0x20;
constexpr std::size_t kOwnNumber = 0x2C;
constexpr std::size_t kSequence = 0x10;

constexpr std::size_t kNotResident = 0x08;  // of an attribute
constexpr std::size_t kNameLength = 0x09;
constexpr std::size_t kNameOffset = 0x0A;
constexpr std::size_t kInstance = 0x0E;
constexpr std::size_t kValueOffset = 0x14;
constexpr std::size_t kFirstVcn = 0x10;
constexpr std::size_t kLastVcn = 0x18;
constexpr std::size_t kRunsOffset = 0x20;
constexpr std::size_t kSizes = 0x28;
constexpr std::size_t kRunsBegin = 0x40;

constexpr std::size_t kIndexBlockBytes = 4096;
constexpr std::size_t kBlockNode = 0x18;
constexpr std::size_t kRootNode = 0x10;
constexpr std::size_t kNodeHeader = 0x10;
constexpr std::size_t kEntryLength = 0x08;
constexpr std::size_t kEntryFlags = 0x0C;
constexpr std::size_t kEntryNameLength = 0x50;
constexpr std::size_t kEntryName = 0x52;
constexpr std::uint32_t kHasChild = 1;
constexpr std::uint32_t kLastEntry = 2;

std::uint32_t Field(std::string_view bytes, std::size_t offset, std::size_t width) {
  return Number(bytes.substr(offset, width));
}

std::string Padded(std::string bytes, std::size_t unit) {
  bytes.resize((bytes.size() + unit - 1) / unit * unit);
  return bytes;
}

std::string Utf16(std::string_view text) {
  std::string result;
  for (const char c : text) {
    result += Little(static_cast<std::uint8_t>(c), 2);
  }
  return result;
}

// --- Fixups. ---

std::string WithoutFixups(std::string bytes) {
  const std::size_t fixups = Field(bytes, kFixups, 2);
  for (std::size_t i = 1; i * kSectorBytes <= bytes.size(); ++i) {
    bytes.replace(i * kSectorBytes - 2, 2, bytes.substr(fixups + 2 * i, 2));
  }
  return bytes;
}

std::string WithFixups(std::string bytes) {
  const std::size_t fixups = Field(bytes, kFixups, 2);
  for (std::size_t i = 1; i * kSectorBytes <= bytes.size(); ++i) {
    bytes.replace(fixups + 2 * i, 2, bytes.substr(i * kSectorBytes - 2, 2));
    bytes.replace(i * kSectorBytes - 2, 2, bytes.substr(fixups, 2));
  }
  return bytes;
}

// --- Runs. ---

std::size_t BytesFor(std::int64_t value) {
  std::size_t bytes = 1;
  while (bytes < 8 && (value >> (8 * bytes - 1)) != 0 && (value >> (8 * bytes - 1)) != -1) {
    ++bytes;
  }
  return bytes;
}

std::string Encoded(const NtfsRuns& runs) {
  std::string result;
  std::int64_t latest = 0;
  for (const NtfsRun& run : runs) {
    const std::int64_t step = run.first - latest;
    const std::size_t length_bytes = BytesFor(run.clusters);
    const std::size_t step_bytes = run.first == kNtfsHole ? 0 : BytesFor(step);
    result += static_cast<char>(step_bytes << 4U | length_bytes);
    result += Little(run.clusters, length_bytes) + Little(static_cast<std::uint64_t>(step), step_bytes);
    latest = run.first == kNtfsHole ? latest : run.first;
  }
  return result + '\0';
}

NtfsRuns Decoded(std::string_view bytes) {
  NtfsRuns runs;
  std::int64_t latest = 0;
  while (bytes.front() != 0) {
    const std::size_t length_bytes = static_cast<std::uint8_t>(bytes.front()) & 15U;
    const std::size_t step_bytes = static_cast<std::uint8_t>(bytes.front()) >> 4U;
    const std::uint32_t clusters = Field(bytes, 1, length_bytes);
    std::int64_t step = Field(bytes, 1 + length_bytes, step_bytes);
    if (step_bytes != 0 && static_cast<signed char>(bytes[length_bytes + step_bytes]) < 0) {
      step -= std::int64_t{1} << (8 * step_bytes);
    }
    latest += step;
    runs.push_back({clusters, step_bytes == 0 ? kNtfsHole : latest});
    bytes.remove_prefix(1 + length_bytes + step_bytes);
  }
  return runs;
}

// The runs as single clusters, and back.
std::vector<std::int64_t> Clusters(const NtfsRuns& runs) {
  std::vector<std::int64_t> clusters;
  for (const NtfsRun& run : runs) {
    for (std::uint32_t i = 0; i < run.clusters; ++i) {
      clusters.push_back(run.first == kNtfsHole ? kNtfsHole : run.first + i);
    }
  }
  return clusters;
}

NtfsRuns Joined(const std::vector<std::int64_t>& clusters) {
  NtfsRuns runs;
  for (const std::int64_t cluster : clusters) {
    if (!runs.empty() && runs.back().first + runs.back().clusters == cluster) {
      ++runs.back().clusters;
    } else {
      runs.push_back({1, cluster});
    }
  }
  return runs;
}

// --- Records. ---

struct Record {
  std::string head;
  std::vector<std::string> attributes;
};

// Bytes of an attribute, whole sectors of it.
std::string ReadPart(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t byte, std::size_t bytes) {
  std::string result;
  for (std::size_t at = 0; at < bytes; at += kSectorBytes) {
    result += ReadBytes(drive.image, LbaOf(drive, runs, byte + at) * kSectorBytes, kSectorBytes);
  }
  return result;
}

void WritePart(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t byte, const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += kSectorBytes) {
    WriteBytes(drive.image, LbaOf(drive, runs, byte + at) * kSectorBytes, bytes.substr(at, kSectorBytes));
  }
}

std::string ReadRecord(const NtfsDrive& drive, std::uint32_t record) {
  const std::size_t bytes = drive.layout.record_bytes;
  return WithoutFixups(ReadPart(drive, drive.mft, std::uint64_t{record} * bytes, bytes));
}

// The first records are written to the mirror of $MFT, too.
void WriteRecord(const NtfsDrive& drive, std::uint32_t record, const std::string& bytes) {
  constexpr std::uint32_t kMirrored = 4;
  const std::uint64_t byte = std::uint64_t{record} * bytes.size();
  WritePart(drive, drive.mft, byte, WithFixups(bytes));
  if (record < kMirrored) {
    const std::string cluster = ReadBytes(drive.image, drive.ClusterLba(0) * kSectorBytes + kMirrorField, 4);
    WriteBytes(drive.image, drive.ClusterLba(Number(cluster)) * kSectorBytes + byte, WithFixups(bytes));
  }
}

// The record in these bytes; one without attributes where they hold none.
Record Taken(const std::string& bytes) {
  if (!bytes.starts_with("FILE")) {
    return {};
  }
  Record record{bytes.substr(0, Field(bytes, kFirstAttribute, 2)), {}};
  for (std::size_t at = record.head.size(); Field(bytes, at, 4) != 0xFFFFFFFF;) {
    record.attributes.push_back(bytes.substr(at, Field(bytes, at + 4, 4)));
    at += record.attributes.back().size();
  }
  return record;
}

std::string Put(const Record& record, std::size_t record_bytes) {
  std::string bytes = record.head;
  for (const std::string& attribute : record.attributes) {
    bytes += attribute;
  }
  bytes += Little(0xFFFFFFFF, 8);
  SetField(bytes, kUsedBytes, bytes.size(), 4);
  EXPECT_LE(bytes.size(), record_bytes) << "the record overflows";
  bytes.resize(record_bytes);
  return bytes;
}

std::uint8_t TypeOf(const std::string& attribute) { return static_cast<std::uint8_t>(attribute[0]); }

std::vector<std::string>::iterator Find(Record& record, std::uint8_t type) {
  return std::find_if(record.attributes.begin(), record.attributes.end(),
                      [&](const std::string& attribute) { return TypeOf(attribute) == type; });
}

NtfsRuns RunsIn(std::string_view attribute) { return Decoded(attribute.substr(Field(attribute, kRunsOffset, 2))); }

// The attribute with other runs, an extent that begins at `first_vcn`.
std::string WithRuns(const std::string& attribute, const NtfsRuns& runs, std::size_t first_vcn = 0) {
  std::string result = attribute.substr(0, Field(attribute, kRunsOffset, 2));
  SetField(result, kFirstVcn, first_vcn, 8);
  SetField(result, kLastVcn, first_vcn + Clusters(runs).size() - 1, 8);
  if (first_vcn != 0) {
    result.replace(kSizes, kRunsBegin - kSizes, kRunsBegin - kSizes, '\0');
  }
  result = Padded(result + Encoded(runs), 8);
  SetField(result, 4, result.size(), 4);
  return result;
}

std::string ListEntry(const std::string& attribute, std::uint32_t record, std::uint32_t sequence) {
  const std::size_t characters = Field(attribute, kNameLength, 1);
  std::string entry = attribute.substr(0, 4) + Little(0, 2) + Little(characters, 1) + Little(0x1A, 1) +
                      Little(attribute[kNotResident] == 0 ? 0 : Field(attribute, kFirstVcn, 4), 8) + Little(record, 6) +
                      Little(sequence, 2) + attribute.substr(kInstance, 2) +
                      attribute.substr(Field(attribute, kNameOffset, 2), 2 * characters);
  entry = Padded(entry, 8);
  SetField(entry, 4, entry.size(), 2);
  return entry;
}

std::string ListAttribute(const NtfsDrive& drive, const std::string& list, std::int64_t cluster) {
  constexpr std::uint64_t kOwnInstance = 0x7F;
  std::string result = Little(kNtfsList, 8) + Little(cluster == 0 ? 0 : 1, 1);
  result += Little(0, 5) + Little(kOwnInstance, 2);
  if (cluster == 0) {
    result = Padded(result + Little(list.size(), 4) + Little(0x18, 4) + list, 8);
    SetField(result, 4, result.size(), 4);
    return result;
  }
  WriteBytes(drive.image, drive.ClusterLba(cluster) * kSectorBytes, list);
  result += Little(0, 16) + Little(kRunsBegin, 8) + Little(drive.layout.cluster_bytes, 8) + Little(list.size(), 8) +
            Little(list.size(), 8);
  return WithRuns(result, {{1, cluster}});
}

// --- The index of the root directory. ---

// Calls `each` with every entry of the node: its offset in `bytes`.
void EachEntry(const std::string& bytes, std::size_t node, const std::function<void(std::size_t)>& each) {
  const std::size_t end = node + Field(bytes, node + 4, 4);
  for (std::size_t at = node + Field(bytes, node, 4); at < end; at += Field(bytes, at + kEntryLength, 2)) {
    each(at);
  }
}

bool HasName(const std::string& bytes, std::size_t entry, const std::string& name) {
  return (Field(bytes, entry + kEntryFlags, 2) & kLastEntry) == 0 &&
         Field(bytes, entry + kEntryNameLength, 1) == name.size() &&
         bytes.substr(entry + kEntryName, 2 * name.size()) == Utf16(name);
}

// Empty for a block that has never been used.
std::string ReadIndexBlock(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t number) {
  const std::string bytes = ReadPart(drive, runs, number * kIndexBlockBytes, kIndexBlockBytes);
  return bytes.starts_with("INDX") ? WithoutFixups(bytes) : "";
}

// A record of its own for an extent of another one's attribute.
std::string FurtherRecord(const Record& base, std::uint32_t base_number, std::uint32_t number,
                          const std::string& extent, std::size_t record_bytes) {
  Record further{base.head, {extent}};
  SetField(further.head, kSequence, number, 2);
  SetField(further.head, kBaseRecord, base_number | std::uint64_t{Field(base.head, kSequence, 2)} << 48U, 8);
  SetField(further.head, kOwnNumber, number, 4);
  return Put(further, record_bytes);
}

// The extents of an attribute, of equally many runs.
std::vector<std::string> Extents(const std::string& attribute, std::size_t extents) {
  if (attribute[kNotResident] == 0) {
    return {attribute};
  }
  const NtfsRuns runs = RunsIn(attribute);
  std::vector<std::string> result;
  std::size_t vcn = 0;
  for (std::size_t i = 0; i < extents; ++i) {
    const auto from = runs.begin() + static_cast<std::ptrdiff_t>(i * runs.size() / extents);
    const auto to = runs.begin() + static_cast<std::ptrdiff_t>((i + 1) * runs.size() / extents);
    result.push_back(WithRuns(attribute, {from, to}, vcn));
    vcn += Clusters({from, to}).size();
  }
  return result;
}

}  // namespace

void SetField(std::string& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  bytes.replace(offset, width, Little(value, width));
}

NtfsRuns RunsOfMft(const NtfsDrive& drive) {
  const std::string sector = ReadBytes(drive.image, drive.ClusterLba(0) * kSectorBytes, kSectorBytes);
  const std::uint64_t lba = drive.ClusterLba(Field(sector, kMftField, 4));
  Record record = Taken(WithoutFixups(ReadBytes(drive.image, lba * kSectorBytes, drive.layout.record_bytes)));
  const auto data = Find(record, kNtfsData);
  return data == record.attributes.end() ? NtfsRuns{} : RunsIn(*data);
}

std::uint32_t RecordOf(const NtfsDrive& drive, const std::string& name) {
  constexpr std::uint32_t kFirstOfUsers = 24;
  constexpr std::size_t kCharacters = 0x40;  // of the value; the name follows, behind another byte
  constexpr std::size_t kName = 0x42;
  const auto records = Clusters(drive.mft).size() * drive.layout.cluster_bytes / drive.layout.record_bytes;
  for (std::uint32_t n = kFirstOfUsers; n < records; ++n) {
    Record record = Taken(ReadRecord(drive, n));
    const auto found = Find(record, kNtfsName);
    if (found != record.attributes.end()) {
      const std::string value = found->substr(Field(*found, kValueOffset, 2));
      if (Field(value, kCharacters, 1) == name.size() && value.substr(kName).starts_with(Utf16(name))) {
        return n;
      }
    }
  }
  ADD_FAILURE() << "no file " << name;
  return 0;
}

void ChangeRecord(const NtfsDrive& drive, std::uint32_t record, const std::function<void(std::string&)>& change) {
  std::string bytes = ReadRecord(drive, record);
  change(bytes);
  WriteRecord(drive, record, bytes);
}

void ChangeAttribute(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type,
                     const std::function<void(std::string&)>& change) {
  ChangeRecord(drive, record, [&](std::string& bytes) {
    Record taken = Taken(bytes);
    const auto found = Find(taken, type);
    ASSERT_NE(found, taken.attributes.end()) << "no attribute of type " << int{type};
    change(*found);
    if (!found->empty()) {
      *found = Padded(*found, 8);
      SetField(*found, 4, found->size(), 4);
    }
    bytes = Put(taken, drive.layout.record_bytes);
  });
}

NtfsRuns RunsOf(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type) {
  Record taken = Taken(ReadRecord(drive, record));
  const auto found = Find(taken, type);
  return found == taken.attributes.end() ? NtfsRuns{} : RunsIn(*found);
}

void SetRuns(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type, const NtfsRuns& runs) {
  ChangeAttribute(drive, record, type, [&](std::string& attribute) { attribute = WithRuns(attribute, runs); });
}

std::uint64_t LbaOf(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t byte) {
  std::uint64_t cluster = byte / drive.layout.cluster_bytes;
  for (const NtfsRun& run : runs) {
    if (cluster < run.clusters) {
      return drive.ClusterLba(run.first + static_cast<std::int64_t>(cluster)) +
             byte % drive.layout.cluster_bytes / kSectorBytes;
    }
    cluster -= run.clusters;
  }
  ADD_FAILURE() << "behind the end of the runs";
  return 0;
}

void Scatter(NtfsDrive& drive, std::uint32_t record, std::uint8_t type, Placement placement, std::uint32_t piece,
             std::uint32_t kept) {
  std::vector<std::int64_t> clusters = Clusters(RunsOf(drive, record, type));
  for (std::uint32_t i = kept; i < clusters.size(); ++i) {
    const std::uint32_t k = (i - kept) / piece;
    const std::int64_t to = std::int64_t{placement.first} + std::int64_t{k} * placement.step + (i - kept) % piece;
    WriteBytes(drive.image, drive.ClusterLba(to) * kSectorBytes,
               ReadBytes(drive.image, drive.ClusterLba(clusters[i]) * kSectorBytes, drive.layout.cluster_bytes));
    clusters[i] = to;
  }
  if (record == kNtfsMft) {
    drive.mft = Joined(clusters);
  }
  SetRuns(drive, record, type, Joined(clusters));
}

void MoveToRecords(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type, std::uint32_t records,
                   std::int64_t list_cluster) {
  const std::size_t kept = record == kNtfsMft ? 1 : 0;
  const Record base = Taken(ReadRecord(drive, record));
  const std::uint32_t sequence = Field(base.head, kSequence, 2);
  std::vector<std::string> here;  // in the base record
  std::string list;
  for (const std::string& attribute : base.attributes) {
    const bool moves = TypeOf(attribute) == type;
    const std::vector<std::string> extents =
        moves ? Extents(attribute, records + kept) : std::vector<std::string>{attribute};
    for (std::size_t i = 0; i < extents.size(); ++i) {
      const std::uint32_t number = kNtfsSpareRecord + static_cast<std::uint32_t>(i);
      const bool stays = !moves || i < kept;
      list += ListEntry(extents[i], stays ? record : number, stays ? sequence : number);
      if (stays) {
        here.push_back(extents[i]);
      } else {
        WriteRecord(drive, number, FurtherRecord(base, record, number, extents[i], drive.layout.record_bytes));
      }
    }
  }
  const auto behind =
      std::find_if(here.begin(), here.end(), [](const std::string& other) { return TypeOf(other) > kNtfsList; });
  here.insert(behind, ListAttribute(drive, list, list_cluster));
  WriteRecord(drive, record, Put({base.head, here}, drive.layout.record_bytes));
}

void ChangeIndexBlock(const NtfsDrive& drive, std::int64_t number, const std::function<void(std::string&)>& change) {
  const NtfsRuns runs = RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks);
  std::string bytes = ReadIndexBlock(drive, runs, static_cast<std::uint64_t>(number));
  change(bytes);
  WritePart(drive, runs, static_cast<std::uint64_t>(number) * kIndexBlockBytes, WithFixups(bytes));
}

NtfsPlace PlaceOf(const NtfsDrive& drive, const std::string& name) {
  const NtfsRuns runs = RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks);
  const std::uint64_t blocks = Clusters(runs).size() * drive.layout.cluster_bytes / kIndexBlockBytes;
  NtfsPlace place;
  for (std::uint64_t number = 0; number < blocks; ++number) {
    const std::string block = ReadIndexBlock(drive, runs, number);
    if (!block.empty()) {
      EachEntry(block, kBlockNode, [&](std::size_t entry) {
        if (HasName(block, entry, name)) {
          place = {static_cast<std::int64_t>(number), entry, (Field(block, entry + kEntryFlags, 2) & kHasChild) != 0};
        }
      });
    }
  }
  return place;
}

void ShrinkIndex(const NtfsDrive& drive, const std::vector<std::string>& names) {
  const NtfsRuns runs = RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks);
  std::string entries;
  for (const std::string& name : names) {
    const NtfsPlace place = PlaceOf(drive, name);
    ASSERT_GE(place.block, 0) << name;
    const std::string block = ReadIndexBlock(drive, runs, static_cast<std::uint64_t>(place.block));
    const std::size_t bytes = Field(block, place.offset + kEntryLength, 2) - (place.has_child ? 8 : 0);
    std::string entry = block.substr(place.offset, bytes);
    SetField(entry, kEntryLength, entry.size(), 2);
    SetField(entry, kEntryFlags, 0, 2);
    entries += entry;
  }
  entries += Little(0, kEntryLength) + Little(kNodeHeader, 4) + Little(kLastEntry, 4);
  ChangeAttribute(drive, kNtfsRoot, kNtfsIndexRoot, [&](std::string& root) {
    const std::size_t used = kNodeHeader + entries.size();
    root.resize(Field(root, kValueOffset, 2) + kRootNode);
    root += Little(kNodeHeader, 4) + Little(used, 4) + Little(used, 4) + Little(0, 4) + entries;
    SetField(root, kFirstVcn, kRootNode + used, 4);
  });
}
