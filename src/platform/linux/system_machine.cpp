#include "platform/system_machine.h"

#include "platform/linux/linux_machine.h"

std::unique_ptr<Platform> SystemMachine(HostSettings settings) {
  return std::make_unique<LinuxMachine>(std::move(settings));
}
