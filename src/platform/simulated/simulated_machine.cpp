#include "platform/simulated/simulated_machine.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/simulated/format_volume.h"
#include "platform/simulated/volume_table.h"

namespace {

constexpr std::string_view kDevicePrefix = "\\\\.\\";
constexpr std::string_view kDriveName = "PhysicalDrive";

// The letter of "X:" or "X:\"; 0 for any other text.
char LetterOf(std::string_view name, std::string_view behind_letter) {
  return name.size() == 1 + behind_letter.size() && name.substr(1) == behind_letter ? name[0] : '\0';
}

}  // namespace

SimulatedMachine::SimulatedMachine(HostSettings settings, std::vector<AttachedDrive> drives)
    : HostMachine(std::move(settings)) {
  for (AttachedDrive& attached : drives) {
    drives_[attached.number] = std::move(attached.drive);
  }
  for (const auto& [number, drive] : drives_) {
    volumes_.Refresh(number, *drive);
  }
}

SimulatedDrive* SimulatedMachine::DriveOf(int number) {
  const auto found = drives_.find(number);
  return found == drives_.end() ? nullptr : found->second.get();
}

void SimulatedMachine::Exit(std::int32_t level) {
  while (!items_.empty()) {
    SimulatedMachine::Close(items_.begin()->first);
  }
  HostMachine::Exit(level);
}

bool SimulatedMachine::FindItem(const std::string& path, OpenItem& item) {
  std::string_view name = path;
  const bool device = name.starts_with(kDevicePrefix);
  name.remove_prefix(device ? kDevicePrefix.size() : 0);
  if (device && name.starts_with(kDriveName)) {
    name.remove_prefix(kDriveName.size());
    for (const auto& [number, drive] : drives_) {
      if (std::to_string(number) == name) {
        item.number = number;
        item.drive = drive.get();
        item.bytes = drive->Size();
        return true;
      }
    }
    return false;
  }
  const Volume* volume = device ? volumes_.WithLetter(LetterOf(name, ":")) : volumes_.WithName(name);
  if (volume != nullptr) {
    item.number = volume->drive;
    item.drive = DriveOf(volume->drive);
    item.volume = volume->index;
    item.start = volume->position;
    item.bytes = volume->bytes;
  }
  return volume != nullptr;
}

Handle SimulatedMachine::Open(const std::string& path, const OpenMode& mode) {
  OpenItem item;
  item.access = mode.access;
  if (!Outcome(FindItem(path, item) ? kErrorNone : kErrorFileNotFound)) {
    return kInvalidHandle;
  }
  const Handle handle = NewHandle();
  items_[handle] = item;
  return handle;
}

SimulatedMachine::OpenItem* SimulatedMachine::ItemOf(Handle handle) {
  const auto found = items_.find(handle);
  return Outcome(found != items_.end() ? kErrorNone : kErrorInvalidHandle) ? &found->second : nullptr;
}

bool SimulatedMachine::Close(Handle handle) {
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Close(handle);
  }
  const ErrorCode code = item->wrote ? item->drive->Flush() : kErrorNone;
  items_.erase(handle);
  return Outcome(code);
}

bool SimulatedMachine::Seek(Handle handle, std::int64_t position) {
  OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Seek(handle, position);
  }
  if (position < 0) {
    return Outcome(kErrorNegativeSeek);
  }
  item->position = static_cast<std::uint64_t>(position);
  return Outcome(kErrorNone);
}

ErrorCode SimulatedMachine::CheckTransfer(const OpenItem& item, std::uint32_t access, std::uint64_t bytes) const {
  if ((item.access & access) == 0) {
    return kErrorAccessDenied;
  }
  const std::uint64_t sector_bytes = item.drive->Traits().sector_bytes;
  if (item.position % sector_bytes != 0 || bytes % sector_bytes != 0) {
    return kErrorInvalidParameter;
  }
  return item.position > item.bytes || bytes > item.bytes - item.position ? kErrorSectorNotFound : kErrorNone;
}

bool SimulatedMachine::Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Read(handle, buffer, moved);
  }
  ErrorCode code = CheckTransfer(*item, kAccessRead, buffer.size());
  if (code == kErrorNone) {
    code = item->drive->Read(item->start + item->position, buffer);
  }
  if (code == kErrorNone) {
    moved = static_cast<std::uint32_t>(buffer.size());
    item->position += moved;
  }
  return Outcome(code);
}

bool SimulatedMachine::Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Write(handle, buffer, moved);
  }
  ErrorCode code = CheckTransfer(*item, kAccessWrite, buffer.size());
  if (code == kErrorNone) {
    code = item->drive->Write(item->start + item->position, buffer);
  }
  if (code == kErrorNone) {
    moved = static_cast<std::uint32_t>(buffer.size());
    item->position += moved;
    item->wrote = true;
  }
  return Outcome(code);
}

