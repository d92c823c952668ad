#include "boot/ntfs_drive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "boot/exfat_boot_code.h"
#include "format/images/boot_images.h"

namespace {

constexpr std::size_t kVolumesOwn = 0x54;  // bytes of the boot sector that the boot code doesn't replace
constexpr std::size_t kSectorBytesField = 0x0B;
constexpr std::size_t kClusterField = 0x0D;
constexpr std::size_t kTotalField = 0x28;
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

void SetField(std::string& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  bytes.replace(offset, width, Little(value, width));
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
    const std::size_t length_bytes = bytes.front() & 15U;
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

std::string ReadRecord(const NtfsDrive& drive, std::uint32_t record) {
  std::string bytes;
  for (std::uint64_t at = 0; at < drive.layout.record_bytes; at += kSectorBytes) {
    const std::uint64_t byte = std::uint64_t{record} * drive.layout.record_bytes + at;
    bytes += ReadBytes(drive.image, LbaOf(drive, drive.mft, byte) * kSectorBytes, kSectorBytes);
  }
  return WithoutFixups(bytes);
}

// The first records are written to the mirror of $MFT, too.
void WriteRecord(const NtfsDrive& drive, std::uint32_t record, const std::string& bytes) {
  constexpr std::uint32_t kMirrored = 4;
  const std::string fixed = WithFixups(bytes);
  const std::uint64_t byte = std::uint64_t{record} * fixed.size();
  for (std::uint64_t at = 0; at < fixed.size(); at += kSectorBytes) {
    WriteBytes(drive.image, LbaOf(drive, drive.mft, byte + at) * kSectorBytes, fixed.substr(at, kSectorBytes));
  }
  if (record < kMirrored) {
    const std::string cluster = ReadBytes(drive.image, drive.ClusterLba(0) * kSectorBytes + kMirrorField, 4);
    WriteBytes(drive.image, drive.ClusterLba(Number(cluster)) * kSectorBytes + byte, fixed);
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

std::string ReadIndexBlock(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t number) {
  std::string bytes;
  for (std::uint64_t at = 0; at < kIndexBlockBytes; at += kSectorBytes) {
    bytes += ReadBytes(drive.image, LbaOf(drive, runs, number * kIndexBlockBytes + at) * kSectorBytes, kSectorBytes);
  }
  return bytes.starts_with("INDX") ? WithoutFixups(bytes) : "";
}

std::uint64_t IndexBlocks(const NtfsDrive& drive, const NtfsRuns& runs) {
  return Clusters(runs).size() * drive.layout.cluster_bytes / kIndexBlockBytes;
}

// --- Making drives. ---

std::string BootCode(bool for_ntldr) {
  if (for_ntldr) {
    NTLDR_NTFS_Code();
  } else {
    Bootmgr_NTFS_Code();
  }
  const std::size_t sectors = for_ntldr ? 7 : 9;
  return {BinArray.begin(), BinArray.begin() + static_cast<std::ptrdiff_t>(sectors * kSectorBytes)};
}

// Creates files through a mount; ends only when the file system has let go of the volume.
void Fill(const ScratchFolder& folder, const std::string& volume, const std::vector<NtfsFile>& files) {
  constexpr const char* kScript =
      "ntfs-3g -o no_detach \"$1\" \"$2\" & pid=$!\n"
      "until mountpoint -q \"$2\"; do kill -0 $pid || exit 1; sleep 0.01; done\n"
      "while read -r name; do read -r from; if [ -n \"$from\" ]; then cp \"$from\" \"$2/$name\"; "
      "else : > \"$2/$name\"; fi || echo failed; done\n"
      "fusermount3 -u \"$2\"; wait $pid\n";
  const std::string mount = folder.File("mount");
  std::filesystem::create_directory(mount);
  std::string list;
  for (const NtfsFile& file : files) {
    const std::string source = file.bytes.empty() ? "" : folder.File("file" + std::to_string(list.size()));
    if (!file.bytes.empty()) {
      WriteBytes(source, 0, file.bytes);
    }
    list += file.name + "\n" + source + "\n";
  }
  const RunResult filled = RunCommand({"sh", "-c", kScript, "fill", volume, mount}, list);
  EXPECT_TRUE(filled.exit_code == 0 && filled.out.empty())
      << "the volume can't be mounted or written through ntfs-3g: " << filled.out << filled.err;
}

// Makes 4 KiB records, which mkntfs gives to drives with such sectors, those of a drive with sectors of 512 bytes.
void TakeSectorsOf512Bytes(const std::string& volume, const NtfsDrive& drive) {
  WriteBytes(volume, kSectorBytesField, Little(kSectorBytes, 2));
  WriteBytes(volume, kClusterField, Little(drive.layout.cluster_bytes / kSectorBytes, 1));
  WriteBytes(volume, kTotalField, Little(drive.bytes / kSectorBytes - 8, 8));
}

// Copies a volume to its place on the drive, holes as holes; the file is gone then.
void PutVolume(const NtfsDrive& drive, const std::string& volume) {
  if (drive.layout.first_lba == 0) {
    return std::filesystem::rename(volume, drive.image);
  }
  const RunResult copied = RunCommand({"dd", "if=" + volume, "of=" + drive.image, "bs=64K", "conv=notrunc,sparse",
                                       "oflag=seek_bytes", "seek=" + std::to_string(drive.ClusterLba(0) * kSectorBytes)});
  EXPECT_EQ(copied.exit_code, 0) << copied.err;
  std::filesystem::remove(volume);
}

NtfsRuns MftRuns(const NtfsDrive& drive) {
  const std::string sector = ReadBytes(drive.image, drive.ClusterLba(0) * kSectorBytes, kSectorBytes);
  const std::uint64_t lba = drive.ClusterLba(Field(sector, kMftField, 4));
  Record record = Taken(WithoutFixups(ReadBytes(drive.image, lba * kSectorBytes, drive.layout.record_bytes)));
  const auto data = Find(record, kNtfsData);
  return data == record.attributes.end() ? NtfsRuns{} : RunsIn(*data);
}

}  // namespace

NtfsDrive::NtfsDrive(const NtfsLayout& wanted, const std::vector<NtfsFile>& files)
    : layout(wanted), image(folder.File("drive.img")), bytes(wanted.mib << 20U) {
  const std::string volume = folder.File("volume.img");
  SetFileSize(volume, bytes);
  const bool large_records = layout.record_bytes > 1024;
  const RunResult made = RunCommand({"mkntfs", "-q", "-Q", "-F", "-T", "-p", std::to_string(layout.first_lba), "-H",
                                     "255", "-S", "63", "-s", large_records ? "4096" : "512", "-c",
                                     std::to_string(layout.cluster_bytes), volume});
  EXPECT_EQ(made.exit_code, 0) << made.out << made.err;
  if (large_records) {
    TakeSectorsOf512Bytes(volume, *this);
  }
  const std::string code = BootCode(layout.for_ntldr);
  WriteBytes(volume, kVolumesOwn, code.substr(kVolumesOwn));
  Fill(folder, volume, files);
  const std::uint64_t sectors = bytes / kSectorBytes;
  if (layout.first_lba != 0) {
    SetFileSize(image, (layout.first_lba + sectors) * kSectorBytes);
    WriteBytes(image, 0,
               MasterBootRecord(static_cast<std::uint32_t>(layout.first_lba), static_cast<std::uint32_t>(sectors)));
  }
  PutVolume(*this, volume);
  mft = MftRuns(*this);
}

NtfsDrive::NtfsDrive(const std::string& size, const std::string& words, const std::vector<NtfsFile>& files)
    : image(folder.File("drive.img")) {
  const RunResult prepared = RunOnDrive(image, "size=" + size, "DRIVE=1 SURE NTFS " + words);
  EXPECT_EQ(prepared.exit_code, 0) << prepared.out << prepared.err;
  const std::string sector = ReadBytes(image, ClusterLba(0) * kSectorBytes, kSectorBytes);
  layout.cluster_bytes = Field(sector, kClusterField, 1) * kSectorBytes;
  layout.for_ntldr = words.starts_with("NTLDR");
  bytes = (std::uint64_t{Field(sector, kTotalField, 4)} + 1) * kSectorBytes;
  const std::string volume = folder.File("volume.img");
  ExtractBytes(image, ClusterLba(0) * kSectorBytes, bytes, volume);
  Fill(folder, volume, files);
  PutVolume(*this, volume);
  mft = MftRuns(*this);
}

void SetBootField(const NtfsDrive& drive, std::size_t offset, std::string_view bytes) {
  WriteBytes(drive.image, drive.ClusterLba(0) * kSectorBytes + offset, bytes);
}

std::string BytesByOthers(const NtfsDrive& drive, const std::string& name) {
  const std::string volume = drive.folder.File("volume.img");
  ExtractBytes(drive.image, drive.ClusterLba(0) * kSectorBytes, drive.bytes, volume);
  const RunResult read = RunCommand({"ntfscat", "-q", "-f", volume, name});
  std::filesystem::remove(volume);
  return read.out + read.err;
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

void MoveToRecords(NtfsDrive& drive, std::uint32_t record, std::uint8_t type, std::uint32_t records,
                   std::int64_t list_cluster) {
  Record base = Taken(ReadRecord(drive, record));
  const auto moved = Find(base, type);
  ASSERT_NE(moved, base.attributes.end());
  const std::string whole = *moved;
  const bool resident = whole[kNotResident] == 0;
  const NtfsRuns runs = resident ? NtfsRuns(1) : RunsIn(whole);
  const std::size_t extents = records + (record == kNtfsMft ? 1 : 0);
  ASSERT_GE(runs.size(), extents);
  std::vector<std::string> here(base.attributes.begin(), moved);  // in the base record
  const std::uint32_t sequence = Field(base.head, kSequence, 2);
  std::string list;
  for (const std::string& attribute : here) {
    list += ListEntry(attribute, record, sequence);
  }
  std::size_t vcn = 0;
  for (std::size_t i = 0; i < extents; ++i) {
    const NtfsRuns part(runs.begin() + static_cast<std::ptrdiff_t>(i * runs.size() / extents),
                        runs.begin() + static_cast<std::ptrdiff_t>((i + 1) * runs.size() / extents));
    const std::string extent = resident ? whole : WithRuns(whole, part, vcn);
    vcn += Clusters(part).size();
    if (record == kNtfsMft && i == 0) {
      here.push_back(extent);
      list += ListEntry(extent, record, sequence);
      continue;
    }
    const std::uint32_t number = kNtfsSpareRecord + static_cast<std::uint32_t>(i);
    Record further{base.head, {extent}};
    SetField(further.head, kBaseRecord, record | std::uint64_t{sequence} << 48U, 8);
    SetField(further.head, kOwnNumber, number, 4);
    SetField(further.head, kSequence, number, 2);
    WriteRecord(drive, number, Put(further, drive.layout.record_bytes));
    list += ListEntry(extent, number, number);
  }
  for (auto i = moved + 1; i != base.attributes.end(); ++i) {
    here.push_back(*i);
    list += ListEntry(*i, record, sequence);
  }
  const auto behind = std::find_if(here.begin(), here.end(), [](const std::string& a) { return TypeOf(a) > kNtfsList; });
  here.insert(behind, ListAttribute(drive, list, list_cluster));
  WriteRecord(drive, record, Put({base.head, here}, drive.layout.record_bytes));
}

void ChangeIndexBlock(const NtfsDrive& drive, std::uint32_t number, const std::function<void(std::string&)>& change) {
  const NtfsRuns runs = RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks);
  std::string bytes = ReadIndexBlock(drive, runs, number);
  change(bytes);
  bytes = WithFixups(bytes);
  for (std::uint64_t at = 0; at < kIndexBlockBytes; at += kSectorBytes) {
    WriteBytes(drive.image, LbaOf(drive, runs, number * kIndexBlockBytes + at) * kSectorBytes,
               bytes.substr(at, kSectorBytes));
  }
}

NtfsPlace PlaceOf(const NtfsDrive& drive, const std::string& name) {
  const NtfsRuns runs = RunsOf(drive, kNtfsRoot, kNtfsIndexBlocks);
  NtfsPlace place;
  for (std::uint64_t number = 0; number < IndexBlocks(drive, runs); ++number) {
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
    std::string entry = block.substr(place.offset, Field(block, place.offset + kEntryLength, 2));
    entry.resize(entry.size() - (place.has_child ? 8 : 0));
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
