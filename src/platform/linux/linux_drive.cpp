#include "platform/linux/linux_drive.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/linux/drive_use.h"

namespace {

constexpr std::size_t kPieceBytes = std::size_t{4} << 20;  // of a long transfer
constexpr std::align_val_t kAlignment{4096};               // suits every sector size and memory page

ErrorCode CodeOfOpen(int error) {
  switch (error) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
      return kErrorFileNotFound;
    case EROFS:
      return kErrorWriteProtected;
    case ENOMEDIUM:
      return kErrorNotReady;
    case EACCES:
    case EPERM:
    case EBUSY:
      return kErrorAccessDenied;
    default:
      return kErrorIoDevice;
  }
}

ErrorCode CodeOfTransfer(int error) {
  switch (error) {
    case EROFS:
    case EPERM:  // it has been protected since the open
    case EACCES:
      return kErrorWriteProtected;
    case ENOMEDIUM:
    case ENXIO:
    case ENODEV:
    case ESHUTDOWN:
    case ENOSPC:  // a drive that is gone has no length
      return kErrorNotReady;
    case ENODATA:
    case EILSEQ:
      return kErrorCrc;
    case EINVAL:
      return kErrorInvalidParameter;
    default:
      return kErrorIoDevice;
  }
}

// Opens a node if it is the device that the kernel knows under that number.
ErrorCode OpenDevice(LinuxSystem& system, const std::string& node, const std::string& device, int flags,
                     Descriptor& descriptor) {
  Descriptor opened(system.Open(node, flags));
  struct stat status {};
  if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0) {
    return CodeOfOpen(errno);
  }
  if (S_ISCHR(status.st_mode) || DeviceText(status.st_rdev) != device) {
    return kErrorFileNotFound;
  }
  descriptor = std::move(opened);
  return kErrorNone;
}

std::string ReplacedText(const std::string& node, const DriveFacts& before, const DriveFacts& now) {
  const std::string was = DescriptionOf(before);
  const std::string is = DescriptionOf(now);
  return node +
         (was == is ? " has been put in again, or has another medium now (" + is
                    : " is another device now (" + is + "; it was " + was) +
         ")";
}

std::string JoinedWithAnd(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : " and ") + text;
  }
  return joined;
}

// Repeats `step` (bytes done so far: bytes moved, -1 with errno) until everything has moved.
template <typename Step>
ErrorCode MoveAll(std::size_t bytes, Step step) {
  for (std::size_t done = 0; done < bytes;) {
    const ssize_t moved = step(done);
    if (moved == 0) {
      return kErrorNotReady;  // the drive has lost its length
    }
    if (moved < 0 && errno != EINTR) {
      return CodeOfTransfer(errno);
    }
    done += static_cast<std::size_t>(std::max<ssize_t>(moved, 0));
  }
  return kErrorNone;
}

}  // namespace

void LinuxDrive::FreeAligned::operator()(std::uint8_t* bytes) const { operator delete[](bytes, kAlignment); }

std::uint8_t* LinuxDrive::Buffer() {
  if (!buffer_) {
    buffer_.reset(static_cast<std::uint8_t*>(operator new[](kPieceBytes, kAlignment)));
  }
  return buffer_.get();
}

ErrorCode LinuxDrive::Refuse(ErrorCode code, const std::string& why) {
  if (!complained_) {
    system_.Complain("drive " + std::to_string(number_) + " is refused: " + why +
                     (unmounted_.empty() ? ""
                                         : "; before that was found, " + JoinedWithAnd(unmounted_) +
                                               (unmounted_.size() > 1 ? " were" : " was") + " unmounted"));
  }
  complained_ = true;
  return code;
}

ErrorCode LinuxDrive::Find() {
  const std::optional<DriveFacts> now = ReadDriveFacts(system_, number_);
  if (!now) {
    return kErrorFileNotFound;
  }
  if (known_ && !SameDevice(*known_, *now)) {
    return Refuse(kErrorAccessDenied, ReplacedText(NodeOf(system_, now->name), *known_, *now));
  }
  facts_ = *now;
  return kErrorNone;
}

ErrorCode LinuxDrive::OpenNode(int flags, Descriptor& descriptor) {
  Descriptor opened;
  ErrorCode code = OpenDevice(system_, Node(), facts_.device, flags | O_DIRECT, opened);
  if (code == kErrorNone) {
    // From here on nothing else can have this device number: what is found now is what was opened.
    code = Find();
  }
  if (code != kErrorNone) {
    return code;
  }
  if (!known_) {
    pin_ = Descriptor(fcntl(opened.Get(), F_DUPFD_CLOEXEC, opened.Get()));
    if (!pin_.IsOpen()) {
      return kErrorIoDevice;
    }
    known_ = facts_;
  }
  descriptor = std::move(opened);
  return kErrorNone;
}

ErrorCode LinuxDrive::Open(Descriptor& descriptor) {
  ErrorCode code = Find();
  if (code == kErrorNone) {
    code = OpenNode(O_RDONLY, descriptor);
  }
  return code == kErrorAccessDenied ? Refuse(code, Node() + " can't be opened without the right to read it") : code;
}

ErrorCode LinuxDrive::Hold() {
  if (held_) {
    return kErrorNone;
  }
  Descriptor opened;  // its lock is that of the pin, where it is the first that is opened
  if (const ErrorCode code = Open(opened); code != kErrorNone) {
    return code;
  }
  if (facts_.bytes == 0) {
    return Refuse(kErrorNotReady, Node() + " has no medium");
  }
  for (int i = 0; flock(pin_.Get(), LOCK_EX | LOCK_NB) != 0; ++i) {
    if (i == kTries) {
      return Refuse(kErrorSharingViolation, Node() + " is locked by another program");
    }
    system_.Pause(kBetweenTries);
  }
  held_ = true;
  return kErrorNone;
}

