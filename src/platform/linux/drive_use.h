// Who uses a drive: mounts, swap, and other devices that stand on it. A drive is only written when nobody does.
#pragma once

#include <string>

#include "platform/linux/drive_facts.h"

// Makes the file systems let go of the drive: every mount of it and of its partitions is unmounted. Where one can't be,
// or the running system, swap or another device stands on the drive, nothing is unmounted, and the answer is what is in
// use and where; empty when the drive is free.
std::string FreeDrive(LinuxSystem& system, const DriveFacts& facts);

// Where a drive that FreeDrive has freed is in use nonetheless, for a message.
std::string UserElsewhere(const LinuxSystem& system, const DriveFacts& facts);
