#include "platform/host/drive_machine.h"

#include <charconv>

namespace {

constexpr std::string_view kDevicePrefix = "\\\\.\\";
constexpr std::string_view kDriveName = "PhysicalDrive";

// The number behind a drive's name; -1 for a text that no number is written as.
int DriveNumberOf(std::string_view digits) {
  int number = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return std::to_string(number) == digits ? number : -1;
}

// The letter of "X:" or "X:\\"; 0 for any other text.
char LetterOf(std::string_view root) {
  return root.size() >= 2 && (root.substr(1) == ":" || root.substr(1) == ":\\") ? root[0] : '\0';
}

}  // namespace

const Volume* DriveMachine::VolumeAt(std::string_view root) const { return volumes_.WithLetter(LetterOf(root)); }

bool DriveMachine::FindItem(const std::string& path, OpenItem& item) const {
  std::string_view name = path;
  const bool device = name.starts_with(kDevicePrefix);
  name.remove_prefix(device ? kDevicePrefix.size() : 0);
  if (device && name.starts_with(kDriveName)) {
    item.number = DriveNumberOf(name.substr(kDriveName.size()));
    return item.number >= 0;
  }
  const Volume* volume = device ? VolumeAt(name) : volumes_.WithName(name);
  if (volume != nullptr) {
    item.number = volume->drive;
    item.volume = volume->index;
    item.start = volume->position;
    item.bytes = volume->bytes;
  }
  return volume != nullptr;
}

Handle DriveMachine::Open(const std::string& path, const OpenMode& mode) {
  OpenItem item;
  item.access = mode.access;
  if (!Outcome(FindItem(path, item) ? OpenDrive(item) : kErrorFileNotFound)) {
    return kInvalidHandle;
  }
  const Handle handle = NewHandle();
  items_[handle] = std::move(item);
  return handle;
}

DriveMachine::OpenItem* DriveMachine::ItemOf(Handle handle) {
  const auto found = items_.find(handle);
  return Outcome(found != items_.end() ? kErrorNone : kErrorInvalidHandle) ? &found->second : nullptr;
}

bool DriveMachine::Close(Handle handle) {
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Close(handle);
  }
  const ErrorCode code = CloseDrive(*item);
  items_.erase(handle);
  return Outcome(code);
}

bool DriveMachine::Seek(Handle handle, std::int64_t position) {
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

ErrorCode DriveMachine::CheckTransfer(const OpenItem& item, std::uint32_t access, std::uint64_t bytes) {
  if ((item.access & access) == 0) {
    return kErrorAccessDenied;
  }
  const std::uint64_t sector_bytes = SectorBytes(item);
  if (item.position % sector_bytes != 0 || bytes % sector_bytes != 0) {
    return kErrorInvalidParameter;
  }
  return item.position > item.bytes || bytes > item.bytes - item.position ? kErrorSectorNotFound : kErrorNone;
}

bool DriveMachine::Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Read(handle, buffer, moved);
  }
  ErrorCode code = CheckTransfer(*item, kAccessRead, buffer.size());
  if (code == kErrorNone) {
    code = ReadDrive(*item, item->start + item->position, buffer);
  }
  if (code == kErrorNone) {
    moved = static_cast<std::uint32_t>(buffer.size());
    item->position += moved;
  }
  return Outcome(code);
}

bool DriveMachine::Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return HostMachine::Write(handle, buffer, moved);
  }
  ErrorCode code = CheckTransfer(*item, kAccessWrite, buffer.size());
  if (code == kErrorNone) {
    code = WriteDrive(*item, item->start + item->position, buffer);
  }
  if (code == kErrorNone) {
    moved = static_cast<std::uint32_t>(buffer.size());
    item->position += moved;
    item->wrote = true;
  }
  return Outcome(code);
}

bool DriveMachine::Flush(Handle handle) { return ItemOf(handle) != nullptr || HostMachine::Flush(handle); }

bool DriveMachine::LockRange(Handle handle, std::uint64_t /*position*/, std::uint64_t /*bytes*/) {
  return ItemOf(handle) != nullptr;
}

bool DriveMachine::UnlockRange(Handle handle, std::uint64_t /*position*/, std::uint64_t /*bytes*/) {
  return ItemOf(handle) != nullptr;
}

bool DriveMachine::QueryDeviceNumber(Handle handle, DeviceNumber& answer) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    answer = {kDeviceTypeDisk, static_cast<std::uint32_t>(item->number), item->volume};
  }
  return item != nullptr;
}

bool DriveMachine::QueryLength(Handle handle, std::uint64_t& bytes) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    bytes = item->bytes;
  }
  return item != nullptr;
}

Handle DriveMachine::FirstVolume(std::string& name) {
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

bool DriveMachine::NextVolume(Handle search, std::string& name) {
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

void DriveMachine::EndVolumes(Handle search) {
  Outcome(searches_.erase(search) != 0 ? kErrorNone : kErrorInvalidHandle);
}

bool DriveMachine::MountVolume(const std::string& root, const std::string& name) {
  if (volumes_.WithName(name) == nullptr) {
    return Outcome(kErrorFileNotFound);
  }
  return Outcome(volumes_.GiveLetter(name, LetterOf(root)) ? kErrorNone : kErrorInvalidParameter);
}

std::uint32_t DriveMachine::DriveType(const std::string& root) {
  const Volume* volume = VolumeAt(root);
  if (volume == nullptr) {
    return kDriveTypeNoRoot;
  }
  return volume->removable ? kDriveTypeRemovable : kDriveTypeFixed;
}
