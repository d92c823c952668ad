// SCSI commands through the kernel's pass-through.
#pragma once

#include "platform/linux/linux_system.h"
#include "platform/platform.h"

// As ScsiCommand of the port; kErrorIoDevice where the drive refuses the command or doesn't answer in time.
ErrorCode SendScsiCommand(LinuxSystem& system, int descriptor, ConstByteSpan cdb, ByteSpan data,
                          std::uint32_t& returned);
