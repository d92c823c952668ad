// What the kernel tells of a drive under sysfs. Nothing here opens a device.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/linux_system.h"

inline constexpr int kDriveNumbers = 26;  // /dev/sda is 0, /dev/sdz is 25

struct Partition {
  std::uint32_t number = 0;
  std::string name;            // "sdb1"
  std::string device;          // "8:17"
  std::uint64_t position = 0;  // bytes, from the start of the drive
  std::uint64_t bytes = 0;
};

struct DriveFacts {
  std::string name;                // "sdb"
  std::string device;              // "8:16"
  std::uint64_t bytes = 0;         // 0 without a medium
  std::uint32_t sector_bytes = 0;  // above 0
  bool removable = false;
  bool read_only = false;
  bool usb = false;
  std::string model;                  // vendor, product and revision
  std::string serial;                 // empty where it has none
  std::string sequence;               // another one for each device and each medium; empty on an old kernel
  std::vector<Partition> partitions;  // in the order of their numbers
};

// Nothing where there is no such drive, or one that the kernel has not finished with.
std::optional<DriveFacts> ReadDriveFacts(const LinuxSystem& system, int number);
// A drive's sequence as it is now.
std::string ReadSequence(const LinuxSystem& system, const std::string& name);
// Whether both are the same drive with the same medium. What has been taken out and put in again counts as another.
bool SameDevice(const DriveFacts& before, const DriveFacts& now);
// Model, serial number and size, for a message.
std::string DescriptionOf(const DriveFacts& facts);
// The path of the drive's or a partition's device node.
std::string NodeOf(const LinuxSystem& system, const std::string& name);
// The first line of a file; empty where it can't be read.
std::string FirstLine(const std::string& file);
// A device number as the kernel writes it, "8:16".
std::string DeviceText(dev_t device);
