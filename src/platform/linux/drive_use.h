// Who uses a drive: mounts, swap, and other devices that stand on it. A drive is only written when nobody does.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/drive_facts.h"

// Makes the file systems let go of the drive: every mount of it and of its partitions is unmounted. Where one can't be
// (the running system, open files, another mount on it, a mount in another namespace that would stay), or swap, another
// device or a program that writes stands on the drive, nothing is unmounted, and the answer is what is in use and
// where; empty when the drive is free. Everything is asked for before, but it may change: `unmounted` gets the folders
// that have been unmounted whatever the answer.
std::string FreeDrive(LinuxSystem& system, const DriveFacts& facts, std::vector<std::string>& unmounted);

// Where a drive that FreeDrive has freed is in use nonetheless, for a message.
std::string UserOfFreed(LinuxSystem& system, const DriveFacts& facts);
// Who keeps the kernel from taking a new partition table, for a message.
std::string UserOfPartitions(LinuxSystem& system, const DriveFacts& facts);
