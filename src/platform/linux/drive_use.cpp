#include "platform/linux/drive_use.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// What is mounted at one of these is the running system, also while none of its files is open.
constexpr std::array<std::string_view, 4> kSystemFolders = {"/", "/home", "/root", "/srv"};
constexpr std::array<std::string_view, 7> kSystemTrees = {"/boot", "/efi", "/etc", "/nix", "/opt", "/usr", "/var"};

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

void TakeGroup(const std::string& word, std::string_view name, std::string& group) {
  if (word.starts_with(name)) {
    group = word.substr(name.size());
  }
}

std::vector<Mount> ReadMounts(const std::string& file) {
  std::vector<Mount> mounts;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    Mount mount;
    std::string word;
    std::istringstream words(line);
    words >> mount.id >> mount.parent >> mount.device >> word >> mount.point;
    while (words >> word && word != "-") {
      TakeGroup(word, "shared:", mount.shared);
      TakeGroup(word, "master:", mount.master);
    }
    words >> mount.type >> mount.source;
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

// The mounts of one namespace, as a process in it sees them.
struct MountTable {
  std::vector<Mount> all;
  std::vector<Mount> of_drive;  // the oldest first

  // Null where the process doesn't see it.
  const Mount* WithId(int id) const {
    const auto found = std::find_if(all.begin(), all.end(), [=](const Mount& mount) { return mount.id == id; });
    return found == all.end() ? nullptr : &*found;
  }
  bool HasMountOn(const Mount& mount) const {
    return std::any_of(all.begin(), all.end(), [&](const Mount& other) { return other.parent == mount.id; });
  }
};

// Whether `mount` is told what becomes of `leader`.
bool Follows(const Mount& mount, const Mount& leader) {
  return !leader.shared.empty() && (mount.shared == leader.shared || mount.master == leader.shared);
}

bool IsSystemFolder(const std::string& folder) {
  return std::find(kSystemFolders.begin(), kSystemFolders.end(), folder) != kSystemFolders.end() ||
         std::any_of(kSystemTrees.begin(), kSystemTrees.end(),
                     [&](std::string_view tree) { return (folder + "/").starts_with(std::string(tree) + "/"); });
}

// A drive and its partitions, under their names, and who has them. Each question is answered with what is in use and
// where, or with an empty text.
class DriveUse {
 public:
  DriveUse(LinuxSystem& system, const DriveFacts& facts) : system_(system), facts_(facts) {
    names_.push_back(facts.name);
    for (const Partition& partition : facts.partitions) {
      names_.push_back(partition.name);
    }
    own_ = Mounts("self");
  }

  const std::vector<Mount>& OwnMounts() const { return own_.of_drive; }
  std::string TextOf(const Mount& mount) const { return MountedNode(mount) + " is mounted on " + mount.point; }

  // Whether a mount is gone by now.
  bool IsGone(const Mount& mount) const { return Mounts("self").WithId(mount.id) == nullptr; }

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

  // A mount in another namespace that would outlive this one's.
  std::string MountElsewhere() const {
    for (const std::string& process : Processes()) {
      const MountTable table = Mounts(process);
      for (const Mount& mount : table.of_drive) {
        if (!GoesWithOwn(mount, table)) {
          return TextOf(mount) + " for " + ProcessText(process);
        }
      }
    }
    return {};
  }

  // An own mount that can't be unmounted.
  std::string MountThatStays() const {
    for (const Mount& mount : own_.of_drive) {
      if (const std::string why = WhyItStays(mount); !why.empty()) {
        return TextOf(mount) + why;
      }
    }
    return {};
  }

  // A program that has the drive or a partition open for writing, which claims nothing either. One that soon ends is
  // waited for. The program of a mounted file system goes with the mount.
  std::string Writer() const {
    std::string writer = OpenIn(&DriveUse::IsWriter);
    for (int i = 0; !writer.empty() && i < kTries; ++i) {
      system_.Pause(kBetweenTries);
      writer = OpenIn(&DriveUse::IsWriter);
    }
    return writer;
  }

  std::string PartitionUser() const { return OpenIn(&DriveUse::IsPartitionUser); }

 private:
  using Test = bool (DriveUse::*)(const std::string& name, const std::string& flags_file) const;

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

  // What a process sees ("self" is this one).
  MountTable Mounts(const std::string& process) const {
    MountTable table{ReadMounts(system_.Trees().proc + "/" + process + "/mountinfo"), {}};
    std::copy_if(table.all.begin(), table.all.end(), std::back_inserter(table.of_drive),
                 [this](const Mount& mount) { return !MountedNode(mount).empty(); });
    return table;
  }

  std::vector<std::string> Processes() const {
    std::vector<std::string> processes = EntriesOf(system_.Trees().proc);
    std::erase_if(processes,
                  [](const std::string& name) { return name.find_first_not_of("0123456789") != std::string::npos; });
    return processes;
  }

  std::string ProcessText(const std::string& process) const {
    return "process " + process + " (" + FirstLine(system_.Trees().proc + "/" + process + "/comm") + ")";
  }

  // Whether a mount that a process sees is an own one, or will be unmounted with an own one: both are copies of the
  // same, at the same place, and what they lie on passes on what is unmounted there. Nothing may lie on it.
  bool GoesWithOwn(const Mount& mount, const MountTable& table) const {
    const Mount* under = table.WithId(mount.parent);
    return own_.WithId(mount.id) != nullptr ||
           std::any_of(own_.of_drive.begin(), own_.of_drive.end(), [&](const Mount& own) {
             const Mount* under_own = own_.WithId(own.parent);
             return own.point == mount.point && Follows(mount, own) && under != nullptr && under_own != nullptr &&
                    Follows(*under, *under_own) && !table.HasMountOn(mount);
           });
  }

  // Why an own mount has to stay; empty where it can be unmounted.
  std::string WhyItStays(const Mount& mount) const {
    if (IsSystemFolder(mount.point)) {
      return " and belongs to the running system";
    }
    if (own_.HasMountOn(mount)) {
      return " and has another file system mounted on it";
    }
    if (system_.Unmount(mount, /*only_ask=*/true) == 0 || errno == EAGAIN) {
      return {};
    }
    return errno == EBUSY ? " and in use" : " and can't be unmounted: " + std::system_category().message(errno);
  }

  bool IsWriter(const std::string& name, const std::string& flags_file) const {
    std::ifstream stream(flags_file);
    unsigned flags = 0;
    for (std::string word; stream >> word && word != "flags:";) {
    }
    stream >> std::oct >> flags;
    const auto serves_it = [&](const Mount& mount) {
      return mount.type.starts_with("fuse") && MountedNode(mount) == NodeOf(system_, name);
    };
    return (flags & O_ACCMODE) != O_RDONLY && std::none_of(own_.of_drive.begin(), own_.of_drive.end(), serves_it);
  }

  bool IsPartitionUser(const std::string& name, const std::string& /*flags_file*/) const { return name != facts_.name; }

  // The first process, of those that this one may look into, that has the drive or a partition open and passes the
  // test.
  std::string OpenIn(Test test) const {
    for (const std::string& process : Processes()) {
      const fs::path folder = fs::path(system_.Trees().proc) / process;
      for (const std::string& descriptor : EntriesOf(folder / "fd")) {
        std::error_code error;
        const std::string target = fs::read_symlink(folder / "fd" / descriptor, error);
        const auto name = std::find_if(names_.begin(), names_.end(),
                                       [&](const std::string& each) { return target == NodeOf(system_, each); });
        if (name != names_.end() && (this->*test)(*name, folder / "fdinfo" / descriptor)) {
          return target + " is open in " + ProcessText(process);
        }
      }
    }
    return {};
  }

  LinuxSystem& system_;
  const DriveFacts& facts_;
  std::vector<std::string> names_;
  MountTable own_;
};

}  // namespace

