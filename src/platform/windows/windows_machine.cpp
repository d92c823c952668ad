#include "platform/windows/windows_machine.h"

#include <cstdlib>

void WindowsMachine::SuppressErrorBoxes() { calls_.SetErrorMode(SEM_FAILCRITICALERRORS); }

void WindowsMachine::Exit(std::int32_t level) {
  calls_.ExitProcess(static_cast<UINT>(level));
  std::abort();  // never reached: a pointer can't say that its routine doesn't return
}

SystemVersion WindowsMachine::Version() {
  OSVERSIONINFOA version{};
  static_assert(sizeof version == 148);
  version.dwOSVersionInfoSize = sizeof version;
  if (!Succeeded(calls_.GetVersionExA(&version))) {
    return {};
  }
  return {version.dwPlatformId, version.dwMajorVersion, version.dwMinorVersion};
}

Handle WindowsMachine::StandardOutput() { return HandleOf(calls_.GetStdHandle(STD_OUTPUT_HANDLE)); }

bool WindowsMachine::WriteText(Handle output, std::string_view text) {
  do {
    DWORD written = 0;
    if (!Succeeded(calls_.WriteFile(SystemHandle(output), text.data(), static_cast<DWORD>(text.size()), &written,
                                    /*overlapped*/ nullptr))) {
      return false;
    }
    if (written == 0 && !text.empty()) {
      return Outcome(kErrorIoDevice);  // a pipe that doesn't wait may be full
    }
    text.remove_prefix(written);
  } while (!text.empty());
  return true;
}

int WindowsMachine::ShowBox(std::string_view text, int buttons, std::string_view title) {
  return calls_.MessageBoxA(nullptr, std::string(text).c_str(), std::string(title).c_str(), static_cast<UINT>(buttons));
}

void WindowsMachine::CloseShellDialog(std::string_view title) {
  constexpr const char* kDialogClass = "#32770";
  HWND window = calls_.FindWindowA(kDialogClass, std::string(title).c_str());
  if (window != nullptr) {
    calls_.PostMessageA(window, WM_CLOSE, 0, 0);
  }
}

void WindowsMachine::Wait(std::uint32_t milliseconds) { calls_.Sleep(milliseconds); }

std::uint32_t WindowsMachine::TickCount() { return calls_.GetTickCount(); }

std::string WindowsMachine::ErrorMessage(std::uint32_t code, const MessageMode& mode) {
  std::string text(mode.characters, '\0');
  text.resize(calls_.FormatMessageA(mode.flags, nullptr, code, 0, text.data(), mode.characters, nullptr));
  return text;
}
