#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "platform/simulated/format_volume.h"

namespace {

// A sparse file without a name, in memory. It is gone with the process, needs no folder with room, and whatever is
// written to it, zeros too, is data and no hole. The tools write a 30,000th of the volume, and 64 MB at most of
// journal.
class SparseFile {
 public:
  explicit SparseFile(std::uint64_t bytes) {
    const int made = memfd_create("korventix-format", MFD_CLOEXEC);
    descriptor_ = made < 0 ? made : fcntl(made, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(made);
    if (ftruncate(descriptor_, static_cast<off_t>(bytes)) != 0) {
      close(descriptor_);
      descriptor_ = -1;
    }
  }
  SparseFile(const SparseFile&) = delete;
  SparseFile& operator=(const SparseFile&) = delete;
  ~SparseFile() { close(descriptor_); }

  // Negative where the file can't be had.
  int Descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

ErrorCode CopyStretch(int from, off_t start, off_t end, SimulatedDrive& drive, std::uint64_t position) {
  constexpr off_t kChunk = 1 << 16;  // small, since a chunk of zeros takes no place in an image
  std::vector<std::uint8_t> buffer(kChunk);
  for (off_t at = start; at < end; at += kChunk) {
    const auto bytes = static_cast<std::size_t>(std::min(kChunk, end - at));
    if (pread(from, buffer.data(), bytes, at) != static_cast<ssize_t>(bytes)) {
      return kErrorIoDevice;
    }
    const ErrorCode code = drive.Write(position + static_cast<std::uint64_t>(at), ConstByteSpan(buffer).first(bytes));
    if (code != kErrorNone) {
      return code;
    }
  }
  return kErrorNone;
}

// Copies what has been written to the file to the drive, from `position` on.
ErrorCode CopyData(int from, SimulatedDrive& drive, std::uint64_t position) {
  off_t end = 0;
  while (true) {
    const off_t start = lseek(from, end, SEEK_DATA);
    if (start < 0) {
      return errno == ENXIO ? kErrorNone : kErrorIoDevice;  // no more data
    }
    end = lseek(from, start, SEEK_HOLE);
    const ErrorCode code = end < 0 ? kErrorIoDevice : CopyStretch(from, start, end, drive, position);
    if (code != kErrorNone) {
      return code;
    }
  }
}

}  // namespace

std::optional<std::uint32_t> FormatSimulatedVolume(SimulatedDrive& drive, std::uint64_t position, std::uint64_t bytes,
                                                   FormatJob job) {
  if (drive.Traits().read_only) {
    return kFormatWriteProtected;
  }
  const SparseFile file(bytes);
  job.first_sector = position / kDefaultSectorBytes;
  std::array<std::uint8_t, kDefaultSectorBytes> table{};
  if (drive.Read(0, table) == kErrorNone) {
    SetGeometry(job, table);
  }
  if (file.Descriptor() < 0 || !MakeFileSystem(file.Descriptor(), job)) {
    return std::nullopt;
  }
  const ErrorCode code = CopyData(file.Descriptor(), drive, position);
  if (code == kErrorWriteProtected) {
    return kFormatWriteProtected;
  }
  return code == kErrorNone ? std::optional(kFormatCompleted) : std::nullopt;
}
