// The machine whose drives are the real ones of a Linux system: physical drive n is /dev/sd and the n-th letter from a.
//
// A volume is a partition. Letters are given from D: on, in the order of drives and partitions, and hold for this run.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/drive_machine.h"
#include "platform/linux/linux_drive.h"
#include "platform/linux/linux_system.h"

class LinuxMachine : public DriveMachine {
 public:
  explicit LinuxMachine(HostSettings settings, std::unique_ptr<LinuxSystem> system = std::make_unique<LinuxSystem>());

  // A drive is identified through its first handles, which take no notice of other runs. An open behind the first Seek
  // is one for a mode: it holds the drive to the end of the run, and fails with kErrorSharingViolation while another
  // run does.
  bool Seek(Handle handle, std::int64_t position) override;
  // Locking or dismounting a volume claims its whole drive for the rest of the run; unlocking changes nothing.
  bool Control(Handle handle, ControlCode code) override;
  bool QueryBusType(Handle handle, std::uint8_t& bus) override;
  bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) override;
  // The partition's size. Only of a small one, which must not be taken for a volume where it isn't formatted, the first
  // sector is read.
  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override;
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override;

 protected:
  ErrorCode OpenDrive(OpenItem& item) override;
  ErrorCode CloseDrive(const OpenItem& item) override;
  std::uint32_t SectorBytes(const OpenItem& item) override;
  ErrorCode ReadDrive(const OpenItem& item, std::uint64_t position, ByteSpan buffer) override;
  ErrorCode WriteDrive(const OpenItem& item, std::uint64_t position, ConstByteSpan bytes) override;

 private:
  struct NumberedDrive {
    std::unique_ptr<LinuxDrive> drive;
    bool identified = false;
  };

  NumberedDrive& Entry(int number) { return drives_.at(static_cast<std::size_t>(number)); }
  LinuxDrive& DriveOf(const OpenItem& item) { return *Entry(item.number).drive; }
  void RefreshVolumes(int number);
  // A sector of a drive; zeros where it can't be read.
  std::vector<std::uint8_t> SectorOf(int number, std::uint64_t position);
  // Whether a file system that starts with a boot record is on the volume.
  bool HasBootRecord(const Volume& volume);
  ErrorCode RereadTable(const OpenItem& item);
  // The outcome of formatting: kErrorNone when the tool has done it.
  ErrorCode MakeVolume(const Volume& volume, const std::string& file_system, const std::string& label);

  std::unique_ptr<LinuxSystem> system_;
  std::array<NumberedDrive, kDriveNumbers> drives_;
};
