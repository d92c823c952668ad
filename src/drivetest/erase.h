// ERASE: the whole drive overwritten.
#pragma once

// Asks, then writes 0xFF to every byte of the drive that it reports and zeros to sector 0, with progress lines. With
// OptNoWrite nothing is written. Ends the run: level 0, 2 when the user declines, 7 when a write fails (that of sector
// 0 doesn't count).
[[noreturn]] void EraseDrive();
