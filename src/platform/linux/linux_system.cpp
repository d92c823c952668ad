#include "platform/linux/linux_system.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

#include "platform/host/descriptor.h"

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    close(number_);
  }
}

int LinuxSystem::Open(const std::string& node, int flags) { return OpenDescriptor(node, flags); }

ssize_t LinuxSystem::Read(int descriptor, void* buffer, std::size_t bytes, off_t position) {
  return pread(descriptor, buffer, bytes, position);
}

ssize_t LinuxSystem::Write(int descriptor, const void* buffer, std::size_t bytes, off_t position) {
  return pwrite(descriptor, buffer, bytes, position);
}

int LinuxSystem::SendScsi(int descriptor, sg_io_hdr& header) { return ioctl(descriptor, SG_IO, &header); }

int LinuxSystem::RereadTable(int descriptor) { return ioctl(descriptor, BLKRRPART); }

int LinuxSystem::Unmount(const Mount& mount, bool only_ask) {
  struct statx status {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (statx(AT_FDCWD, mount.point.c_str(), flags, STATX_MNT_ID, &status) != 0) {
    return -1;
  }
  if ((status.stx_mask & STATX_MNT_ID) == 0 || status.stx_mnt_id != static_cast<std::uint64_t>(mount.id)) {
    errno = EBUSY;
    return -1;
  }
  return umount2(mount.point.c_str(), UMOUNT_NOFOLLOW | (only_ask ? MNT_EXPIRE : 0));
}

void LinuxSystem::Pause(std::uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void LinuxSystem::Complain(const std::string& text) {
  if (!complained_) {
    std::fprintf(stderr, "korventix: %s\n", text.c_str());
  }
  complained_ = true;
}
