#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include "platform/host/host_file.h"

namespace {

// NOLINTNEXTLINE(performance-no-int-to-ptr): it was a pointer before
HANDLE SystemHandle(std::intptr_t native) { return reinterpret_cast<HANDLE>(native); }

// The last error as one of those that machines report.
ErrorCode LastCode() {
  switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_FILENAME_EXCED_RANGE:
      return kErrorFileNotFound;
    case ERROR_ACCESS_DENIED:
      return kErrorAccessDenied;
    case ERROR_WRITE_PROTECT:
      return kErrorWriteProtected;
    case ERROR_NOT_READY:
      return kErrorNotReady;
    case ERROR_CRC:
      return kErrorCrc;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
      return kErrorSharingViolation;
    case ERROR_INVALID_PARAMETER:
      return kErrorInvalidParameter;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return kErrorDiskFull;
    default:
      return kErrorIoDevice;
  }
}

// A drive or volume, by whatever name, has no file information; consoles and pipes are of another type.
bool IsRegular(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION information{};
  return GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &information) != 0;
}

}  // namespace

bool HostFile::Exists(const std::string& path) {
  WIN32_FIND_DATAA entry{};
  HANDLE search = FindFirstFileA(path.c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) {
    return false;
  }
  FindClose(search);
  return true;
}

ErrorCode HostFile::Remove(const std::string& path) { return DeleteFileA(path.c_str()) != 0 ? kErrorNone : LastCode(); }

std::unique_ptr<HostFile> HostFile::Open(const std::string& path, const OpenMode& mode, ErrorCode& code) {
  HANDLE handle =
      CreateFileA(path.c_str(), mode.access, mode.share, nullptr, mode.disposition, mode.flags, /*template*/ nullptr);
  code = handle == INVALID_HANDLE_VALUE ? LastCode() : kErrorNone;
  if (code != kErrorNone) {
    return nullptr;
  }
  std::unique_ptr<HostFile> opened(new HostFile(reinterpret_cast<std::intptr_t>(handle)));
  code = IsRegular(handle) ? kErrorNone : kErrorAccessDenied;
  return code == kErrorNone ? std::move(opened) : nullptr;
}

HostFile::~HostFile() { CloseHandle(SystemHandle(native_)); }

ErrorCode HostFile::Seek(std::int64_t position) const {
  LARGE_INTEGER distance{};
  distance.QuadPart = position;
  return SetFilePointerEx(SystemHandle(native_), distance, nullptr, FILE_BEGIN) != 0 ? kErrorNone : LastCode();
}

ErrorCode HostFile::Read(ByteSpan buffer, std::uint32_t& moved) const {
  DWORD bytes = 0;
  const BOOL done =
      ReadFile(SystemHandle(native_), buffer.data(), static_cast<DWORD>(buffer.size()), &bytes, /*overlapped*/ nullptr);
  moved = bytes;
  return done != 0 ? kErrorNone : LastCode();
}

ErrorCode HostFile::Write(ConstByteSpan buffer, std::uint32_t& moved) const {
  DWORD bytes = 0;
  const BOOL done = WriteFile(SystemHandle(native_), buffer.data(), static_cast<DWORD>(buffer.size()), &bytes,
                              /*overlapped*/ nullptr);
  moved = bytes;
  return done != 0 ? kErrorNone : LastCode();
}

ErrorCode HostFile::QuerySize(std::uint64_t& bytes) const {
  DWORD high = 0;
  SetLastError(ERROR_SUCCESS);
  const DWORD low = GetFileSize(SystemHandle(native_), &high);
  if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) {
    return LastCode();  // without an error the length just ends so
  }
  bytes = std::uint64_t{high} << 32 | low;
  return kErrorNone;
}
