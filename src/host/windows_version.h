// Names the running version of Windows. The index decides which message a drive that can't be opened gets.
#pragma once

#include <string>

inline constexpr int kWindowsUnknown = 0;  // also every system that is not Windows, and every later version
inline constexpr int kWindowsVista = 9;
inline constexpr int kWindows7 = 10;

// The version's index, kWindowsUnknown when the query fails.
int WindowsVersionIndex();
// The name for that index.
std::string WindowsVersionText();
