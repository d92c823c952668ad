#include "platform/windows/windows_machine.h"

namespace {

using IsWow64ProcessRoutine = BOOL(WINAPI*)(HANDLE process, BOOL* answer);

}  // namespace

Handle WindowsMachine::StartProcess(const std::string& command) {
  std::string line = command;  // the system may write to it
  STARTUPINFOA startup{};
  static_assert(sizeof startup == (sizeof(void*) == 8 ? 104 : 68));
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_SHOW;
  PROCESS_INFORMATION started{};
  constexpr BOOL kInheritHandles = TRUE;
  if (!Succeeded(calls_.CreateProcessA(nullptr, line.data(), nullptr, nullptr, kInheritHandles, NORMAL_PRIORITY_CLASS,
                                       nullptr, nullptr, &startup, &started))) {
    return kInvalidHandle;
  }
  const Handle process = HandleOf(started.hProcess);
  threads_[process] = started.hThread;
  return process;
}

bool WindowsMachine::QueryExitCode(Handle process, std::uint32_t& code) {
  DWORD exit_code = 0;
  const bool known = Succeeded(calls_.GetExitCodeProcess(SystemHandle(process), &exit_code));
  code = exit_code;
  return known;
}

bool WindowsMachine::BindManagement() { return management_.Bind(); }

std::vector<std::vector<std::string>> WindowsMachine::QueryManagement(const std::string& query, bool forward_only,
                                                                      const std::vector<std::string>& properties) {
  return management_.Query(query, forward_only, properties);
}

bool WindowsMachine::ReadRegistry(const std::string& path, std::string& value) {
  return Outcome(management_.ReadRegistry(path, value) ? kErrorNone : kErrorFileNotFound);
}

bool WindowsMachine::IsWow64() {
  HMODULE kernel = calls_.GetModuleHandleA("kernel32");
  const auto is_wow64 = RoutineOf<IsWow64ProcessRoutine>(calls_, kernel, "IsWow64Process");
  BOOL answer = FALSE;
  return is_wow64 != nullptr && is_wow64(calls_.GetCurrentProcess(), &answer) != 0 && answer != 0;
}
