// The sector dump: any buffer in one fixed layout, 16 bytes a line with a heading in front of each sector.
#pragma once

#include "platform/platform.h"

// The text that DumpSector leaves; the caller prints and empties it (PrintDump does both).
inline std::string DumpText;

// Appends a dump of `count` bytes from the start of `buffer` to DumpText. A count of 0 stands for LastTransferBytes; at
// most 200 sectors, and never more than the buffer holds, are shown. Sector headings count from LastSectorLba.
void DumpSector(ConstByteSpan buffer, std::size_t count);

// Dumps `buffer` (count 0), prints DumpText and empties it.
void PrintDump(ConstByteSpan buffer);
