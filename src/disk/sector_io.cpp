#include "disk/sector_io.h"

#include <cassert>
#include <limits>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/sector_dump.h"
#include "disk/handles.h"

void SizeSectorBuffer(std::size_t last) {
  try {
    SectorBuffer.assign(last + 1, 0);
  } catch (const std::bad_alloc&) {
    ReportBox("\r\n*** ERROR *** not enough memory for a buffer of " + std::to_string(last + 1) + " bytes");
    MyExitProcess(kLevelOperational);
  }
}

static void NoteError() {
  LastDllError = port->LastError();
  LastErrorText = SystemErrorText(LastDllError);
}

// An LBA that no byte position reaches gets a negative one, which the platform refuses: the product would wrap and name
// another sector.
static std::int64_t PositionOf(std::uint64_t lba) {
  constexpr std::uint64_t kHighest = std::numeric_limits<std::int64_t>::max() / kSectorBytes;
  return lba > kHighest ? -1 : static_cast<std::int64_t>(lba * kSectorBytes);
}

static bool SeekToSector(std::uint64_t lba) {
  LastSectorLba = lba;
  if (port->Seek(DiskHandle, PositionOf(lba))) {
    return true;
  }
  NoteError();
  LastTransferBytes = 0;
  return false;
}

static std::size_t TransferBytes(std::int32_t sectors) {
  const std::size_t bytes = static_cast<std::size_t>(sectors) * kSectorBytes;
  assert(sectors >= 0 && bytes <= SectorBuffer.size() && "SectorBuffer holds the whole transfer");
  return bytes;
}

bool DirectRead(std::uint64_t lba, std::int32_t sectors) {
  if (!SeekToSector(lba)) {
    return false;
  }
  std::uint32_t moved = 0;
  const bool done = port->Read(DiskHandle, ByteSpan(SectorBuffer).first(TransferBytes(sectors)), moved);
  NoteError();
  LastTransferBytes = done ? moved : 0;
  return done;
}

bool DirectWrite(std::uint64_t lba, std::int32_t sectors) {
  if (!SeekToSector(lba)) {
    return false;
  }
  const std::size_t bytes = TransferBytes(sectors);
  // The range lock is advisory: the write goes ahead without it. A failed write leaves it to the closing of the handle.
  const auto position = static_cast<std::uint64_t>(PositionOf(lba));
  port->LockRange(DiskHandle, position, bytes);
  std::uint32_t moved = 0;
  const bool done = port->Write(DiskHandle, ConstByteSpan(SectorBuffer).first(bytes), moved);
  NoteError();
  LastTransferBytes = done ? moved : 0;
  if (!done) {
    return false;
  }
  // Meant to be ignored: a write that the platform has taken counts as written, whatever flush and unlock say.
  port->Flush(DiskHandle);
  port->UnlockRange(DiskHandle, position, bytes);
  return true;
}

std::string SystemErrorText(std::uint32_t code) {
  constexpr std::size_t kLineEnd = 2;
  constexpr MessageMode kAnyMessage{kMessageFromSystem | kMessageIgnoreInserts, 256};
  const std::string message = port->ErrorMessage(code == 0 ? port->LastError() : code, kAnyMessage);
  if (message.size() < kLineEnd) {
    return "";
  }
  return "\r\nERROR: " + message.substr(0, message.size() - kLineEnd);
}

void LoadDriveHeader() {
  constexpr std::int32_t kHeaderSectors = 6;
  SizeSectorBuffer(std::size_t{kHeaderSectors} * kSectorBytes);
  if (!DirectRead(0, kHeaderSectors)) {
    ReportBox("\r\nError accessing sector 0 on Drive " + std::to_string(DriveNumber) + "\r\n" + LastErrorText + "\r\n");
    MyExitProcess(kLevelOperational);
  }
  if (OptDebug) {
    ConsoleWrite("\r\nDrive Partition table:\r\n");
    PrintDump(SectorBuffer);
  }
}
