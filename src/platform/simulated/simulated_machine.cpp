#include "platform/simulated/simulated_machine.h"

#include <algorithm>
#include <optional>

#include "platform/simulated/format_volume.h"
#include "platform/simulated/volume_table.h"

SimulatedMachine::SimulatedMachine(HostSettings settings, std::vector<AttachedDrive> drives)
    : DriveMachine(std::move(settings)) {
  for (AttachedDrive& attached : drives) {
    drives_[attached.number] = std::move(attached.drive);
  }
  for (const auto& [number, drive] : drives_) {
    Volumes().Refresh(number, *drive);
  }
}

SimulatedDrive* SimulatedMachine::DriveOf(int number) {
  const auto found = drives_.find(number);
  return found == drives_.end() ? nullptr : found->second.get();
}

void SimulatedMachine::Exit(std::int32_t level) {
  while (!OpenItems().empty()) {
    DriveMachine::Close(OpenItems().begin()->first);
  }
  HostMachine::Exit(level);
}

ErrorCode SimulatedMachine::OpenDrive(OpenItem& item) {
  const SimulatedDrive* drive = DriveOf(item.number);
  if (drive == nullptr) {
    return kErrorFileNotFound;
  }
  if (item.volume == 0) {
    item.bytes = drive->Size();
  }
  return kErrorNone;
}

ErrorCode SimulatedMachine::CloseDrive(const OpenItem& item) {
  return item.wrote ? DriveOf(item.number)->Flush() : kErrorNone;
}

std::uint32_t SimulatedMachine::SectorBytes(const OpenItem& item) {
  return DriveOf(item.number)->Traits().sector_bytes;
}

ErrorCode SimulatedMachine::ReadDrive(const OpenItem& item, std::uint64_t position, ByteSpan buffer) {
  return DriveOf(item.number)->Read(position, buffer);
}

ErrorCode SimulatedMachine::WriteDrive(const OpenItem& item, std::uint64_t position, ConstByteSpan bytes) {
  return DriveOf(item.number)->Write(position, bytes);
}

bool SimulatedMachine::Control(Handle handle, ControlCode code) {
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return false;
  }
  const bool for_volumes = code != ControlCode::kUpdateProperties;
  if (!for_volumes && item->volume == 0) {
    Volumes().Refresh(item->number, *DriveOf(item->number));
  }
  return Outcome(for_volumes || item->volume == 0 ? kErrorNone : kErrorInvalidParameter);
}

bool SimulatedMachine::QueryBusType(Handle handle, std::uint8_t& bus) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    bus = DriveOf(item->number)->Traits().usb ? kBusTypeUsb : kBusTypeAta;
  }
  return item != nullptr;
}

bool SimulatedMachine::ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) {
  returned = 0;
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return false;
  }
  return Outcome(DriveOf(item->number)->Scsi(cdb, data, returned) ? kErrorNone : kErrorIoDevice);
}

bool SimulatedMachine::QueryVolumeSize(const std::string& name, std::uint64_t& bytes) {
  const Volume* volume = VolumeAt(name);
  if (volume == nullptr) {
    return Outcome(kErrorFileNotFound);
  }
  const std::optional<std::uint64_t> size = FileSystemBytes(*DriveOf(volume->drive), volume->position);
  bytes = size.value_or(0);
  return Outcome(size ? kErrorNone : kErrorNotReady);
}

bool SimulatedMachine::InUse(const Volume& volume) const {
  return std::any_of(OpenItems().begin(), OpenItems().end(), [&](const auto& entry) {
    const OpenItem& item = entry.second;
    return item.access != 0 && item.number == volume.drive && (item.volume == 0 || item.volume == volume.index);
  });
}

void SimulatedMachine::FormatVolume(const std::string& root, std::uint32_t /*media*/, const std::string& file_system,
                                    const std::string& label, const FormatCallback& callback) {
  const Volume* volume = VolumeAt(root);
  std::optional<std::uint32_t> status = kFormatVolumeInUse;
  if (volume != nullptr && !InUse(*volume)) {
    status = FormatSimulatedVolume(*DriveOf(volume->drive), volume->position, volume->bytes, {file_system, label});
  }
  if (status) {
    callback(*status, 0, 0);
  }
}
