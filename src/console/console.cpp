#include "console/console.h"

#include <cstdlib>

#include "cli/option_model.h"
#include "disk/handles.h"

bool ConsoleWrite(std::string_view text) {
  StdOutHandle = port->StandardOutput();
  return port->WriteText(StdOutHandle, text);
}

void Diagnose(std::string_view text) {
  if (OptDebug) {
    ConsoleWrite(text);
  }
}

void DebugWrite(std::string_view text) { Diagnose("\r\n" + std::string(text)); }

void DebugLog(std::string_view text) {
  if (OptDebug) {
    DebugWrite(port->DateTimeText() + std::string(text));
  }
}

int ReportBox(std::string_view message, int buttons, std::string_view title) {
  const std::string line_break = message.starts_with("\r\n") ? "" : "\r\n";
  ConsoleWrite(line_break + std::string(message));
  return OptSure ? 0 : port->ShowBox(message, buttons, title);
}

bool Confirmed(std::string_view question, int icon, std::string_view title) {
  return OptSure || port->ShowBox(question, kBoxOkCancel | icon, title) == kAnswerOk;
}

void CloseShellPopups() {
  constexpr std::uint32_t kBetweenPasses = 1000;
  for (int pass = 0; pass < 2; ++pass) {
    if (pass > 0) {
      port->Wait(kBetweenPasses);
    }
    for (const std::string_view title : {"Microsoft Windows", "Disk is not formatted", "AutoPlay"}) {
      port->CloseShellDialog(title);
    }
  }
}

void MyExitProcess(std::int16_t level) {
  constexpr std::uint32_t kFailureWait = 1000;
  CloseShellPopups();
  if (level != kLevelOk) {
    port->Wait(kFailureWait);
  }
  if (!NoConsole) {
    ConsoleWrite("\r\n\r\n");
  }
  port->Close(StdOutHandle);
  port->Close(FileHandle);
  MyCloseHandle(DiskHandle);
  port->Exit(NoConsole ? std::int16_t{kLevelOk} : level);
  std::abort();  // never reached: the compiler doesn't believe a virtual routine that it won't come back
}
