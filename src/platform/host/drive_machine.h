// What the machines with drives share: handles of drives and volumes, positions, letters, and the walk over the
// volumes. A derived machine knows the drives.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/host_machine.h"
#include "platform/simulated/simulated_volumes.h"

class DriveMachine : public HostMachine {
 public:
  using HostMachine::HostMachine;

  Handle Open(const std::string& path, const OpenMode& mode) override;
  // What is no drive or volume goes to the host.
  bool Close(Handle handle) override;
  bool Seek(Handle handle, std::int64_t position) override;
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override;
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override;
  // Nothing is left to do: what is held back is flushed by the close, so that a run needs no flush for each write.
  bool Flush(Handle handle) override;
  bool LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool QueryDeviceNumber(Handle handle, DeviceNumber& answer) override;
  bool QueryLength(Handle handle, std::uint64_t& bytes) override;

  Handle FirstVolume(std::string& name) override;
  bool NextVolume(Handle search, std::string& name) override;
  void EndVolumes(Handle search) override;
  bool MountVolume(const std::string& root, const std::string& name) override;
  std::uint32_t DriveType(const std::string& root) override;

 protected:
  // What a handle stands for. A volume's place stays what it was at the open, also when the table is read again.
  struct OpenItem {
    int number = 0;            // of the drive
    std::uint32_t volume = 0;  // which one of the drive, as its table counts, from 1; 0: the drive itself
    std::uint64_t start = 0;   // bytes, from the start of the drive
    std::uint64_t bytes = 0;
    std::uint32_t access = 0;
    std::uint64_t position = 0;  // of the next transfer, from `start`
    bool wrote = false;
    std::shared_ptr<void> device;  // what the derived machine keeps for as long as the handle is open
  };

  // Null, with the last error set, when the handle is not that of an open drive or volume.
  OpenItem* ItemOf(Handle handle);
  const std::map<Handle, OpenItem>& OpenItems() const { return items_; }
  // The volume of a root ("E:\") or of a name ("E:"); null where there is none.
  const Volume* VolumeAt(std::string_view root) const;
  SimulatedVolumes& Volumes() { return volumes_; }

  // The drive behind `number` is opened for `item`, whose other fields are set but for `bytes` of the drive itself.
  virtual ErrorCode OpenDrive(OpenItem& item) = 0;
  virtual ErrorCode CloseDrive(const OpenItem& item) = 0;
  virtual std::uint32_t SectorBytes(const OpenItem& item) = 0;
  // Transfers of whole sectors inside the drive, `position` from its start.
  virtual ErrorCode ReadDrive(const OpenItem& item, std::uint64_t position, ByteSpan buffer) = 0;
  virtual ErrorCode WriteDrive(const OpenItem& item, std::uint64_t position, ConstByteSpan bytes) = 0;

 private:
  bool FindItem(const std::string& path, OpenItem& item) const;
  // Whether `item` may move `bytes` at its position with this access.
  ErrorCode CheckTransfer(const OpenItem& item, std::uint32_t access, std::uint64_t bytes);

  SimulatedVolumes volumes_;
  std::map<Handle, OpenItem> items_;
  std::map<Handle, std::vector<std::string>> searches_;  // names still to come, the next one last
};
