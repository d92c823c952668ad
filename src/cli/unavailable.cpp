#include "cli/unavailable.h"

#include <string>

#include "console/console.h"

void EndUnavailable(std::string_view what) {
  ConsoleWrite("\r\n" + std::string(what) + " is not available in this version!");
  MyExitProcess(kLevelUnknown);
}
