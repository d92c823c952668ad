// The machine whose drives are simulated: no real device can be reached through it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/host_machine.h"
#include "platform/simulated/drive_images.h"
#include "platform/simulated/simulated_drive.h"
#include "platform/simulated/simulated_volumes.h"

class SimulatedMachine : public HostMachine {
 public:
  // Takes the drives and reads their tables, in the order of their numbers.
  SimulatedMachine(HostSettings settings, std::vector<AttachedDrive> drives);

  // Ends like the process of a real machine: what is still open is closed first.
  [[noreturn]] void Exit(std::int32_t level) override;

  Handle Open(const std::string& path, const OpenMode& mode) override;
  // What is no drive or volume goes to the host. A close flushes a drive that was written through the handle.
  bool Close(Handle handle) override;
  bool Seek(Handle handle, std::int64_t position) override;
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override;
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override;
  // Nothing is held back before the close, so that a run needs one flush and not one for each write.
  bool Flush(Handle handle) override;
  bool LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool Control(Handle handle, ControlCode code) override;
  bool QueryDeviceNumber(Handle handle, DeviceNumber& answer) override;
  bool QueryLength(Handle handle, std::uint64_t& bytes) override;
  bool QueryBusType(Handle handle, std::uint8_t& bus) override;
  bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) override;

  Handle FirstVolume(std::string& name) override;
  bool NextVolume(Handle search, std::string& name) override;
  void EndVolumes(Handle search) override;
  bool MountVolume(const std::string& root, const std::string& name) override;
  std::uint32_t DriveType(const std::string& root) override;
  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override;
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override;

  // The drive of that number; null where there is none.
  SimulatedDrive* DriveOf(int number);

 protected:
  // What a handle stands for. A volume's place stays what it was at the open, also when the table is read again.
  struct OpenItem {
    int number = 0;  // of the drive
    SimulatedDrive* drive = nullptr;
    std::uint32_t volume = 0;  // which one of the drive, from 1; 0: the drive itself
    std::uint64_t start = 0;   // bytes, from the start of the drive
    std::uint64_t bytes = 0;
    std::uint32_t access = 0;
    std::uint64_t position = 0;  // of the next transfer, from `start`
    bool wrote = false;
  };
  // Null, with the last error set, when the handle is not that of an open drive or volume.
  OpenItem* ItemOf(Handle handle);

 private:
  bool FindItem(const std::string& path, OpenItem& item);
  // Whether the volume, or its drive, is open for more than queries.
  bool InUse(const Volume& volume) const;
  // Whether `item` may move `bytes` at its position with this access.
  ErrorCode CheckTransfer(const OpenItem& item, std::uint32_t access, std::uint64_t bytes) const;

  std::map<int, std::unique_ptr<SimulatedDrive>> drives_;
  SimulatedVolumes volumes_;
  std::map<Handle, OpenItem> items_;
  std::map<Handle, std::vector<std::string>> searches_;  // names still to come, the next one last
};
