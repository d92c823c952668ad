// A Linux system for tests: trees of their own in a folder, drives that are plain files, mounts that are a list.
#pragma once

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/linux_machine.h"
#include "support/run.h"

inline constexpr std::uint64_t kStickBytes = 64ULL << 20;

class FakeSystem : public LinuxSystem {
 public:
  explicit FakeSystem(const std::string& root) : LinuxSystem({root + "/dev", root + "/sys", root + "/proc"}) {
    Put(Trees().proc + "/self/mountinfo", "");
    Put(Trees().proc + "/swaps", "Filename Type Size Used Priority\n");
  }

  static void Put(const std::string& file, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::filesystem::remove(file);
    WriteBytes(file, 0, text);
  }
  std::string Sys(const std::string& file) const { return Trees().sys + "/block/" + file; }

  // A USB stick of 64 MiB with a serial number; its number as a device is that of the plain file.
  void AddStick(const std::string& name) {
    const std::string usb = Trees().sys + "/devices/usb1/1-" + name;
    Put(usb + "/idVendor", "1234\n");
    Put(usb + "/serial", "S-" + name + "\n");
    Put(usb + "/host/lun/vendor", "Maker   \n");
    Put(usb + "/host/lun/model", "Stick           \n");
    for (const auto& [file, text] :
         std::vector<std::pair<std::string, std::string>>{{"dev", "0:0"},
                                                          {"size", "131072"},
                                                          {"removable", "1"},
                                                          {"ro", "0"},
                                                          {"diskseq", "7"},
                                                          {"queue/logical_block_size", "512"}}) {
      Put(Sys(name) + "/" + file, text + "\n");
    }
    std::filesystem::create_directory_symlink(usb + "/host/lun", Sys(name) + "/device");
    Put(NodeOf(*this, name), "");
    SetFileSize(NodeOf(*this, name), kStickBytes);
  }

  void AddPartition(const std::string& drive, int number, const std::string& device, int start, int sectors) {
    const std::string folder = Sys(drive) + "/" + drive + std::to_string(number) + "/";
    Put(folder + "partition", std::to_string(number));
    Put(folder + "dev", device);
    Put(folder + "start", std::to_string(start));
    Put(folder + "size", std::to_string(sectors));
    Put(NodeOf(*this, drive + std::to_string(number)), "");
  }

  void SetMounts(const std::vector<Mount>& mounts, const std::string& process = "self") {
    std::string text;
    for (const Mount& mount : mounts) {
      text += std::to_string(mount.id) + " " + std::to_string(mount.parent) + " " + mount.device + " / " + mount.point +
              " rw" + (mount.shared.empty() ? "" : " shared:" + mount.shared) +
              (mount.master.empty() ? "" : " master:" + mount.master) + " - " +
              (mount.type.empty() ? "vfat" : mount.type) + " " + mount.source + " rw\n";
    }
    Put(Trees().proc + "/" + process + "/mountinfo", text);
    if (process == "self") {
      mounts_ = mounts;
    }
  }

  int Open(const std::string& node, int flags) override {
    opens.push_back({std::filesystem::path(node).filename(), flags});
    if ((flags & O_ACCMODE) == O_RDWR && writer_error != 0) {
      errno = writer_error;
      return -1;
    }
    return open_error != 0 ? (errno = open_error, -1) : LinuxSystem::Open(node, flags & ~O_DIRECT);
  }
  ssize_t Read(int descriptor, void* buffer, std::size_t bytes, off_t position) override {
    return Transfer(bytes, [&](std::size_t count) { return LinuxSystem::Read(descriptor, buffer, count, position); });
  }
  ssize_t Write(int descriptor, const void* buffer, std::size_t bytes, off_t position) override {
    return Transfer(bytes, [&](std::size_t count) { return LinuxSystem::Write(descriptor, buffer, count, position); });
  }
  // A process that has the node of a drive or partition open.
  void AddOpen(const std::string& process, const std::string& name, int flags) {
    const std::string folder = Trees().proc + "/" + process;
    std::filesystem::create_directories(folder + "/fd");
    std::filesystem::remove(folder + "/fd/3");
    std::filesystem::create_symlink(NodeOf(*this, name), folder + "/fd/3");
    std::ostringstream text;
    text << "pos:\t0\nflags:\t0" << std::oct << flags << "\nmnt_id:\t5\n";
    Put(folder + "/fdinfo/3", text.str());
    Put(folder + "/comm", "shell\n");
  }

  int RereadTable(int /*descriptor*/) override {
    if (busy_rereads-- > 0) {
      errno = reread_error;
      return -1;
    }
    on_reread();
    return 0;
  }
  int Unmount(const Mount& mount, bool only_ask) override {
    const auto lies_on_it = [&](const Mount& other) { return other.parent == mount.id; };
    if (mount.point == busy || (mount.point == soon_busy && !only_ask) ||
        std::any_of(mounts_.begin(), mounts_.end(), lies_on_it)) {
      errno = EBUSY;
      return -1;
    }
    if (only_ask) {
      errno = EAGAIN;
      return -1;
    }
    unmounted.push_back(mount.point);
    std::erase_if(mounts_, [&](const Mount& other) { return other.id == mount.id; });
    SetMounts(std::vector<Mount>(mounts_));
    return 0;
  }
  void Pause(std::uint32_t /*milliseconds*/) override {
    ++pauses;
    on_pause();
  }
  void Complain(const std::string& text) override { complaints.push_back(text); }

  struct Opened {
    std::string name;
    int flags;
  };
  std::vector<Opened> opens;
  int open_error = 0;
  int writer_error = 0;         // of opens for writing
  std::string busy;             // a mount point that is in use
  std::string soon_busy;        // and one that is not yet, when that is asked for
  std::deque<ssize_t> outcome;  // of the next transfers: the most bytes that it moves, or -errno
  int busy_rereads = 0;
  int reread_error = EBUSY;  // of those
  std::function<void()> on_reread = [] {};
  std::function<void()> on_pause = [] {};
  std::vector<std::string> unmounted;
  std::vector<std::string> complaints;
  int pauses = 0;

 private:
  template <typename Call>
  ssize_t Transfer(std::size_t bytes, Call call) {
    const ssize_t most = outcome.empty() ? static_cast<ssize_t>(bytes) : outcome.front();
    if (!outcome.empty()) {
      outcome.pop_front();
    }
    if (most < 0) {
      errno = static_cast<int>(-most);
      return -1;
    }
    return call(std::min(bytes, static_cast<std::size_t>(most)));
  }

  std::vector<Mount> mounts_;
};