ErrorCode LinuxDrive::Claim() {
  if (writer_.IsOpen() || refused_ != kErrorNone) {
    return refused_;
  }
  ErrorCode code = Hold();
  if (code == kErrorNone) {
    code = Find();
  }
  if (code == kErrorNone) {
    code = facts_.read_only ? kErrorWriteProtected : OpenWriter();
  }
  refused_ = code;
  return code;
}

ErrorCode LinuxDrive::OpenWriter() {
  if (const std::string user = FreeDrive(system_, facts_, unmounted_); !user.empty()) {
    return Refuse(kErrorAccessDenied, user);
  }
  errno = 0;
  ErrorCode code = OpenNode(O_RDWR | O_EXCL | O_DSYNC, writer_);
  // The program of a file system that was unmounted may still be on its way out.
  for (int i = 0; code == kErrorAccessDenied && errno == EBUSY && i < kTries; ++i) {
    system_.Pause(kBetweenTries);
    code = OpenNode(O_RDWR | O_EXCL | O_DSYNC, writer_);
  }
  if (code == kErrorAccessDenied) {
    Refuse(code, errno == EBUSY ? UserOfFreed(system_, facts_)
                                : Node() + " can't be opened without the right to write to it");
  }
  if (code == kErrorNone) {
    unmounted_.clear();
  }
  return code;
}

const Partition* LinuxDrive::PartitionAt(std::uint32_t number, std::uint64_t position, std::uint64_t bytes) const {
  const auto found = std::find_if(facts_.partitions.begin(), facts_.partitions.end(), [=](const Partition& each) {
    return each.number == number && each.position == position && each.bytes == bytes;
  });
  return found == facts_.partitions.end() ? nullptr : &*found;
}

ErrorCode LinuxDrive::LendPartition(std::uint32_t number, std::uint64_t position, std::uint64_t bytes,
                                    Descriptor& descriptor) {
  if (const ErrorCode code = Claim(); code != kErrorNone) {
    return code;
  }
  if (table_changed_) {
    const std::string why =
        reread_error_ == EBUSY ? UserOfPartitions(system_, facts_) : std::system_category().message(reread_error_);
    return Refuse(kErrorSharingViolation,
                  "the system still uses its old partition table" + (reread_error_ == 0 ? "" : ": " + why));
  }
  const Partition* partition = PartitionAt(number, position, bytes);
  if (partition == nullptr) {
    return kErrorFileNotFound;
  }
  writer_ = Descriptor();
  ErrorCode code =
      OpenDevice(system_, NodeOf(system_, partition->name), partition->device, O_RDWR | O_DIRECT | O_DSYNC, descriptor);
  if (code == kErrorNone) {
    // While it is open the kernel keeps its table: what is found now stays.
    code = Find();
  }
  return code == kErrorNone && PartitionAt(number, position, bytes) == nullptr ? kErrorFileNotFound : code;
}

ErrorCode LinuxDrive::Read(int descriptor, std::uint64_t position, ByteSpan buffer) {
  while (!buffer.empty()) {
    const std::size_t bytes = std::min(buffer.size(), kPieceBytes);
    const ErrorCode code = MoveAll(bytes, [&](std::size_t done) {
      return system_.Read(descriptor, Buffer() + done, bytes - done, static_cast<off_t>(position + done));
    });
    if (code != kErrorNone) {
      return code;
    }
    std::copy_n(Buffer(), bytes, buffer.begin());
    buffer = buffer.subspan(bytes);
    position += bytes;
  }
  return kErrorNone;
}

ErrorCode LinuxDrive::LostMedium() {
  refused_ = Find() == kErrorAccessDenied ? kErrorAccessDenied : kErrorNotReady;
  writer_ = Descriptor();
  return refused_;
}

ErrorCode LinuxDrive::Write(std::uint64_t position, ConstByteSpan bytes) {
  ErrorCode code = Claim();
  table_changed_ = table_changed_ || position < facts_.sector_bytes;
  while (code == kErrorNone && !bytes.empty()) {
    if (ReadSequence(system_, facts_.name) != facts_.sequence) {
      return LostMedium();
    }
    const std::size_t count = std::min(bytes.size(), kPieceBytes);
    std::copy_n(bytes.begin(), count, Buffer());
    code = MoveAll(count, [&](std::size_t done) {
      return system_.Write(writer_.Get(), Buffer() + done, count - done, static_cast<off_t>(position + done));
    });
    bytes = bytes.subspan(count);
    position += count;
  }
  return code;
}

ErrorCode LinuxDrive::RereadTable(int descriptor) {
  const bool claimed = writer_.IsOpen();
  for (int i = 0; system_.RereadTable(claimed ? writer_.Get() : descriptor) != 0; ++i) {
    if (errno != EBUSY || !held_ || i == kTries) {
      reread_error_ = errno;
      return CodeOfOpen(reread_error_);
    }
    system_.Pause(kBetweenTries);
  }
  table_changed_ = false;
  const ErrorCode code = Find();
  const auto missing = [this](const Partition& partition) {
    std::error_code error;
    return !std::filesystem::exists(NodeOf(system_, partition.name), error);
  };
  for (int i = 0; i < kTries && std::any_of(facts_.partitions.begin(), facts_.partitions.end(), missing); ++i) {
    system_.Pause(kBetweenTries);
  }
  return code;
}
