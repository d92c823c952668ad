#include "disk/files.h"

#include "platform/platform.h"

bool FileExists(const std::string& path) { return port->FindFile(path); }

std::uint64_t FileLength(const std::string& path) {
  if (!port->FindFile(path)) {
    return 0;
  }
  const Handle file = port->OpenFile(path, {kAccessReadAttributes, kShareRead, kOpenExisting, 0});
  if (file == kInvalidHandle) {
    return 0;
  }
  std::uint64_t bytes = 0;
  const bool known = port->QueryFileSize(file, bytes);
  port->Close(file);
  return known ? bytes : 0;
}
