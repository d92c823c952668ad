#include <array>
#include <span>

#include "platform/windows/automation.h"
#include "platform/windows/pass_through.h"
#include "platform/windows/windows_machine.h"

namespace {

// What starts the system name of a volume.
constexpr std::string_view kVolumePrefix = "\\\\?\\";

// The first 32 bits of a 64-bit number, and the others.
DWORD Low(std::uint64_t number) { return static_cast<DWORD>(number); }
DWORD High(std::uint64_t number) { return static_cast<DWORD>(number >> 32); }

}  // namespace

Handle WindowsMachine::Opened(HANDLE opened) {
  return Succeeded(static_cast<BOOL>(opened != INVALID_HANDLE_VALUE)) ? HandleOf(opened) : kInvalidHandle;
}

Handle WindowsMachine::Open(const std::string& path, const OpenMode& mode) {
  if (path.starts_with(kVolumePrefix)) {
    return Opened(calls_.CreateFileW(WideText(path).c_str(), mode.access, mode.share, nullptr, mode.disposition,
                                     mode.flags, nullptr));
  }
  return Opened(
      calls_.CreateFileA(path.c_str(), mode.access, mode.share, nullptr, mode.disposition, mode.flags, nullptr));
}

bool WindowsMachine::Close(Handle handle) {
  const bool closed = Succeeded(calls_.CloseHandle(SystemHandle(handle)));
  const auto thread = threads_.find(handle);
  if (thread != threads_.end()) {
    calls_.CloseHandle(thread->second);
    threads_.erase(thread);
  }
  return closed;
}

bool WindowsMachine::Seek(Handle handle, std::int64_t position) {
  LARGE_INTEGER distance{};
  distance.QuadPart = position;
  return Succeeded(calls_.SetFilePointerEx(SystemHandle(handle), distance, nullptr, FILE_BEGIN));
}

bool WindowsMachine::Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) {
  DWORD bytes = 0;
  const bool done =
      Succeeded(calls_.ReadFile(SystemHandle(handle), buffer.data(), Low(buffer.size()), &bytes, nullptr));
  moved = bytes;
  return done;
}

bool WindowsMachine::Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) {
  DWORD bytes = 0;
  const bool done =
      Succeeded(calls_.WriteFile(SystemHandle(handle), buffer.data(), Low(buffer.size()), &bytes, nullptr));
  moved = bytes;
  return done;
}

bool WindowsMachine::Flush(Handle handle) { return Succeeded(calls_.FlushFileBuffers(SystemHandle(handle))); }

bool WindowsMachine::LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) {
  return Succeeded(calls_.LockFile(SystemHandle(handle), Low(position), High(position), Low(bytes), High(bytes)));
}

bool WindowsMachine::UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) {
  return Succeeded(calls_.UnlockFile(SystemHandle(handle), Low(position), High(position), Low(bytes), High(bytes)));
}

bool WindowsMachine::Control(Handle handle, ControlCode code) {
  DWORD returned = 0;
  return Succeeded(calls_.DeviceIoControl(SystemHandle(handle), static_cast<DWORD>(code), nullptr, 0, nullptr, 0,
                                          &returned, nullptr));
}

bool WindowsMachine::Ask(Handle handle, DWORD code, ConstByteSpan question, void* answer, std::size_t answer_bytes) {
  DWORD returned = 0;
  // The question is read only, whatever the declaration says.
  auto* input = question.empty() ? nullptr : const_cast<std::uint8_t*>(question.data());
  return Succeeded(calls_.DeviceIoControl(SystemHandle(handle), code, input, Low(question.size()), answer,
                                          Low(answer_bytes), &returned, nullptr));
}

bool WindowsMachine::QueryDeviceNumber(Handle handle, DeviceNumber& answer) {
  static_assert(sizeof answer == 12 && IOCTL_STORAGE_GET_DEVICE_NUMBER == 0x002D1080);
  return Ask(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, &answer, sizeof answer);
}

bool WindowsMachine::QueryLength(Handle handle, std::uint64_t& bytes) {
  static_assert(IOCTL_DISK_GET_LENGTH_INFO == 0x0007405C);
  return Ask(handle, IOCTL_DISK_GET_LENGTH_INFO, {}, &bytes, sizeof bytes);
}

bool WindowsMachine::QueryBusType(Handle handle, std::uint8_t& bus) {
  static_assert(IOCTL_STORAGE_QUERY_PROPERTY == 0x002D1400);
  constexpr std::size_t kBusType = 28;
  static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, BusType) == kBusType);
  // All zero: StorageDeviceProperty by PropertyStandardQuery.
  constexpr std::array<std::uint8_t, 12> kQuestion{};
  std::array<std::uint8_t, 512> descriptor{};
  const bool answered = Ask(handle, IOCTL_STORAGE_QUERY_PROPERTY, kQuestion, descriptor.data(), descriptor.size());
  bus = descriptor[kBusType];
  return answered;
}

bool WindowsMachine::ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) {
  static_assert(IOCTL_SCSI_PASS_THROUGH == 0x0004D004);
  NativePassThrough buffer(cdb, data);
  DWORD bytes = 0;
  const bool done =
      Succeeded(calls_.DeviceIoControl(SystemHandle(handle), IOCTL_SCSI_PASS_THROUGH, &buffer, kPassThroughBytesGiven,
                                       &buffer, kPassThroughBytesGiven, &bytes, nullptr));
  std::copy_n(buffer.data.begin(), data.size(), data.begin());
  returned = bytes;
  return done;
}