bool SimulatedMachine::Flush(Handle handle) { return ItemOf(handle) != nullptr || HostMachine::Flush(handle); }

bool SimulatedMachine::LockRange(Handle handle, std::uint64_t /*position*/, std::uint64_t /*bytes*/) {
  return ItemOf(handle) != nullptr;
}

bool SimulatedMachine::UnlockRange(Handle handle, std::uint64_t /*position*/, std::uint64_t /*bytes*/) {
  return ItemOf(handle) != nullptr;
}

bool SimulatedMachine::Control(Handle handle, ControlCode code) {
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return false;
  }
  const bool for_volumes = code != ControlCode::kUpdateProperties;
  if (!for_volumes && item->volume == 0) {
    volumes_.Refresh(item->number, *item->drive);
  }
  return Outcome(for_volumes || item->volume == 0 ? kErrorNone : kErrorInvalidParameter);
}

bool SimulatedMachine::QueryDeviceNumber(Handle handle, DeviceNumber& answer) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    answer = {kDeviceTypeDisk, static_cast<std::uint32_t>(item->number), item->volume};
  }
  return item != nullptr;
}

bool SimulatedMachine::QueryLength(Handle handle, std::uint64_t& bytes) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    bytes = item->bytes;
  }
  return item != nullptr;
}

bool SimulatedMachine::QueryBusType(Handle handle, std::uint8_t& bus) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    bus = item->drive->Traits().usb ? kBusTypeUsb : kBusTypeAta;
  }
  return item != nullptr;
}

bool SimulatedMachine::ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) {
  returned = 0;
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return false;
  }
  return Outcome(item->drive->Scsi(cdb, data, returned) ? kErrorNone : kErrorIoDevice);
}

Handle SimulatedMachine::FirstVolume(std::string& name) {
  std::vector<std::string> names;
  for (const Volume& volume : volumes_.All()) {
    names.insert(names.begin(), SystemNameOf(volume));
  }
  if (!Outcome(names.empty() ? kErrorFileNotFound : kErrorNone)) {
    return kInvalidHandle;
  }
  name = names.back();
  names.pop_back();
  const Handle search = NewHandle();
  searches_[search] = std::move(names);
  return search;
}

bool SimulatedMachine::NextVolume(Handle search, std::string& name) {
  const auto found = searches_.find(search);
  if (found == searches_.end()) {
    return Outcome(kErrorInvalidHandle);
  }
  if (found->second.empty()) {
    return Outcome(kErrorFileNotFound);
  }
  name = found->second.back();
  found->second.pop_back();
  return Outcome(kErrorNone);
}

void SimulatedMachine::EndVolumes(Handle search) {
  Outcome(searches_.erase(search) != 0 ? kErrorNone : kErrorInvalidHandle);
}

bool SimulatedMachine::MountVolume(const std::string& root, const std::string& name) {
  if (volumes_.WithName(name) == nullptr) {
    return Outcome(kErrorFileNotFound);
  }
  return Outcome(volumes_.GiveLetter(name, LetterOf(root, ":\\")) ? kErrorNone : kErrorInvalidParameter);
}

std::uint32_t SimulatedMachine::DriveType(const std::string& root) {
  const Volume* volume = volumes_.WithLetter(LetterOf(root, ":\\"));
  if (volume == nullptr) {
    return kDriveTypeNoRoot;
  }
  return volume->removable ? kDriveTypeRemovable : kDriveTypeFixed;
}

bool SimulatedMachine::QueryVolumeSize(const std::string& name, std::uint64_t& bytes) {
  const Volume* volume = volumes_.WithLetter(LetterOf(name, ":"));
  if (volume == nullptr) {
    return Outcome(kErrorFileNotFound);
  }
  const std::optional<std::uint64_t> size = FileSystemBytes(*DriveOf(volume->drive), volume->position);
  bytes = size.value_or(0);
  return Outcome(size ? kErrorNone : kErrorNotReady);
}

bool SimulatedMachine::InUse(const Volume& volume) const {
  return std::any_of(items_.begin(), items_.end(), [&](const auto& entry) {
    const OpenItem& item = entry.second;
    return item.access != 0 && item.number == volume.drive && (item.volume == 0 || item.volume == volume.index);
  });
}

void SimulatedMachine::FormatVolume(const std::string& root, std::uint32_t /*media*/, const std::string& file_system,
                                    const std::string& label, const FormatCallback& callback) {
  const Volume* volume = volumes_.WithLetter(LetterOf(root, ":"));
  std::optional<std::uint32_t> status = kFormatVolumeInUse;
  if (volume != nullptr && !InUse(*volume)) {
    status = FormatSimulatedVolume(*DriveOf(volume->drive), volume->position, volume->bytes, {file_system, label});
  }
  if (status) {
    callback(*status, 0, 0);
  }
}
