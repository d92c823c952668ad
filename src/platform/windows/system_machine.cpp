#include "platform/system_machine.h"

#include "platform/windows/windows_machine.h"

std::unique_ptr<Platform> SystemMachine(HostSettings settings) {
  return std::make_unique<WindowsMachine>(std::move(settings));
}
