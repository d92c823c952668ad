#include "transfer/file_header.h"

#include <algorithm>

#include "disk/files.h"
#include "disk/handles.h"
#include "disk/sector_io.h"

namespace {

constexpr std::uint32_t kHeaderBytes = 3072;

// Reads so many bytes from the start of the file, or all that it has.
bool ReadStart(std::uint32_t bytes) {
  FileHandle = port->OpenFile(FilePath, kReadFile);
  if (FileHandle == kInvalidHandle) {
    return false;
  }
  std::uint32_t moved = 0;
  const bool read = port->Read(FileHandle, ByteSpan(SectorBuffer).first(bytes), moved);
  port->Close(FileHandle);
  FileHandle = 0;
  return read;
}

}  // namespace

bool LoadFileHeader() {
  if (!FileExists(FilePath)) {
    return false;
  }
  SizeSectorBuffer(kHeaderBytes - 1);
  if (ReadStart(kHeaderBytes)) {
    LastTransferBytes = static_cast<std::uint32_t>(std::min<std::uint64_t>(kHeaderBytes, FileLength(FilePath)));
    return true;
  }
  LastTransferBytes = kSectorBytes;
  return ReadStart(kSectorBytes);
}
