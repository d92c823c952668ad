#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "platform/host/code_page.h"
#include "platform/host/host_machine.h"
#include "platform/host/host_options.h"
#include "platform/host/host_system.h"

namespace {

// The longest line that can still be an answer.
constexpr std::size_t kAnswerLimit = 64;
constexpr std::int32_t kHighestExitStatus = 255;

// Writes everything, in one call unless the system takes it in parts; 0, or errno. An empty text is written as well,
// since it tells whether the descriptor is open.
int WriteAll(int descriptor, std::string_view text) {
  do {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return errno;
    }
    text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  } while (!text.empty());
  return 0;
}

// A line of standard input, byte by byte, so that what is behind it is left for the next box.
std::string ReadAnswer() {
  std::string line;
  char byte = 0;
  while (true) {
    const ssize_t got = read(STDIN_FILENO, &byte, 1);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0 || byte == '\n') {
      return line;
    }
    if (line.size() < kAnswerLimit) {
      line += byte;
    }
  }
}

std::string_view Choices(int buttons) {
  switch (buttons & kBoxButtonMask) {
    case kBoxOk:
      return "[OK] ";
    case kBoxYesNoCancel:
      return "[Yes/No/Cancel] ";
    default:
      return "[OK/Cancel] ";
  }
}

// Puts the question to the controlling terminal, if there is one.
void ShowQuestion(const std::string& text, int buttons, bool printed) {
  // Only of its controlling terminal a process may ask for the foreground group.
  const bool choices_only = printed && tcgetpgrp(STDOUT_FILENO) >= 0;
  const int terminal = open("/dev/tty", O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) {
    return;
  }
  std::string question = choices_only ? "" : FromCodePage(text);
  if (!choices_only && !text.starts_with("\r\n")) {
    question.insert(0, "\r\n");  // the line that stands on the terminal may not be at its end
  }
  question.append("\r\n").append(Choices(buttons));
  WriteAll(terminal, question);  // a terminal that takes nothing is as good as none
  close(terminal);
}

}  // namespace

std::vector<std::string> HostArguments(int argc, char** argv) { return {argv + (argc > 0 ? 1 : 0), argv + argc}; }

std::string CommandLineBehind(const std::vector<std::string>& arguments, std::size_t host_arguments) {
  return JoinCommandLine(arguments, host_arguments);
}

std::string TextOfLine(const std::string& line) { return ToCodePage(line); }

std::string PartOfLine(const std::string& line, std::size_t first, std::size_t characters) {
  return std::string(BytesBehind(line, first, characters));
}

void IgnoreWriteSignals() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

std::string SystemProgramFolder() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "." : program.parent_path().native();
}

std::string SystemPathBesideProgram(const std::string& name) { return SystemProgramFolder() + "/" + name; }

std::uint32_t ProcessId() { return static_cast<std::uint32_t>(getpid()); }

ErrorCode WriteStandardOutput(std::string_view text) {
  switch (WriteAll(STDOUT_FILENO, FromCodePage(text))) {
    case 0:
    case EPIPE:  // nobody reads any more: only what is printed is lost
      return kErrorNone;
    case EBADF:
      return kErrorInvalidHandle;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kErrorDiskFull;
    default:
      return kErrorIoDevice;
  }
}

std::string LocalDateTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::string text(sizeof "yyyy-mm-dd hh:mm:ss", '\0');
  text.resize(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts));
  return text;
}

int AskUser(const std::string& text, int buttons, const std::string& /*title*/, bool printed) {
  ShowQuestion(text, buttons, printed);
  if ((buttons & kBoxButtonMask) == kBoxOk && isatty(STDIN_FILENO) == 0) {
    return kAnswerOk;
  }
  return BoxAnswer(ReadAnswer(), buttons);
}

void EndProcess(std::int32_t level) { std::exit(level > kHighestExitStatus ? kHighestExitStatus : level); }

void SystemSuppressErrorBoxes() {}

void SystemCloseShellDialog(const std::string& /*title*/) {}
