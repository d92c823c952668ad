#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/host/descriptor.h"
#include "platform/simulated/image_file.h"

namespace {

std::string SystemText(int error) { return std::system_category().message(error); }

int Descriptor(std::intptr_t native) { return static_cast<int>(native); }

ErrorCode CodeOf(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kErrorDiskFull;
    case EROFS:
    case EPERM:
    case EBADF:  // the file was opened for reading
      return kErrorWriteProtected;
    default:
      return kErrorIoDevice;
  }
}

bool IsZero(ConstByteSpan bytes) {
  return bytes.empty() || (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

ErrorCode WritePlainly(int descriptor, std::uint64_t position, ConstByteSpan bytes) {
  while (!bytes.empty()) {
    const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(position));
    if (written < 0 && errno != EINTR) {
      return CodeOf(errno);
    }
    const auto moved = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    bytes = bytes.subspan(moved);
    position += moved;
  }
  return kErrorNone;
}

// Writes zeros where the file has data; its holes are zeros already.
ErrorCode WriteZeros(int descriptor, std::uint64_t position, ConstByteSpan zeros) {
  const auto end = static_cast<off_t>(position + zeros.size());
  auto at = static_cast<off_t>(position);
  while (at < end) {
    const off_t data = lseek(descriptor, at, SEEK_DATA);
    if (data < 0 && errno != ENXIO) {
      return WritePlainly(descriptor, static_cast<std::uint64_t>(at), zeros.first(static_cast<std::size_t>(end - at)));
    }
    if (data < 0 || data >= end) {
      return kErrorNone;
    }
    const off_t hole = lseek(descriptor, data, SEEK_HOLE);
    const off_t stop = hole > data ? std::min(hole, end) : end;
    const ErrorCode code =
        WritePlainly(descriptor, static_cast<std::uint64_t>(data), zeros.first(static_cast<std::size_t>(stop - data)));
    if (code != kErrorNone) {
      return code;
    }
    at = stop;
  }
  return kErrorNone;
}

}  // namespace

std::unique_ptr<ImageFile> ImageFile::Open(const std::string& file, bool writable, std::string& problem) {
  struct stat status {};
  // Looked at first: opening some devices has effects of its own.
  if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    problem = "is not a regular file";
    return nullptr;
  }
  const int descriptor = OpenDescriptor(file, writable ? O_RDWR : O_RDONLY);
  if (descriptor < 0) {
    problem = std::string("cannot be opened for ") + (writable ? "writing: " : "reading: ") + SystemText(errno);
    return nullptr;
  }
  std::unique_ptr<ImageFile> image(new ImageFile(descriptor));
  return image->Claim(problem) ? std::move(image) : nullptr;
}

std::unique_ptr<ImageFile> ImageFile::Create(const std::string& file, std::string& problem) {
  const int descriptor = OpenDescriptor(file, O_RDWR | O_CREAT | O_EXCL);
  if (descriptor < 0) {
    problem = "cannot be created: " + SystemText(errno);
    return nullptr;
  }
  std::unique_ptr<ImageFile> image(new ImageFile(descriptor));
  return image->Claim(problem) ? std::move(image) : nullptr;
}

bool ImageFile::Claim(std::string& problem) {
  const int descriptor = Descriptor(native_);
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    problem = "is not a regular file";
    return false;
  }
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    problem =
        errno == EWOULDBLOCK ? "is in use by another run, or attached twice" : "cannot be locked: " + SystemText(errno);
    return false;
  }
  if (fstat(descriptor, &status) == 0) {
    bytes_ = static_cast<std::uint64_t>(status.st_size);
  }
  return true;
}

ImageFile::~ImageFile() { close(Descriptor(native_)); }

bool ImageFile::Resize(std::uint64_t bytes, std::string& problem) {
  if (ftruncate(Descriptor(native_), static_cast<off_t>(bytes)) != 0) {
    problem = "cannot be made " + std::to_string(bytes) + " bytes long: " + SystemText(errno);
    return false;
  }
  bytes_ = bytes;
  return true;
}

ErrorCode ImageFile::Read(std::uint64_t position, ByteSpan buffer) {
  while (!buffer.empty()) {
    const ssize_t got = pread(Descriptor(native_), buffer.data(), buffer.size(), static_cast<off_t>(position));
    if (got == 0 || (got < 0 && errno != EINTR)) {
      return kErrorIoDevice;  // at the end: someone has cut the file
    }
    const auto moved = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    buffer = buffer.subspan(moved);
    position += moved;
  }
  return kErrorNone;
}

ErrorCode ImageFile::Write(std::uint64_t position, ConstByteSpan bytes) {
  const int descriptor = Descriptor(native_);
  return IsZero(bytes) ? WriteZeros(descriptor, position, bytes) : WritePlainly(descriptor, position, bytes);
}

ErrorCode ImageFile::Flush() { return fdatasync(Descriptor(native_)) == 0 ? kErrorNone : CodeOf(errno); }
