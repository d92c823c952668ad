// QUICKTEST: does the drive's memory answer at every address? One marker sector every 8 MiB, written from the end of
// the drive downwards and then read back; each holds its own address, so that a sector which answers for another
// address, or for none, shows. Destroys the drive's contents.
#pragma once

#include <array>
#include <cstdint>

#include "platform/platform.h"

// A place that didn't give its marker back.
struct BadBlock {
  std::int64_t expected;  // the LBA that was read
  std::int64_t found;     // what DecodeMarker made of it
};
inline constexpr std::size_t kBadBlockRows = 50'001;
// The first bad blocks in the order in which they were read; written by QuickTest alone. Not inline: on Windows the
// zeros of an inline variable lie in the program's file, and these are 800 KB.
extern std::array<BadBlock, kBadBlockRows> BadBlockTable;
inline std::int64_t BadCount = 0;  // all bad blocks, also those behind the table's end

// The value of a sector without a marker.
inline constexpr std::int64_t kNoMarker = -1;

// Writes the marker of an LBA (below 2^63) into the first eight bytes: the LBA, least significant byte first, with the
// highest bit set as the mark. The rest of `sector` is left as it is.
void EncodeMarker(std::uint64_t lba, ByteSpan sector);
// The LBA of the marker in the first eight bytes, kNoMarker where the mark isn't set.
std::int64_t DecodeMarker(ConstByteSpan sector);

// Asks, tests the drive in the record, reports what is bad and wipes sector 0. With OptNoWrite nothing is written, so
// that the old contents are judged. Resizes SectorBuffer to one sector. Ends the run: level 0 for a good drive, 2 when
// the user declines, 7 when a marker can't be written; for a bad drive the MiB that a partition may have, or 6 where
// that is below 1 or above 32767.
[[noreturn]] void QuickTest();
