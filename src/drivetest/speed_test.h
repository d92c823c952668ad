// SPEEDTEST: how fast the drive reads and writes. The first 66,560,000 bytes are read in one transfer and written back
// in another, so that the contents stay what they are.
#pragma once

#include <string>

// Between the fields of the file in the local list format: ";" where the decimal sign is a comma, else ",". Written by
// SpeedTest.
inline std::string CsvSeparator;

// Asks, measures the drive and appends a row for each speed to USBSpeed.csv and USBSpeedDP.csv beside the program. Rows
// that can't be written are lost without a word. OptNoWrite changes nothing here. Ends the run: level 0, 2 when the
// user declines, 6 when the stretch can't be read or held in memory, 7 when it can't be written back.
[[noreturn]] void SpeedTest();
