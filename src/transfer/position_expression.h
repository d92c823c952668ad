// Position expressions: what USBSTART=, FILESTART= and LENGTH= say, as numbers, and the table of partition extents.
//
// An expression is a plain number (an optional sign, digits with at most one point, an optional exponent), a number
// with a unit (KB, MB, GB, SEC; powers of 1024, sectors of 512 bytes), or a word that names a place in a partition
// table (MBR, MBR+, P1 to P8, EXT, PEXT, PALL, DALL). A word is present when the text contains it anywhere. Names refer
// to the table that is in SectorBuffer. Values may have a fraction; a transfer uses their whole part.
#pragma once

#include <cstdint>
#include <string>

#include "partition/table_reader.h"

// True when the text is a plain number as a whole.
bool IsPlainNumber(const std::string& text);
// The number that the text begins with, 0 where there is none.
double LeadingNumber(const std::string& text);
// The whole part as a number of 64 bits; what lies beyond them counts as the nearest that fits.
std::int64_t WholePart(double value);

// A position on the drive, in sectors. Ends the run with level 6 when a name is asked of a table that can't be read, or
// gives 0.
double EvalDriveStart(const std::string& expression);
// A number of sectors from `drive_start` on; may be below 1. Ends the run with level 6 when it comes out as 0.
double EvalDriveLength(const std::string& expression, double drive_start);
// A position in the file, in bytes. Ends the run with level 6 when a name is asked of a table that can't be read, or
// gives 0.
double EvalFileStart(const std::string& file_name, const std::string& expression);
// A number of bytes from `file_start` on. Reads the file's header into SectorBuffer when it needs a table. Ends the run
// with level 6 when it comes out as 0 or as no number.
double EvalFileLength(const std::string& file_name, const std::string& expression, double file_start);

// The extents as a table, with the drive's own row where a drive has been measured.
std::string ExtentsText(const PartitionExtents& extents);
