#include "platform/windows/windows_machine.h"

bool WindowsMachine::FindFile(const std::string& path) {
  WIN32_FIND_DATAA entry{};
  HANDLE search = calls_.FindFirstFileA(path.c_str(), &entry);
  if (!Succeeded(static_cast<BOOL>(search != INVALID_HANDLE_VALUE))) {
    return false;
  }
  calls_.FindClose(search);
  return true;
}

// A drive or volume, by whatever name, has no file information; consoles and pipes are of another type.
Handle WindowsMachine::OpenFile(const std::string& path, const OpenMode& mode) {
  const Handle file =
      Opened(calls_.CreateFileA(path.c_str(), mode.access, mode.share, nullptr, mode.disposition, mode.flags, nullptr));
  BY_HANDLE_FILE_INFORMATION information{};
  if (file != kInvalidHandle && (calls_.GetFileType(SystemHandle(file)) != FILE_TYPE_DISK ||
                                 calls_.GetFileInformationByHandle(SystemHandle(file), &information) == 0)) {
    calls_.CloseHandle(SystemHandle(file));
    Outcome(kErrorAccessDenied);
    return kInvalidHandle;
  }
  return file;
}

bool WindowsMachine::QueryFileSize(Handle file, std::uint64_t& bytes) {
  DWORD high = 0;
  calls_.SetLastError(ERROR_SUCCESS);
  const DWORD low = calls_.GetFileSize(SystemHandle(file), &high);
  // Without an error the length just ends so.
  if (!Outcome(low == INVALID_FILE_SIZE ? calls_.GetLastError() : ERROR_SUCCESS)) {
    return false;
  }
  bytes = std::uint64_t{high} << 32 | low;
  return true;
}

bool WindowsMachine::RemoveFile(const std::string& path) { return Succeeded(calls_.DeleteFileA(path.c_str())); }
