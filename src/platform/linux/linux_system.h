// The Linux system as the drives' machine uses it: where its trees stand, and the calls that reach devices and mounts.
// Tests give it trees of their own and put a double in its place.
#pragma once

#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

// An open descriptor, closed with the object; below 0 for none.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  int Get() const { return number_; }
  bool IsOpen() const { return number_ >= 0; }

 private:
  int number_;
};

// One mount, as a process sees it.
struct Mount {
  int id = 0;               // of no other mount, whatever its namespace
  int parent = 0;           // the mount that its mount point lies on
  std::string device;       // "8:17"; of some file systems a number of no device
  std::string point;        // the folder
  std::string source;       // what was mounted, as it was named
  std::string type = {};    // the file system
  std::string shared = {};  // the group of mounts that pass on to each other what is mounted and unmounted on them
  std::string master = {};  // the group that it takes that from; empty, as `shared`, for none
};

// What else looks at a drive for a moment, such as the device manager after a change, is waited for.
inline constexpr int kTries = 20;
inline constexpr std::uint32_t kBetweenTries = 100;  // milliseconds

class LinuxSystem {
 public:
  struct Roots {
    std::string dev = "/dev";
    std::string sys = "/sys";
    std::string proc = "/proc";
  };

  LinuxSystem() = default;
  explicit LinuxSystem(Roots roots) : roots_(std::move(roots)) {}
  LinuxSystem(const LinuxSystem&) = delete;
  LinuxSystem& operator=(const LinuxSystem&) = delete;
  virtual ~LinuxSystem() = default;

  const Roots& Trees() const { return roots_; }

  // Each stands for one call of the system: -1 with errno on failure. Open is OpenDescriptor.
  virtual int Open(const std::string& node, int flags);
  virtual ssize_t Read(int descriptor, void* buffer, std::size_t bytes, off_t position);
  virtual ssize_t Write(int descriptor, const void* buffer, std::size_t bytes, off_t position);
  virtual int SendScsi(int descriptor, sg_io_hdr& header);
  virtual int RereadTable(int descriptor);
  // Unmounts what was found as `mount`, and nothing else that may cover its folder by now (EBUSY). With `only_ask` it
  // fails with EAGAIN where that could be done now, and leaves it mounted.
  virtual int Unmount(const Mount& mount, bool only_ask);

  virtual void Pause(std::uint32_t milliseconds);
  // A line on standard error; only the first of a run.
  virtual void Complain(const std::string& text);

 private:
  Roots roots_;
  bool complained_ = false;
};
