// How far a long pass over a known number of bytes is, and how long the rest will take at the speed so far.
#pragma once

#include <cstdint>
#include <string>

struct Progress {
  double total;            // bytes
  std::int64_t started;    // on the calendar, in seconds
  double last_report = 0;  // percent
};

// A pass over so many bytes that starts now.
Progress StartProgress(double total);
// The percentage that is done, rounded down, when it is time for a line: 5 percent or more behind the last one, and
// always above 99. Below 0 otherwise. `remaining` falls below 0 where the pass moves more than was asked for.
double DuePercent(Progress& progress, double remaining);
// The seconds that the rest will take; 0 when nothing is left.
double SecondsLeft(const Progress& progress, double remaining);
// "2 min 5 sec ", or "0 sec" below one second.
std::string TimeLeftText(double seconds);
