#include "support/run.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace {

struct Pipe {
  int read_end = -1;
  int write_end = -1;
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe failed");
    }
    read_end = ends[0];
    write_end = ends[1];
  }
};

void CloseEnd(int& end) {
  if (end >= 0) {
    close(end);
  }
  end = -1;
}

// Takes what has come over a pipe; closes it at its end.
void Drain(int& end, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t got = read(end, buffer.data(), buffer.size());
  if (got > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(got));
  } else {
    CloseEnd(end);
  }
}

}  // namespace

RunResult RunCommand(const std::vector<std::string>& command, std::string_view input) {
  signal(SIGPIPE, SIG_IGN);
  Pipe in;
  Pipe out;
  Pipe err;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.read_end, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write_end, 1);
  posix_spawn_file_actions_adddup2(&actions, err.write_end, 2);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  std::vector<char*> argv;
  for (const std::string& argument : command) {
    argv.push_back(const_cast<char*>(argument.c_str()));  // the C interface takes them unchanged
  }
  argv.push_back(nullptr);
  pid_t child = 0;
  const int failed = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  CloseEnd(in.read_end);
  CloseEnd(out.write_end);
  CloseEnd(err.write_end);
  if (failed != 0) {
    throw std::runtime_error("cannot start " + command[0]);
  }
  RunResult result;
  while (!input.empty()) {
    const ssize_t sent = write(in.write_end, input.data(), input.size());
    if (sent <= 0) {
      break;
    }
    input.remove_prefix(static_cast<std::size_t>(sent));
  }
  CloseEnd(in.write_end);
  while (out.read_end >= 0 || err.read_end >= 0) {
    std::array<pollfd, 2> ends{pollfd{out.read_end, POLLIN, 0}, pollfd{err.read_end, POLLIN, 0}};
    poll(ends.data(), ends.size(), -1);
    if (ends[0].revents != 0) {
      Drain(out.read_end, result.out);
    }
    if (ends[1].revents != 0) {
      Drain(err.read_end, result.err);
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

RunResult RunKorventix(std::vector<std::string> arguments, std::string_view input) {
  arguments.insert(arguments.begin(), KORVENTIX_BINARY);
  return RunCommand(arguments, input);
}

ScratchFolder::ScratchFolder(const std::filesystem::path& parent) {
  std::string name = (parent / "korventix-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make a scratch folder");
  }
  path_ = name;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;  // a folder that stays behind fails no test
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadBytes(const std::string& file, std::uint64_t position, std::size_t bytes) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    throw std::runtime_error("cannot open " + file);
  }
  std::string result(bytes, '\0');
  const ssize_t got = pread(fd, result.data(), bytes, static_cast<off_t>(position));
  close(fd);
  result.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return result;
}

void WriteBytes(const std::string& file, std::uint64_t position, std::string_view bytes) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  const bool written = fd >= 0 && pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(position)) ==
                                      static_cast<ssize_t>(bytes.size());
  close(fd);
  if (!written) {
    throw std::runtime_error("cannot write " + file);
  }
}

void SetFileSize(const std::string& file, std::uint64_t bytes) {
  WriteBytes(file, 0, "");
  std::filesystem::resize_file(file, bytes);
}

void ExtractBytes(const std::string& file, std::uint64_t position, std::uint64_t bytes, const std::string& target) {
  SetFileSize(target, bytes);
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  const auto end = static_cast<off_t>(position + bytes);
  for (off_t at = static_cast<off_t>(position); at < end;) {
    const off_t data = lseek(fd, at, SEEK_DATA);
    if (data < 0 || data >= end) {
      break;
    }
    constexpr off_t kMost = 1 << 20;
    const off_t stop = std::min({lseek(fd, data, SEEK_HOLE), end, data + kMost});
    const auto count = static_cast<std::size_t>(stop - data);
    WriteBytes(target, static_cast<std::uint64_t>(data) - position,
               ReadBytes(file, static_cast<std::uint64_t>(data), count));
    at = stop;
  }
  close(fd);
}

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t end = std::min(line.find(' ', at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

RunResult RunOnDrive(const std::string& image, const std::string& drive_options, const std::string& line,
                     std::string_view input) {
  std::vector<std::string> arguments = Words(line);
  const std::string drive = "1=" + image + (drive_options.empty() ? "" : "," + drive_options);
  arguments.insert(arguments.begin(), {"--drive", drive, "--no-wait"});
  return RunKorventix(arguments, input);
}
