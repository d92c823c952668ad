#include "disk/volumes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "disk/handles.h"
#include "support/program.h"

namespace {

const std::string kStamp = "\r\n2024-01-02 03:04:05 ";

// A fixed drive 3 with so many primary partitions, so many volumes; debug lines are on.
class VolumesMachine : public MachineDouble {
 public:
  explicit VolumesMachine(std::uint8_t partitions) : MachineDouble(FixedDrive()) {
    std::vector<std::uint8_t> sector(512);
    for (std::uint8_t i = 0; i < partitions; ++i) {
      std::uint8_t* entry = &sector[0x1BE + 16U * i];
      entry[4] = 0x0C;
      entry[9] = static_cast<std::uint8_t>(1 + i);  // LBA 256, 512 ...
      entry[12] = 100;
    }
    sector[0x1FE] = 0x55;
    sector[0x1FF] = 0xAA;
    SetDriveBytes(3, 0, sector);
    ResetProgram(*this);
    ReMount_Drive(3);
    OptDebug = true;
  }

 private:
  static std::vector<AttachedDrive> FixedDrive() {
    DriveTraits traits;
    traits.removable = false;
    std::vector<AttachedDrive> drives;
    drives.push_back(MemoryDrive(3, 1 << 30, traits));
    return drives;
  }
};

// The lines of a trace, each with the date in front, in place of a blank.
std::string Trace(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += kStamp + line;
  }
  return text;
}

TEST(LockUnlockAllVolumes, LocksThenDismountsUnlocksAndCloses) {
  VolumesMachine machine(2);
  Lock_Unlock_All_Volumes(3, "LOCK");
  const std::string first = std::to_string(LockedVolumeHandles[0]);
  const std::string second = std::to_string(LockedVolumeHandles[1]);
  const std::string kRoutine = "Lock_Unlock_All_Volumes - ";
  EXPECT_EQ(machine.console, Trace({"Get_Drive_Volumes for drive 3", kRoutine + "VOLUME D: OPENED on Handle " + first,
                                    kRoutine + "Volume D: LOCKED", kRoutine + "VOLUME E: OPENED on Handle " + second,
                                    kRoutine + "Volume E: LOCKED", "Lock_Unlock_All_Volumes End"}));
  machine.console.clear();
  Lock_Unlock_All_Volumes(3, "UNLOCK");
  std::vector<std::string> lines;
  for (const std::string& handle : {first, second}) {
    lines.insert(lines.end(), {"MyDismount_Volume Dismounted volume on Handle  " + handle,
                               "MY_UNLOCK_VOLUME Volume UNLOCKED on Handle " + handle,
                               kRoutine + "Close Handle " + handle, "MyCloseHandle CLOSED HANDLE " + handle});
  }
  lines.emplace_back("Lock_Unlock_All_Volumes End");
  EXPECT_EQ(machine.console, Trace(lines));
  machine.console.clear();
  Lock_Unlock_All_Volumes(3, "UNLOCK");
  EXPECT_EQ(machine.console, Trace({"Lock_Unlock_All_Volumes End"}));
}

TEST(LockUnlockAllVolumes, GoesOnWhereAVolumeRefuses) {
  VolumesMachine machine(1);
  machine.FailCall(CallKind::kLock, 1, kErrorAccessDenied);
  Lock_Unlock_All_Volumes(3, "LOCK");
  EXPECT_TRUE(machine.console.ends_with(
      Trace({"Lock_Unlock_All_Volumes - Cannot lock volume D: 5", "Lock_Unlock_All_Volumes End"})));
}

TEST(OpenLockDismountVolume, TracesEveryStep) {
  const struct {
    CallKind failing;
    std::uint32_t code;
    std::string lock_line, dismount_line;
  } cases[] = {
      {CallKind::kLock, kErrorAccessDenied, "MyLock_Volume Cannot lock volume - access denied - Handle #",
       "MyDismount_Volume Dismounted volume on Handle  #"},
      {CallKind::kLock, kErrorIoDevice, "MyLock_Volume Cannot lock volume - Handle #",
       "MyDismount_Volume Dismounted volume on Handle  #"},
      {CallKind::kDismount, kErrorIoDevice, "MyLock_Volume Volume locked - Handle #",
       "MyDismount_Volume Cannot dismount volume on Handle #"},
  };
  for (const auto& row : cases) {
    VolumesMachine machine(1);
    machine.FailCall(row.failing, 1, row.code);
    Open_Lock_Dismount_Volume("D:\\");
    const std::string handle = std::to_string(VolumeHandle);
    UnLock_Close_Volume();
    std::string expected =
        Trace({"Open_Lock_Dismount_Volume D:\\",
               "Open_Volume_get_lngHandle for D:", "Open_Volume_get_lngHandle VOLUME D: OPENED OK - Handle=#",
               "Returned from Open_Volume_get_lngHandle", row.lock_line, "Returned from MyLock_Volume",
               row.dismount_line, "Returned from MyDismount_Volume", "MY_UNLOCK_VOLUME Volume UNLOCKED on Handle #",
               "MyCloseHandle CLOSED HANDLE #", "UnLock_Close_Volume CLOSEVOLUME Handle=#"});
    for (std::size_t at = 0; (at = expected.find('#')) != std::string::npos;) {
      expected.replace(at, 1, handle);
    }
    EXPECT_EQ(machine.console, expected);
    EXPECT_EQ(VolumeHandle, 0);
  }
}

TEST(ReMountDrive, TellsOfItsFailure) {
  VolumesMachine machine(1);
  EXPECT_FALSE(ReMount_Drive(4));
  EXPECT_EQ(machine.console, Trace({"ReMount_Drive ERROR: Handle for drive PhysicalDrive4 not obtained!"}));
  machine.console.clear();
  machine.FailCall(CallKind::kUpdate, 1, kErrorNotReady);
  EXPECT_FALSE(ReMount_Drive(3));
  EXPECT_NE(machine.console.find(kStamp + "ReMount_Drive Error: 21 - The device is not ready.\r\n"), std::string::npos);
  EXPECT_TRUE(ReMount_Drive(3));
}

}  // namespace
