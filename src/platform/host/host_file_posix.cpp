#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/host/code_page.h"
#include "platform/host/descriptor.h"
#include "platform/host/host_file.h"

namespace {

int Descriptor(std::intptr_t native) { return static_cast<int>(native); }

ErrorCode CodeOf(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
      return kErrorFileNotFound;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EBADF:  // it was not opened for that
      return kErrorAccessDenied;
    case EROFS:
      return kErrorWriteProtected;
    case EWOULDBLOCK:
    case ETXTBSY:
      return kErrorSharingViolation;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kErrorDiskFull;
    case EINVAL:
      return kErrorInvalidParameter;
    default:
      return kErrorIoDevice;
  }
}

// The path of the only entry beside `path` that differs from it in case alone; else `path` itself, also where it exists
// as it is.
std::string ExistingSpelling(const std::string& path) {
  struct stat status {};
  const std::filesystem::path typed(path);
  if (lstat(path.c_str(), &status) == 0 || !typed.has_filename()) {
    return path;
  }
  const std::filesystem::path folder = typed.has_parent_path() ? typed.parent_path() : ".";
  const std::string wanted = UpperUtf8(typed.filename().native());
  std::string found = path;
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (UpperUtf8(entry->path().filename().native()) == wanted) {
      if (found != path) {
        return path;
      }
      found = entry->path().native();
    }
  }
  return error ? path : found;
}

struct Purpose {
  std::uint32_t access;
  std::uint32_t disposition;
  int flags;
};
constexpr std::array kPurposes = {
    Purpose{kAccessRead, kOpenExisting, O_RDONLY},
    // The attributes of a file can be had without the right to read it, and while others have it for their own.
    Purpose{kAccessReadAttributes, kOpenExisting, O_PATH},
    Purpose{kAccessWrite, kOpenAlways, O_WRONLY | O_CREAT},
};

// 0, or errno. What is missing is no fault where it is to be created.
int CheckRegular(const std::string& path, bool creates) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return creates && errno == ENOENT ? 0 : errno;
  }
  return S_ISREG(status.st_mode) ? 0 : EACCES;
}

// The image of a drive is locked for as long as the drive is attached, here or by another run. The lock that is taken
// keeps the file from becoming one while it is read. File systems without locks have no such images: 0, or errno.
int Share(int descriptor) {
  return flock(descriptor, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK ? EWOULDBLOCK : 0;
}

}  // namespace

bool HostFile::Exists(const std::string& path) {
  struct stat status {};
  return stat(ExistingSpelling(path).c_str(), &status) == 0;
}

ErrorCode HostFile::Remove(const std::string& path) {
  ErrorCode code = kErrorNone;
  const std::string file = ExistingSpelling(path);
  // Only what could be read as a file is deleted as one: the image of an attached drive stays.
  const std::unique_ptr<HostFile> opened = Open(file, {kAccessRead, kShareRead, kOpenExisting, 0}, code);
  if (code != kErrorNone) {
    return code;
  }
  return unlink(file.c_str()) == 0 ? kErrorNone : CodeOf(errno);
}

std::unique_ptr<HostFile> HostFile::Open(const std::string& path, const OpenMode& mode, ErrorCode& code) {
  const auto* const purpose = std::find_if(kPurposes.begin(), kPurposes.end(), [&](const Purpose& row) {
    return row.access == mode.access && row.disposition == mode.disposition;
  });
  if (purpose == kPurposes.end()) {
    code = kErrorInvalidParameter;
    return nullptr;
  }
  const std::string file = ExistingSpelling(path);
  // Looked at first: opening some devices has effects of its own.
  int error = CheckRegular(file, (purpose->flags & O_CREAT) != 0);
  const int descriptor = error == 0 ? OpenDescriptor(file, purpose->flags) : -1;
  if (descriptor < 0) {
    code = CodeOf(error != 0 ? error : errno);
    return nullptr;
  }
  std::unique_ptr<HostFile> opened(new HostFile(descriptor));
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    error = EACCES;  // it has been exchanged in between
  } else if (purpose->flags != O_PATH) {
    error = Share(descriptor);
  }
  code = error == 0 ? kErrorNone : CodeOf(error);
  return error == 0 ? std::move(opened) : nullptr;
}

HostFile::~HostFile() { close(Descriptor(native_)); }

ErrorCode HostFile::Seek(std::int64_t position) const {
  if (lseek(Descriptor(native_), position, SEEK_SET) >= 0) {
    return kErrorNone;
  }
  const ErrorCode code = CodeOf(errno);
  // The place lies behind all that the file system can hold: who reads on regardless has to find nothing there.
  lseek(Descriptor(native_), 0, SEEK_END);
  return code;
}

ErrorCode HostFile::Read(ByteSpan buffer, std::uint32_t& moved) const {
  moved = 0;
  while (!buffer.empty()) {
    const ssize_t got = read(Descriptor(native_), buffer.data(), buffer.size());
    if (got == 0) {
      break;
    }
    if (got < 0 && errno != EINTR) {
      return CodeOf(errno);
    }
    const auto bytes = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    buffer = buffer.subspan(bytes);
    moved += static_cast<std::uint32_t>(bytes);
  }
  return kErrorNone;
}

ErrorCode HostFile::Write(ConstByteSpan buffer, std::uint32_t& moved) const {
  moved = 0;
  while (!buffer.empty()) {
    const ssize_t put = write(Descriptor(native_), buffer.data(), buffer.size());
    if (put < 0 && errno != EINTR) {
      return CodeOf(errno);
    }
    const auto bytes = static_cast<std::size_t>(std::max<ssize_t>(put, 0));
    buffer = buffer.subspan(bytes);
    moved += static_cast<std::uint32_t>(bytes);
  }
  return kErrorNone;
}

ErrorCode HostFile::QuerySize(std::uint64_t& bytes) const {
  struct stat status {};
  if (fstat(Descriptor(native_), &status) != 0) {
    return CodeOf(errno);
  }
  bytes = static_cast<std::uint64_t>(status.st_size);
  return kErrorNone;
}
