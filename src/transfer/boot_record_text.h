// The boot record decoder: the fields of a FAT16, FAT32, exFAT or NTFS boot sector, line by line, and the positions on
// the drive that follow from them. Offsets after the published file system specifications.
#pragma once

#include <cstdint>
#include <string>

// Decodes the sector at the start of SectorBuffer; empty when it is no boot record that it knows (a FAT12 volume passes
// for FAT16). Any bytes are safe: a division by a field that is 0 counts as 0, a power of two beyond 2^63 too.
std::string BootRecordText();
