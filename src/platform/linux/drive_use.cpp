#include "platform/linux/drive_use.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;

// What is mounted at one of these is the running system, also while none of its files is open.
constexpr std::array<std::string_view, 8> kSystemFolders = {"/",          "/boot", "/boot/efi", "/boot/firmware",
                                                            "/boot/grub", "/home", "/usr",      "/var"};

// Paths in the kernel's tables have blanks and backslashes as three octal digits.
std::string Unescaped(const std::string& text) {
  constexpr std::size_t kDigits = 3;
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string digits = text[i] == '\\' ? text.substr(i + 1, kDigits) : "";
    if (digits.size() == kDigits && digits.find_first_not_of("01234567") == std::string::npos) {
      plain += static_cast<char>(std::stoi(digits, nullptr, 8));
      i += kDigits;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

std::vector<Mount> ReadMounts(const std::string& file) {
  std::vector<Mount> mounts;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    Mount mount;
    std::string skipped;
    std::istringstream words(line);
    words >> mount.id >> mount.parent >> mount.device >> skipped >> mount.point;
    while (words >> skipped && skipped != "-") {
    }
    words >> skipped >> mount.source;
    mount.point = Unescaped(mount.point);
    mount.source = Unescaped(mount.source);
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

std::vector<std::string> EntriesOf(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    names.push_back(entry->path().filename());
  }
  return names;
}

// A drive and its partitions, under their names.
class DriveUse {
 public:
  DriveUse(const LinuxSystem& system, const DriveFacts& facts) : system_(system), facts_(facts) {
    names_.push_back(facts.name);
    for (const Partition& partition : facts.partitions) {
      names_.push_back(partition.name);
    }
  }

  // The node of the drive or partition that a path leads to, links followed; empty for any other path.
  std::string NodeBehind(const std::string& path) const {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    for (const std::string& name : names_) {
      std::string node = NodeOf(system_, name);
      if (path == node || (!error && target == fs::canonical(node, error) && !error)) {
        return node;
      }
    }
    return {};
  }

  // The node that is mounted; empty for a mount of another drive.
  std::string MountedNode(const Mount& mount) const {
    for (const Partition& partition : facts_.partitions) {
      if (mount.device == partition.device) {
        return NodeOf(system_, partition.name);
      }
    }
    return mount.device == facts_.device ? NodeOf(system_, facts_.name) : NodeBehind(mount.source);
  }

  // The mounts of the drive that a process sees ("self" is this one), the oldest first.
  std::vector<Mount> Mounts(const std::string& process) const {
    std::vector<Mount> mounts = ReadMounts(MountTable(process));
    std::erase_if(mounts, [this](const Mount& mount) { return MountedNode(mount).empty(); });
    return mounts;
  }
  std::string MountTable(const std::string& process) const {
    return system_.Trees().proc + "/" + process + "/mountinfo";
  }

  // Device mapper, RAID and the like say whom they stand on.
  std::string Holder() const {
    const fs::path drive = system_.Trees().sys + "/block/" + facts_.name;
    for (const std::string& name : names_) {
      const fs::path folder = name == facts_.name ? drive : drive / name;
      if (const auto holders = EntriesOf(folder / "holders"); !holders.empty()) {
        return NodeOf(system_, name) + " is part of " + NodeOf(system_, holders.front());
      }
    }
    return {};
  }

  std::string Swap() const {
    std::ifstream stream(system_.Trees().proc + "/swaps");
    for (std::string line; std::getline(stream, line);) {
      if (const std::string node = NodeBehind(Unescaped(line.substr(0, line.find_first_of(" \t")))); !node.empty()) {
        return node + " is swap space";
      }
    }
    return {};
  }

  // A loop device claims nothing, so that the kernel would not refuse.
  std::string Loop() const {
    for (const std::string& name : EntriesOf(system_.Trees().sys + "/block")) {
      const std::string file = FirstLine(system_.Trees().sys + "/block/" + name + "/loop/backing_file");
      if (const std::string node = file.empty() ? "" : NodeBehind(file); !node.empty()) {
        return node + " is part of " + NodeOf(system_, name);
      }
    }
    return {};
  }

 private:
  const LinuxSystem& system_;
  const DriveFacts& facts_;
  std::vector<std::string> names_;
};

bool IsSystemFolder(const std::string& folder) {
  return std::find(kSystemFolders.begin(), kSystemFolders.end(), folder) != kSystemFolders.end();
}

// How many of the mounts lie on this one.
std::ptrdiff_t MountsOn(const std::vector<Mount>& mounts, const Mount& mount) {
  return std::count_if(mounts.begin(), mounts.end(), [&](const Mount& other) { return other.parent == mount.id; });
}

// Why one of the drive's mounts has to stay; empty where it can be unmounted. Mounts of the drive that lie on it go
// first, and until then the system would say that it is in use.
std::string WhyItStays(LinuxSystem& system, const Mount& mount, const std::vector<Mount>& of_drive,
                       const std::vector<Mount>& all) {
  if (IsSystemFolder(mount.point)) {
    return " and belongs to the running system";
  }
  if (MountsOn(all, mount) > MountsOn(of_drive, mount)) {
    return " and has another file system mounted on it";
  }
  if (MountsOn(of_drive, mount) > 0 || system.Unmount(mount, /*only_ask=*/true) == 0 || errno == EAGAIN) {
    return {};
  }
  return errno == EBUSY ? " and in use" : " and can't be unmounted: " + std::system_category().message(errno);
}

bool Unmounted(LinuxSystem& system, const DriveUse& use, const Mount& mount) {
  if (system.Unmount(mount, /*only_ask=*/false) == 0) {
    return true;
  }
  // One that was joined to it may have taken it along.
  const std::vector<Mount> left = use.Mounts("self");
  return std::none_of(left.begin(), left.end(), [&](const Mount& other) { return other.id == mount.id; });
}

std::string MountText(const DriveUse& use, const Mount& mount) {
  return use.MountedNode(mount) + " is mounted on " + mount.point;
}

}  // namespace

std::string FreeDrive(LinuxSystem& system, const DriveFacts& facts) {
  const DriveUse use(system, facts);
  for (const std::string& why : {use.Holder(), use.Swap(), use.Loop()}) {
    if (!why.empty()) {
      return why;
    }
  }
  std::vector<Mount> mounts = use.Mounts("self");
  const std::vector<Mount> all = ReadMounts(use.MountTable("self"));
  for (const Mount& mount : mounts) {
    if (const std::string why = WhyItStays(system, mount, mounts, all); !why.empty()) {
      return MountText(use, mount) + why;
    }
  }
  std::reverse(mounts.begin(), mounts.end());  // what was mounted last may lie on what was mounted before
  for (const Mount& mount : mounts) {
    if (!Unmounted(system, use, mount)) {
      return MountText(use, mount) + " and in use";
    }
  }
  return {};
}

std::string UserElsewhere(const LinuxSystem& system, const DriveFacts& facts) {
  const DriveUse use(system, facts);
  for (const std::string& process : EntriesOf(system.Trees().proc)) {
    if (process.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    if (const auto mounts = use.Mounts(process); !mounts.empty()) {
      return MountText(use, mounts.front()) + " for process " + process + " (" +
             FirstLine(system.Trees().proc + "/" + process + "/comm") + ")";
    }
  }
  return NodeOf(system, facts.name) + " or a part of it is held by another program";
}
