// The machine whose drives are simulated: no real device can be reached through it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/drive_machine.h"
#include "platform/simulated/drive_images.h"
#include "platform/simulated/simulated_drive.h"

class SimulatedMachine : public DriveMachine {
 public:
  // Takes the drives and reads their tables, in the order of their numbers.
  SimulatedMachine(HostSettings settings, std::vector<AttachedDrive> drives);

  // Ends like the process of a real machine: what is still open is closed first.
  [[noreturn]] void Exit(std::int32_t level) override;

  bool Control(Handle handle, ControlCode code) override;
  bool QueryBusType(Handle handle, std::uint8_t& bus) override;
  bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) override;

  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override;
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override;

  // The drive of that number; null where there is none.
  SimulatedDrive* DriveOf(int number);

 protected:
  ErrorCode OpenDrive(OpenItem& item) override;
  // A drive that was written through the handle is flushed.
  ErrorCode CloseDrive(const OpenItem& item) override;
  std::uint32_t SectorBytes(const OpenItem& item) override;
  ErrorCode ReadDrive(const OpenItem& item, std::uint64_t position, ByteSpan buffer) override;
  ErrorCode WriteDrive(const OpenItem& item, std::uint64_t position, ConstByteSpan bytes) override;

 private:
  // Whether the volume, or its drive, is open for more than queries.
  bool InUse(const Volume& volume) const;

  std::map<int, std::unique_ptr<SimulatedDrive>> drives_;
};
