// The partition table reader: what lies in SectorBuffer as a table, of an MBR or a GPT. The drive itself is never read;
// LastTransferBytes says how many bytes of the buffer are good. Any bytes are safe to read.
// GPT offsets after the UEFI specification, section 5.3.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// First and last LBA; 0, 0 where the entry is not in use. As long as the table says, which may be past any drive.
struct Extent {
  std::int64_t first = 0;
  std::int64_t last = 0;
};

// In this order; the index of P1 to P4 is that of the table's slot.
enum ExtentIndex : std::size_t { kP1 = 0, kPext = 4, kPall = 5, kP5 = 6, kP8 = 9, kExtentCount = 10 };
using PartitionExtents = std::array<Extent, kExtentCount>;

// The extent of Pn, n from 1 to 8.
Extent& ExtentOf(PartitionExtents& extents, int n);
const Extent& ExtentOf(const PartitionExtents& extents, int n);

// Fills `extents` from the table in SectorBuffer. PALL keeps what the caller gave; on a GPT it gets the highest start
// and the highest end. True when an entry of the MBR has a size. A GPT whose entries don't begin at LBA 2 is warned of
// and left aside.
bool ReadPartitionExtents(PartitionExtents& extents);

// The four entries of the MBR in SectorBuffer as text. Where the buffer is shorter, 0 is shown.
std::string PartitionTableText();

// Little-endian numbers in SectorBuffer; bytes behind its end count as 0. Of eight bytes with the highest bit set: -1.
std::uint32_t ReadLe32(std::uint64_t offset);
std::int64_t ReadLe64(std::uint64_t offset);
