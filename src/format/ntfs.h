// The NTFS formatter: the platform's format service makes the volume, and the start of its boot area gets this
// program's boot code.
#pragma once

#include <string>

// Formats the partition of the MBR builder's results, of any size. The volumes must be unlocked and DiskHandle closed;
// it is open afterwards. Returns when the boot code is written (the copy of the boot sector at the volume's end stays
// the service's), or when the service has left an incomplete file system behind. Ends the run with level 1 when
// BootType is no token of NTFS (the volume has been formatted by then), with level 7 when the boot code can't be
// written, and as PrepareFormat and ReadVolumeBootRecord do.
void NTFS_Format(const std::string& label);
