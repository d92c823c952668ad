#include "platform/linux/linux_machine.h"

#include <unistd.h>

#include <algorithm>

#include "platform/host/format_tools.h"
#include "platform/linux/scsi_command.h"

namespace {

constexpr std::uint64_t kSmallBytes = 65536;  // of a partition that is hardly anybody's volume
constexpr std::size_t kSignatureAt = 510;

int DescriptorOf(const std::shared_ptr<void>& device) {
  return device == nullptr ? -1 : static_cast<const Descriptor*>(device.get())->Get();
}

// The kernel shows an extended partition, which holds other ones, as a stump of two sectors.
bool IsVolume(const Partition& partition, const DriveFacts& facts) {
  constexpr std::uint64_t kStumpBytes = 1024;
  return partition.bytes > std::max<std::uint64_t>(kStumpBytes, facts.sector_bytes);
}

}  // namespace

LinuxMachine::LinuxMachine(HostSettings settings, std::unique_ptr<LinuxSystem> system)
    : DriveMachine(std::move(settings)), system_(std::move(system)) {
  for (int number = 0; number < kDriveNumbers; ++number) {
    Entry(number).drive = std::make_unique<LinuxDrive>(*system_, number);
    if (Entry(number).drive->Find() == kErrorNone) {
      RefreshVolumes(number);
    }
  }
}

void LinuxMachine::RefreshVolumes(int number) {
  const DriveFacts& facts = Entry(number).drive->Facts();
  std::vector<VolumePlace> places;
  for (const Partition& partition : facts.partitions) {
    if (IsVolume(partition, facts)) {
      places.push_back({partition.number, partition.position, partition.bytes});
    }
  }
  Volumes().Refresh(number, places, facts.removable);
}

ErrorCode LinuxMachine::OpenDrive(OpenItem& item) {
  if (item.number >= kDriveNumbers) {
    return kErrorFileNotFound;
  }
  LinuxDrive& drive = DriveOf(item);
  ErrorCode code = kErrorNone;
  if ((item.access & kAccessReadWrite) == 0) {
    code = drive.Find();
  } else {
    const auto descriptor = std::make_shared<Descriptor>();
    code = drive.Open(*descriptor);
    if (code == kErrorNone && Entry(item.number).identified) {
      code = drive.Hold();
    }
    item.device = descriptor;
  }
  if (item.volume == 0) {
    item.bytes = drive.Facts().bytes;
  }
  return code;
}

// What was opened goes with the item.
ErrorCode LinuxMachine::CloseDrive(const OpenItem& /*item*/) { return kErrorNone; }

std::uint32_t LinuxMachine::SectorBytes(const OpenItem& item) { return DriveOf(item).Facts().sector_bytes; }

ErrorCode LinuxMachine::ReadDrive(const OpenItem& item, std::uint64_t position, ByteSpan buffer) {
  return DriveOf(item).Read(DescriptorOf(item.device), position, buffer);
}

ErrorCode LinuxMachine::WriteDrive(const OpenItem& item, std::uint64_t position, ConstByteSpan bytes) {
  return DriveOf(item).Write(position, bytes);
}

bool LinuxMachine::Seek(Handle handle, std::int64_t position) {
  if (const OpenItem* item = ItemOf(handle); item != nullptr) {
    Entry(item->number).identified = true;
  }
  return DriveMachine::Seek(handle, position);
}

bool LinuxMachine::Control(Handle handle, ControlCode code) {
  const OpenItem* item = ItemOf(handle);
  if (item == nullptr) {
    return false;
  }
  if ((code == ControlCode::kUpdateProperties) != (item->volume == 0)) {
    return Outcome(kErrorInvalidParameter);
  }
  switch (code) {
    case ControlCode::kUpdateProperties:
      return Outcome(RereadTable(*item));
    case ControlCode::kUnlockVolume:
      return true;
    default:
      return Outcome(DriveOf(*item).Claim());
  }
}

ErrorCode LinuxMachine::RereadTable(const OpenItem& item) {
  const ErrorCode code = DriveOf(item).RereadTable(DescriptorOf(item.device));
  if (code == kErrorNone) {
    RefreshVolumes(item.number);
  }
  return code;
}

bool LinuxMachine::QueryBusType(Handle handle, std::uint8_t& bus) {
  const OpenItem* item = ItemOf(handle);
  if (item != nullptr) {
    bus = DriveOf(*item).Facts().usb ? kBusTypeUsb : kBusTypeAta;
  }
  return item != nullptr;
}

bool LinuxMachine::ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) {
  returned = 0;
  const OpenItem* item = ItemOf(handle);
  return item != nullptr && Outcome(SendScsiCommand(*system_, DescriptorOf(item->device), cdb, data, returned));
}

std::vector<std::uint8_t> LinuxMachine::SectorOf(int number, std::uint64_t position) {
  LinuxDrive& drive = *Entry(number).drive;
  Descriptor descriptor;
  std::vector<std::uint8_t> sector(drive.Facts().sector_bytes);
  const bool read =
      drive.Open(descriptor) == kErrorNone && drive.Read(descriptor.Get(), position, sector) == kErrorNone;
  return read ? sector : std::vector<std::uint8_t>(sector.size());
}

bool LinuxMachine::HasBootRecord(const Volume& volume) {
  const std::vector<std::uint8_t> sector = SectorOf(volume.drive, volume.position);
  return (sector[0] == 0xEB || sector[0] == 0xE9) && sector[kSignatureAt] == 0x55 && sector[kSignatureAt + 1] == 0xAA;
}

bool LinuxMachine::QueryVolumeSize(const std::string& name, std::uint64_t& bytes) {
  bytes = 0;
  const Volume* volume = VolumeAt(name);
  if (volume == nullptr) {
    return Outcome(kErrorFileNotFound);
  }
  const bool has_size = volume->bytes >= kSmallBytes || HasBootRecord(*volume);
  bytes = has_size ? volume->bytes : 0;
  return Outcome(has_size ? kErrorNone : kErrorNotReady);
}

ErrorCode LinuxMachine::MakeVolume(const Volume& volume, const std::string& file_system, const std::string& label) {
  Descriptor partition;
  const ErrorCode code =
      Entry(volume.drive).drive->LendPartition(volume.index, volume.position, volume.bytes, partition);
  if (code != kErrorNone) {
    return code;
  }
  FormatJob job{file_system, label, volume.position / kDefaultSectorBytes};
  SetGeometry(job, SectorOf(volume.drive, 0));
  // What the tool has left in the system's cache has to be on the medium before the drive is read past it.
  return MakeFileSystem(partition.Get(), job) && fsync(partition.Get()) == 0 ? kErrorNone : kErrorIoDevice;
}

void LinuxMachine::FormatVolume(const std::string& root, std::uint32_t /*media*/, const std::string& file_system,
                                const std::string& label, const FormatCallback& callback) {
  const Volume* volume = VolumeAt(root);
  switch (volume == nullptr ? kErrorFileNotFound : MakeVolume(*volume, file_system, label)) {
    case kErrorNone:
      callback(kFormatCompleted, 0, 0);
      break;
    case kErrorWriteProtected:
      callback(kFormatWriteProtected, 0, 0);
      break;
    case kErrorFileNotFound:
    case kErrorNotReady:
    case kErrorAccessDenied:
    case kErrorSharingViolation:
      callback(kFormatVolumeInUse, 0, 0);
      break;
    default:  // no status: the tool is missing or has failed
      break;
  }
}
