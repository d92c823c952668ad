#include "platform/system_machine.h"

#include "platform/simulated/simulated_machine.h"

// Real drives are not reached yet: a simulated machine without any.
std::unique_ptr<Platform> SystemMachine(HostSettings settings) {
  return std::make_unique<SimulatedMachine>(std::move(settings), std::vector<AttachedDrive>());
}
