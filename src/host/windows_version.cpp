#include "host/windows_version.h"

#include <array>
#include <string_view>

#include "platform/platform.h"

namespace {

constexpr std::uint32_t kAnyMinor = 0xFFFFFFFF;

struct VersionRow {
  int index;
  std::uint32_t platform;
  std::uint32_t major;
  std::uint32_t minor;
  std::string_view name;
};
constexpr std::array kVersions{
    VersionRow{kWindowsUnknown, 0, 0, 0, "Unknown Version of Windows"},
    VersionRow{1, 1, 4, 0, "Windows 95"},
    VersionRow{2, 1, 4, 10, "Windows 98"},
    VersionRow{3, 1, 4, 90, "Windows Me"},
    VersionRow{4, 2, 3, kAnyMinor, "Windows NT 3.51"},
    VersionRow{5, 2, 4, kAnyMinor, "Windows NT 4.0"},
    VersionRow{6, 2, 5, 0, "Windows 2000"},
    VersionRow{7, 2, 5, 1, "Windows XP"},
    VersionRow{8, 2, 5, 2, "Windows Server 2003"},
    VersionRow{kWindowsVista, 2, 6, 0, "Windows Vista"},
    VersionRow{kWindows7, 2, 6, 1, "Windows 7/Server 2008 R2"},
};

const VersionRow& RunningVersion() {
  const SystemVersion running = port->Version();
  for (const VersionRow& row : kVersions) {
    if (row.platform == running.platform && row.major == running.major &&
        (row.minor == running.minor || row.minor == kAnyMinor)) {
      return row;
    }
  }
  return kVersions[0];
}

}  // namespace

int WindowsVersionIndex() { return RunningVersion().index; }

std::string WindowsVersionText() { return std::string(RunningVersion().name); }
