#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/host/descriptor.h"

int OpenDescriptor(const std::string& path, int flags) {
  constexpr mode_t kCreationMode = 0666;
  const int opened = open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, kCreationMode);
  if (opened < 0 || opened > STDERR_FILENO) {
    return opened;
  }
  const int moved = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(opened);
  errno = error;
  return moved;
}
