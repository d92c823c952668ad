#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <algorithm>
#include <array>

#include "platform/host/code_page.h"
#include "platform/host/host_options.h"
#include "platform/host/host_system.h"

namespace {

// Ticks of a FILETIME from 1601 to 1970, and per microsecond.
constexpr std::int64_t kEpochTicks = 116444736000000000;
constexpr std::int64_t kTicksPerMicrosecond = 10;

std::string Utf8OfWide(const wchar_t* text) {
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), bytes, nullptr, nullptr);
  utf8.pop_back();  // the NUL
  return utf8;
}

SYSTEMTIME LocalTime(std::chrono::system_clock::time_point time) {
  using std::chrono::microseconds;
  const std::int64_t ticks =
      kEpochTicks + std::chrono::duration_cast<microseconds>(time.time_since_epoch()).count() * kTicksPerMicrosecond;
  const FILETIME file_time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME universal{};
  SYSTEMTIME local{};
  FileTimeToSystemTime(&file_time, &universal);
  SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local);
  return local;
}

}  // namespace

// File names may have characters that the ANSI line has lost.
std::vector<std::string> HostArguments(int /*argc*/, char** /*argv*/) {
  std::vector<std::string> arguments;
  for (LineArgument& argument : SplitCommandLine(Utf8OfWide(GetCommandLineW()))) {
    arguments.push_back(std::move(argument.text));
  }
  arguments.erase(arguments.begin());
  return arguments;
}

std::string CommandLineBehind(const std::vector<std::string>& /*arguments*/, std::size_t host_arguments) {
  const std::string line = GetCommandLineA();
  return line.substr(SplitCommandLine(line)[host_arguments].end);  // entry 0 is the program's name
}

// The system has made an ANSI line of it: one byte a character already.
std::string TextOfLine(const std::string& line) { return line; }

std::string PartOfLine(const std::string& line, std::size_t first, std::size_t characters) {
  return line.substr(std::min(first, line.size()), characters);
}

void IgnoreWriteSignals() {}

std::string SystemProgramFolder() {
  std::array<char, 32768> path{};  // the longest that the system has, with its NUL
  const DWORD length = GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
  const std::string program(path.data(), length);
  return program.substr(0, program.find_last_of('\\'));
}

std::string SystemPathBesideProgram(const std::string& name) { return SystemProgramFolder() + "\\" + name; }

std::uint32_t ProcessId() { return GetCurrentProcessId(); }

ErrorCode WriteStandardOutput(std::string_view text) {
  HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  do {
    DWORD written = 0;
    if (WriteFile(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) == 0) {
      return static_cast<ErrorCode>(GetLastError());
    }
    if (written == 0 && !text.empty()) {
      return kErrorIoDevice;
    }
    text.remove_prefix(written);
  } while (!text.empty());
  return kErrorNone;
}

std::string LocalDateTime(std::chrono::system_clock::time_point time) {
  const SYSTEMTIME local = LocalTime(time);
  std::array<char, 80> date{};
  std::array<char, 80> clock{};
  GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &local, nullptr, date.data(), static_cast<int>(date.size()));
  GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &local, nullptr, clock.data(), static_cast<int>(clock.size()));
  return std::string(date.data()) + " " + clock.data();
}

int AskUser(const std::string& text, int buttons, const std::string& title, bool /*printed*/) {
  return MessageBoxA(nullptr, text.c_str(), title.c_str(), static_cast<UINT>(buttons));
}

void EndProcess(std::int32_t level) { ExitProcess(static_cast<UINT>(level)); }

void SystemSuppressErrorBoxes() { SetErrorMode(SEM_FAILCRITICALERRORS); }

void SystemCloseShellDialog(const std::string& title) {
  constexpr const char* kDialogClass = "#32770";
  HWND window = FindWindowA(kDialogClass, title.c_str());
  if (window != nullptr) {
    PostMessageA(window, WM_CLOSE, 0, 0);
  }
}
