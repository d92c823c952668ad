#include "platform/windows/windows_machine.h"

namespace {

constexpr const wchar_t* kManagement = L"winmgmts:{impersonationLevel=impersonate}!\\\\.\\root\\cimv2";
constexpr LONG kReturnAtOnceForwardOnly = 48;  // wbemFlagReturnImmediately and wbemFlagForwardOnly

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

bool WindowsMachine::BindManagement() {
  calls_.CoInitialize(nullptr);  // where that fails, so does the next call
  management_ = {};
  return SUCCEEDED(calls_.CoGetObject(kManagement, nullptr, IID_IDispatch, management_.UntypedPlace())) && management_;
}

std::vector<std::vector<std::string>> WindowsMachine::QueryManagement(const std::string& query, bool forward_only,
                                                                      const std::vector<std::string>& properties) {
  std::vector<std::vector<std::string>> rows;
  std::vector<Variant> arguments;
  arguments.emplace_back(WideText(query));
  if (forward_only) {
    arguments.emplace_back(std::wstring(L"WQL"));
    arguments.emplace_back(kReturnAtOnceForwardOnly);
  }
  Variant result;
  if (!management_ || !CallMember(*management_, L"ExecQuery", std::move(arguments), result)) {
    return rows;
  }
  const auto found = result.Object<IDispatch>(IID_IDispatch);
  if (!found) {
    return rows;
  }
  for (const ComPointer<IDispatch>& object : ObjectsOf(*found)) {
    std::vector<std::string>& row = rows.emplace_back();
    for (const std::string& property : properties) {
      Variant value;
      row.push_back(CallMember(*object, WideText(property), {}, value) ? value.Text() : "");
    }
  }
  return rows;
}

bool WindowsMachine::ReadRegistry(const std::string& path, std::string& value) {
  CLSID shell{};
  if (!shell_ && SUCCEEDED(calls_.CLSIDFromProgID(L"WScript.Shell", &shell))) {
    calls_.CoCreateInstance(shell, nullptr, CLSCTX_SERVER, IID_IDispatch, shell_.UntypedPlace());
  }
  std::vector<Variant> arguments;
  arguments.emplace_back(WideText(path));
  Variant result;
  if (!shell_ || !CallMember(*shell_, L"RegRead", std::move(arguments), result)) {
    return Outcome(kErrorFileNotFound);
  }
  value = result.Text();
  return Outcome(kErrorNone);
}

bool WindowsMachine::IsWow64() {
  HMODULE kernel = calls_.GetModuleHandleA("kernel32");
  const auto is_wow64 = RoutineOf<IsWow64ProcessRoutine>(calls_, kernel, "IsWow64Process");
  BOOL answer = FALSE;
  return is_wow64 != nullptr && is_wow64(calls_.GetCurrentProcess(), &answer) != 0 && answer != 0;
}
