#include "console/progress.h"

#include <cmath>

#include "console/number_text.h"
#include "platform/platform.h"

Progress StartProgress(double total) { return {total, port->CalendarSeconds()}; }

double DuePercent(Progress& progress, double remaining) {
  constexpr double kStep = 4;
  constexpr double kAlways = 99;
  const double percent = std::floor(100 - remaining / progress.total * 100);
  if (percent <= progress.last_report + kStep && percent <= kAlways) {
    return -1;
  }
  progress.last_report = percent;
  return percent;
}

double SecondsLeft(const Progress& progress, double remaining) {
  const auto elapsed = static_cast<double>(port->CalendarSeconds() - progress.started);
  return remaining == 0 ? 0 : elapsed * remaining / (progress.total - remaining);
}

std::string TimeLeftText(double seconds) {
  constexpr double kMinute = 60;
  if (std::trunc(seconds) <= 0) {
    return "0 sec";
  }
  const double minutes = std::trunc(seconds / kMinute);
  return PlainNumber(minutes) + " min " + PlainNumber(std::trunc(seconds - minutes * kMinute)) + " sec ";
}
