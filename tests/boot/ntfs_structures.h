// Changes to an NTFS volume, structure by structure: attributes moved to other clusters and further records, the index
// of its root directory made anew. What is moved isn't noted in the volume's bitmap, but every reader finds it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "boot/ntfs_drive.h"

// Types of attributes.
inline constexpr std::uint8_t kNtfsInformation = 0x10;
inline constexpr std::uint8_t kNtfsList = 0x20;
inline constexpr std::uint8_t kNtfsName = 0x30;
inline constexpr std::uint8_t kNtfsData = 0x80;
inline constexpr std::uint8_t kNtfsIndexRoot = 0x90;
inline constexpr std::uint8_t kNtfsIndexBlocks = 0xA0;
inline constexpr std::uint8_t kNtfsReparse = 0xC0;
// Records.
inline constexpr std::uint32_t kNtfsMft = 0;
inline constexpr std::uint32_t kNtfsRoot = 5;

// A field of a record, attribute or index block.
void SetField(std::string& bytes, std::size_t offset, std::uint64_t value, std::size_t width);

// Where the boot sector and record 0 say that $MFT is.
NtfsRuns RunsOfMft(const NtfsDrive& drive);
// The record of the file with this name.
std::uint32_t RecordOf(const NtfsDrive& drive, const std::string& name);
// Changes a record's bytes, as they are without fixups.
void ChangeRecord(const NtfsDrive& drive, std::uint32_t record, const std::function<void(std::string&)>& change);
// Changes an attribute of a record; it may grow and shrink as long as it fits, and goes when it becomes empty.
void ChangeAttribute(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type,
                     const std::function<void(std::string&)>& change);

NtfsRuns RunsOf(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type);
void SetRuns(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type, const NtfsRuns& runs);
// The LBA of the sector that holds this byte of an attribute.
std::uint64_t LbaOf(const NtfsDrive& drive, const NtfsRuns& runs, std::uint64_t byte);

// Moves an attribute's clusters but for the first `kept`: the k-th `piece` of them goes to placement.first + k *
// placement.step.
void Scatter(NtfsDrive& drive, std::uint32_t record, std::uint8_t type, Placement placement, std::uint32_t piece = 1,
             std::uint32_t kept = 0);
// Moves an attribute's extents to so many records of their own, from kNtfsSpareRecord on, and makes an attribute list
// of all that the file has; the list lies in cluster `list_cluster`, or in the record if that is 0. Of $MFT the first
// extent stays.
inline constexpr std::uint32_t kNtfsSpareRecord = 16;
void MoveToRecords(const NtfsDrive& drive, std::uint32_t record, std::uint8_t type, std::uint32_t records,
                   std::int64_t list_cluster = 0);

// Changes a block of the root directory's index, as it is without fixups.
void ChangeIndexBlock(const NtfsDrive& drive, std::int64_t number, const std::function<void(std::string&)>& change);
// Where in its block the entry with this name is, -1 if it is in none; and the block's number.
struct NtfsPlace {
  std::int64_t block = -1;
  std::size_t offset = 0;
  bool has_child = false;
};
NtfsPlace PlaceOf(const NtfsDrive& drive, const std::string& name);
// Makes the index a root alone with the entries of these names, in this order. The blocks stay on the volume.
void ShrinkIndex(const NtfsDrive& drive, const std::vector<std::string>& names);
