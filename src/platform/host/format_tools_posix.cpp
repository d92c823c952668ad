#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/byte_order.h"
#include "platform/exfat_checksum.h"
#include "platform/host/code_page.h"
#include "platform/host/descriptor.h"
#include "platform/host/format_tools.h"

namespace {

// The tool gets what it formats as its standard input, so that it needs no name of its own.
constexpr const char* kTarget = "/proc/self/fd/0";

std::vector<std::string> CommandOf(const FormatJob& job) {
  std::vector<std::string> command = {"mkfs.exfat"};
  if (job.file_system != "EXFAT") {
    // By force, since a plain file is no device to it.
    command = {"mkntfs",
               "-Q",
               "-F",
               "-H",
               std::to_string(job.heads),
               "-S",
               std::to_string(job.sectors_per_track),
               "-p",
               std::to_string(job.first_sector)};
  }
  if (!job.label.empty()) {
    command.insert(command.end(), {"-L", FromCodePage(job.label)});
  }
  command.emplace_back(kTarget);
  return command;
}

bool IsProgram(const std::string& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(file.c_str(), X_OK) == 0;
}

// The folders in which tools are looked for: those of PATH, and behind them the system's where PATH names its sister
// for everybody's programs, as that of a user who isn't root does.
std::string ToolFolders() {
  const char* path = std::getenv("PATH");
  const std::string folders = path == nullptr ? "/usr/bin:/bin" : path;
  const std::string marked = ":" + folders + ":";
  const bool usual = marked.find(":/usr/bin:") != std::string::npos || marked.find(":/bin:") != std::string::npos;
  return usual ? folders + ":/usr/sbin:/sbin" : folders;
}

// The tool's path; empty where there is none.
std::string FindTool(const std::string& name) {
  const std::string folders = ToolFolders();
  for (std::size_t at = 0; at < folders.size();) {
    const std::size_t end = std::min(folders.find(':', at), folders.size());
    std::string file = folders.substr(at, end - at) + "/" + name;
    if (folders[at] == '/' && IsProgram(file)) {
      return file;
    }
    at = end + 1;
  }
  return {};
}

// This process's environment, with a locale in which labels are UTF-8 and messages don't differ.
std::vector<std::string> ToolEnvironment() {
  constexpr std::string_view kLocale = "LC_ALL=";
  std::vector<std::string> variables = {std::string(kLocale) + "C.UTF-8"};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with(kLocale)) {
      variables.emplace_back(*variable);
    }
  }
  return variables;
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// What the new process needs, made beforehand: between fork and exec only plain system calls are safe. The descriptors
// lie above the standard ones.
struct Start {
  const char* tool;
  char* const* arguments;
  char* const* environment;
  int target;
  int nothing;  // /dev/null
  pid_t parent;
};

[[noreturn]] void BecomeTool(const Start& start) {
  constexpr int kNoTool = 127;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() == start.parent && dup2(start.target, STDIN_FILENO) >= 0 && dup2(start.nothing, STDOUT_FILENO) >= 0 &&
      dup2(start.nothing, STDERR_FILENO) >= 0) {
    close_range(STDERR_FILENO + 1, ~0U, 0);
    signal(SIGPIPE, SIG_DFL);
    execve(start.tool, start.arguments, start.environment);
  }
  _exit(kNoTool);
}

// Waits for a child; true when it ended with exit status 0.
bool EndedWell(pid_t child) {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(child, &status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool RunTool(int target, std::vector<std::string> command) {
  const std::string tool = FindTool(command[0]);
  const int nothing = OpenDescriptor("/dev/null", O_RDWR);
  if (tool.empty() || nothing < 0) {
    close(nothing);
    return false;
  }
  std::vector<std::string> variables = ToolEnvironment();
  const std::vector<char*> arguments = PointersTo(command);
  const std::vector<char*> environment = PointersTo(variables);
  signal(SIGCHLD, SIG_DFL);  // a process that was started with it ignored could not wait
  const Start start{tool.c_str(), arguments.data(), environment.data(), target, nothing, getpid()};
  const pid_t child = fork();
  if (child == 0) {
    BecomeTool(start);
  }
  close(nothing);
  return child > 0 && EndedWell(child);
}

// The tool takes an exFAT volume in a file to begin at the start of a drive.
bool SetExfatPlace(int descriptor, std::uint64_t first_sector) {
  constexpr std::size_t kPartitionOffset = 0x40;
  constexpr std::size_t kAlignment = 4096;  // for a descriptor that goes past the system's cache
  alignas(kAlignment) std::array<std::uint8_t, 2 * kExfatRegionBytes> regions{};
  if (pread(descriptor, regions.data(), regions.size(), 0) != static_cast<ssize_t>(regions.size())) {
    return false;
  }
  for (const std::size_t start : {std::size_t{0}, kExfatRegionBytes}) {
    StoreLittle(&regions[start + kPartitionOffset], first_sector, sizeof first_sector);
    StoreExfatChecksum(ByteSpan(regions).subspan(start, kExfatRegionBytes));
  }
  return pwrite(descriptor, regions.data(), regions.size(), 0) == static_cast<ssize_t>(regions.size());
}

}  // namespace

void SetGeometry(FormatJob& job, ConstByteSpan sector) {
  constexpr std::size_t kTable = 0x1BE;
  constexpr std::size_t kEntryBytes = 16;
  constexpr std::size_t kTableEnd = kTable + 4 * kEntryBytes;
  constexpr unsigned kSectorBits = 0x3F;
  for (std::size_t at = kTable; at < kTableEnd && kTableEnd <= sector.size(); at += kEntryBytes) {
    const ConstByteSpan entry = sector.subspan(at, kEntryBytes);
    const std::uint32_t last_head = entry[5];
    const std::uint32_t last_sector = entry[6] & kSectorBits;
    if (LoadLittle(&entry[8], 4) == job.first_sector && last_head > 0 && last_head < UINT8_MAX && last_sector > 0) {
      job.heads = last_head + 1;
      job.sectors_per_track = last_sector;
      return;
    }
  }
}

bool MakeFileSystem(int descriptor, const FormatJob& job) {
  if (!RunTool(descriptor, CommandOf(job))) {
    return false;
  }
  return job.file_system != "EXFAT" || SetExfatPlace(descriptor, job.first_sector);
}
