#include "platform/linux/drive_facts.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kBlockBytes = 512;  // the unit of lengths under sysfs, whatever the drive's sectors are

std::uint64_t NumberIn(const std::string& file) {
  const std::string line = FirstLine(file);
  std::uint64_t number = 0;
  std::from_chars(line.data(), line.data() + line.size(), number);
  return number;
}

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// The folder of the USB device that a device belongs to; empty for one on another bus.
fs::path UsbFolder(const fs::path& device) {
  std::error_code error;
  for (fs::path folder = fs::canonical(device, error); !error && folder.has_relative_path();
       folder = folder.parent_path()) {
    if (fs::exists(folder / "idVendor", error)) {
      return folder;
    }
  }
  return {};
}

// The page with the unit serial number, as the kernel has kept it: four bytes, then the text.
std::string SerialOfPage(const std::string& file) {
  constexpr std::size_t kHeaderBytes = 4;
  std::ifstream stream(file, std::ios::binary);
  const std::string page((std::istreambuf_iterator<char>(stream)), {});
  std::string text = page.size() > kHeaderBytes ? page.substr(kHeaderBytes) : "";
  std::erase_if(text, [](char character) { return character < ' '; });
  return Trimmed(text);
}

std::vector<Partition> ReadPartitions(const fs::path& folder) {
  std::vector<Partition> partitions;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const std::string path = entry->path().native();
    const bool named_after_drive = entry->path().filename().native().starts_with(folder.filename().native());
    const auto number = static_cast<std::uint32_t>(named_after_drive ? NumberIn(path + "/partition") : 0);
    if (number != 0) {
      partitions.push_back({number, entry->path().filename(), FirstLine(path + "/dev"),
                            NumberIn(path + "/start") * kBlockBytes, NumberIn(path + "/size") * kBlockBytes});
    }
  }
  std::sort(partitions.begin(), partitions.end(),
            [](const Partition& left, const Partition& right) { return left.number < right.number; });
  return partitions;
}

}  // namespace

std::string FirstLine(const std::string& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

std::string DeviceText(dev_t device) { return std::to_string(major(device)) + ":" + std::to_string(minor(device)); }

std::string NodeOf(const LinuxSystem& system, const std::string& name) { return system.Trees().dev + "/" + name; }

std::optional<DriveFacts> ReadDriveFacts(const LinuxSystem& system, int number) {
  if (number < 0 || number >= kDriveNumbers) {
    return std::nullopt;
  }
  DriveFacts facts;
  facts.name = std::string("sd") + static_cast<char>('a' + number);
  const std::string folder = system.Trees().sys + "/block/" + facts.name;
  facts.device = FirstLine(folder + "/dev");
  facts.sector_bytes = static_cast<std::uint32_t>(NumberIn(folder + "/queue/logical_block_size"));
  if (facts.device.empty() || facts.sector_bytes == 0) {
    return std::nullopt;
  }
  facts.bytes = NumberIn(folder + "/size") * kBlockBytes;
  facts.removable = NumberIn(folder + "/removable") != 0;
  facts.read_only = NumberIn(folder + "/ro") != 0;
  facts.sequence = ReadSequence(system, facts.name);
  for (const char* part : {"vendor", "model", "rev"}) {
    facts.model = Trimmed(facts.model + " " + Trimmed(FirstLine(folder + "/device/" + part)));
  }
  const fs::path usb = UsbFolder(folder + "/device");
  facts.usb = !usb.empty();
  facts.serial = facts.usb ? Trimmed(FirstLine(usb / "serial")) : SerialOfPage(folder + "/device/vpd_pg80");
  facts.partitions = ReadPartitions(folder);
  return facts;
}

std::string ReadSequence(const LinuxSystem& system, const std::string& name) {
  return FirstLine(system.Trees().sys + "/block/" + name + "/diskseq");
}

bool SameDevice(const DriveFacts& before, const DriveFacts& now) {
  return before.sequence == now.sequence && before.model == now.model && before.serial == now.serial &&
         before.bytes == now.bytes;
}

std::string DescriptionOf(const DriveFacts& facts) {
  return facts.model + ", " + (facts.serial.empty() ? "no serial number" : "serial number " + facts.serial) + ", " +
         std::to_string(facts.bytes) + " bytes";
}
