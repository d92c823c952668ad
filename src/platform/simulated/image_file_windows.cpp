#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
#include <winioctl.h>

#include <algorithm>
#include <system_error>

#include "platform/simulated/image_file.h"

namespace {

// The most bytes that one call moves, well below what its 32-bit count holds.
constexpr std::size_t kTransferLimit = std::size_t{1} << 30;

// NOLINTNEXTLINE(performance-no-int-to-ptr): it was a pointer before
HANDLE SystemHandle(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

std::string SystemText(DWORD error) {
  std::string text = std::system_category().message(static_cast<int>(error));
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
    text.pop_back();
  }
  return text;
}

std::wstring WideOfUtf8(const std::string& utf8) {
  const int characters = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(characters), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, wide.data(), characters);
  return wide;
}

// Names such as \\.\PhysicalDrive0, in all their spellings.
bool IsDeviceName(const std::string& file) {
  std::string name = file.substr(0, 4);
  std::replace(name.begin(), name.end(), '/', '\\');
  return name == "\\\\.\\" || name == "\\\\?\\" || name == "\\??\\";
}

// A share mode of 0 is the lock.
std::intptr_t OpenSystemFile(const std::string& file, DWORD access, DWORD disposition, std::string& problem) {
  if (IsDeviceName(file)) {
    problem = "is not a regular file";
    return -1;
  }
  HANDLE handle =
      CreateFileW(WideOfUtf8(file).c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    problem = error == ERROR_SHARING_VIOLATION ? "is in use by another run, or attached twice"
              : disposition == CREATE_NEW      ? "cannot be created: " + SystemText(error)
                                               : "cannot be opened: " + SystemText(error);
  }
  return reinterpret_cast<std::intptr_t>(handle);
}

ErrorCode CodeOf(DWORD error) {
  switch (error) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return kErrorDiskFull;
    case ERROR_WRITE_PROTECT:
    case ERROR_ACCESS_DENIED:
      return kErrorWriteProtected;
    default:
      return kErrorIoDevice;
  }
}

bool SeekTo(HANDLE handle, std::uint64_t position) {
  LARGE_INTEGER distance{};
  distance.QuadPart = static_cast<LONGLONG>(position);
  return SetFilePointerEx(handle, distance, nullptr, FILE_BEGIN) != 0;
}

// Moves all of `span` by calls of `move`, each at the file's own position.
template <typename Span, typename Move>
ErrorCode MoveAll(HANDLE handle, std::uint64_t position, Span span, Move move) {
  if (!SeekTo(handle, position)) {
    return CodeOf(GetLastError());
  }
  while (!span.empty()) {
    DWORD moved = 0;
    const auto bytes = static_cast<DWORD>(std::min(span.size(), kTransferLimit));
    if (move(handle, span.data(), bytes, &moved, nullptr) == 0) {
      return CodeOf(GetLastError());
    }
    if (moved == 0) {
      return kErrorIoDevice;
    }
    span = span.subspan(moved);
  }
  return kErrorNone;
}

}  // namespace

std::unique_ptr<ImageFile> ImageFile::Open(const std::string& file, bool writable, std::string& problem) {
  const DWORD access = writable ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  const std::intptr_t native = OpenSystemFile(file, access, OPEN_EXISTING, problem);
  if (native == -1) {
    return nullptr;
  }
  std::unique_ptr<ImageFile> image(new ImageFile(native));
  return image->Claim(problem) ? std::move(image) : nullptr;
}

std::unique_ptr<ImageFile> ImageFile::Create(const std::string& file, std::string& problem) {
  const std::intptr_t native = OpenSystemFile(file, GENERIC_READ | GENERIC_WRITE, CREATE_NEW, problem);
  if (native == -1) {
    return nullptr;
  }
  std::unique_ptr<ImageFile> image(new ImageFile(native));
  return image->Claim(problem) ? std::move(image) : nullptr;
}

bool ImageFile::Claim(std::string& problem) {
  BY_HANDLE_FILE_INFORMATION information{};
  LARGE_INTEGER length{};
  HANDLE handle = SystemHandle(native_);
  if (GetFileType(handle) != FILE_TYPE_DISK || GetFileInformationByHandle(handle, &information) == 0 ||
      GetFileSizeEx(handle, &length) == 0) {
    problem = "is not a regular file";
    return false;
  }
  bytes_ = static_cast<std::uint64_t>(length.QuadPart);
  return true;
}

ImageFile::~ImageFile() { CloseHandle(SystemHandle(native_)); }

bool ImageFile::Resize(std::uint64_t bytes, std::string& problem) {
  HANDLE handle = SystemHandle(native_);
  DWORD returned = 0;
  // A file system without sparse files stores the zeros: slower, and right all the same.
  DeviceIoControl(handle, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
  if (!SeekTo(handle, bytes) || SetEndOfFile(handle) == 0) {
    problem = "cannot be made " + std::to_string(bytes) + " bytes long: " + SystemText(GetLastError());
    return false;
  }
  bytes_ = bytes;
  return true;
}

ErrorCode ImageFile::Read(std::uint64_t position, ByteSpan buffer) {
  return MoveAll(SystemHandle(native_), position, buffer, ReadFile);
}

ErrorCode ImageFile::Write(std::uint64_t position, ConstByteSpan bytes) {
  return MoveAll(SystemHandle(native_), position, bytes, WriteFile);
}

ErrorCode ImageFile::Flush() {
  return FlushFileBuffers(SystemHandle(native_)) != 0 ? kErrorNone : CodeOf(GetLastError());
}
