#include <array>

#include "platform/windows/automation.h"
#include "platform/windows/windows_machine.h"

namespace {

constexpr std::size_t kVolumeNameCharacters = 4096;
using VolumeName = std::array<char, kVolumeNameCharacters>;

// FormatEx of fmifs.dll. Only the low 32 bits of the callback's detail are shown, and it is not looked into.
using FormatExCallback = ULONG(WINAPI*)(ULONG status, ULONG sub_action, void* action_info);
using FormatEx = void(WINAPI*)(const wchar_t* root, ULONG media, const wchar_t* file_system, const wchar_t* label,
                               LONG quick, ULONG cluster_bytes, FormatExCallback callback);
constexpr LONG kQuick = -1;
constexpr ULONG kDefaultClusterBytes = 0;

// The callback of the format that is going on: the service hands nothing through to tell one from another.
const FormatCallback* format_callback = nullptr;

ULONG WINAPI OnFormatStatus(ULONG status, ULONG sub_action, void* action_info) {
  return (*format_callback)(status, sub_action, static_cast<std::uint32_t>(HandleToULong(action_info)));
}

}  // namespace

Handle WindowsMachine::FirstVolume(std::string& name) {
  VolumeName buffer{};
  HANDLE found = calls_.FindFirstVolumeA(buffer.data(), static_cast<DWORD>(buffer.size()));
  if (!Succeeded(static_cast<BOOL>(found != INVALID_HANDLE_VALUE))) {
    return kInvalidHandle;
  }
  name = buffer.data();
  const Handle search = NewHandle();
  searches_[search] = found;
  return search;
}

bool WindowsMachine::NextVolume(Handle search, std::string& name) {
  const auto found = searches_.find(search);
  if (found == searches_.end()) {
    return Outcome(kErrorInvalidHandle);
  }
  VolumeName buffer{};
  if (!Succeeded(calls_.FindNextVolumeA(found->second, buffer.data(), static_cast<DWORD>(buffer.size())))) {
    return false;
  }
  name = buffer.data();
  return true;
}

void WindowsMachine::EndVolumes(Handle search) {
  const auto found = searches_.find(search);
  if (found == searches_.end()) {
    Outcome(kErrorInvalidHandle);
    return;
  }
  Succeeded(calls_.FindVolumeClose(found->second));
  searches_.erase(found);
}

bool WindowsMachine::MountVolume(const std::string& root, const std::string& name) {
  return Succeeded(calls_.SetVolumeMountPointA(root.c_str(), name.c_str()));
}

std::uint32_t WindowsMachine::DriveType(const std::string& root) { return calls_.GetDriveTypeA(root.c_str()); }

bool WindowsMachine::QueryVolumeSize(const std::string& name, std::uint64_t& bytes) {
  ULARGE_INTEGER available{};
  ULARGE_INTEGER total{};
  ULARGE_INTEGER free{};
  const bool known = Succeeded(calls_.GetDiskFreeSpaceExA(name.c_str(), &available, &total, &free));
  bytes = total.QuadPart;
  return known;
}

// The library is named with its folder: one of that name beside the program is not the system's.
void WindowsMachine::FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                                  const std::string& label, const FormatCallback& callback) {
  std::array<char, MAX_PATH> folder{};
  calls_.GetSystemDirectoryA(folder.data(), static_cast<UINT>(folder.size()));
  HMODULE library = calls_.LoadLibraryA((std::string(folder.data()) + "\\fmifs.dll").c_str());
  if (!Succeeded(static_cast<BOOL>(library != nullptr))) {
    return;
  }
  const auto format = RoutineOf<FormatEx>(calls_, library, "FormatEx");
  if (!Succeeded(static_cast<BOOL>(format != nullptr))) {
    return;
  }
  format_callback = &callback;
  format(WideText(root).c_str(), media, WideText(file_system).c_str(), WideText(label).c_str(), kQuick,
         kDefaultClusterBytes, OnFormatStatus);
  format_callback = nullptr;
}
