// The exFAT formatter: the platform's format service makes the volume, and its boot region is replaced by one with this
// program's boot code. Boot region after the exFAT file system standard.
#pragma once

#include <string>

#include "platform/platform.h"

// Formats the partition of the MBR builder's results, of any size. The volumes must be unlocked and DiskHandle closed;
// it is open afterwards. Returns when the boot region is written twice, or when the service has left an incomplete file
// system behind. Ends the run with level 1 when BootType is not "EXFATBOOTMGR" (the volume has been formatted by then),
// with level 7 when a boot region can't be written, and as PrepareFormat and ReadVolumeBootRecord do.
void EXFAT_Format(const std::string& label);
// Fills sector 11 of the boot region in `buffer` with the checksum of the sectors in front of it.
void ExfatBootChecksum(ByteSpan buffer);