std::string FreeDrive(LinuxSystem& system, const DriveFacts& facts, std::vector<std::string>& unmounted) {
  const DriveUse use(system, facts);
  for (const auto look : {&DriveUse::Holder, &DriveUse::Swap, &DriveUse::Loop, &DriveUse::MountElsewhere,
                          &DriveUse::MountThatStays, &DriveUse::Writer}) {
    if (std::string why = (use.*look)(); !why.empty()) {
      return why;
    }
  }
  for (const Mount& mount : use.OwnMounts()) {
    // One that was joined to it may have taken it along.
    if (system.Unmount(mount, /*only_ask=*/false) != 0 && !use.IsGone(mount)) {
      return use.TextOf(mount) + " and in use";
    }
    unmounted.push_back(mount.point);
  }
  return unmounted.empty() ? "" : DriveUse(system, facts).Writer();
}

std::string UserOfFreed(LinuxSystem& system, const DriveFacts& facts) {
  const std::string mounted = DriveUse(system, facts).MountElsewhere();
  return mounted.empty() ? NodeOf(system, facts.name) + " or a part of it is held by another program" : mounted;
}

std::string UserOfPartitions(LinuxSystem& system, const DriveFacts& facts) {
  const std::string user = DriveUse(system, facts).PartitionUser();
  return user.empty() ? "a part of " + NodeOf(system, facts.name) + " is in use" : user;
}
