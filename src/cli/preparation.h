// The preparation of a drive: new master boot record, old boot records wiped, volume formatted, drive given back. The
// order of the steps, the waits between them and the lock around them are fixed; nothing that was written is rolled
// back. The drive has been identified and opened.
#pragma once

// Renews the MBR's boot code and keeps disk signature and table. Ends the run: level 0, 2 after Cancel or with
// OptNoWrite, 6 when the first sectors can't be read, 7 when the sector can't be written.
[[noreturn]] void WriteMbrOnly();

// Prepares the drive. Ends the run: level 0; before the first write 1 where FAT16 is too small for the drive, 2 after
// Cancel or with OptNoWrite; 7 when a write failed; else what the formatters end it with.
[[noreturn]] void PrepareDrive();
