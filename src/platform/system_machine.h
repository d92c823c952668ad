// The machine with the system's own drives; one source per system.
#pragma once

#include <memory>

#include "platform/host/host_machine.h"

std::unique_ptr<Platform> SystemMachine(HostSettings settings);
