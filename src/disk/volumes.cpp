#include "disk/volumes.h"

#include "console/console.h"
#include "console/number_text.h"
#include "disk/handles.h"

namespace {

constexpr OpenMode kReadWrite{kAccessReadWrite, kShareReadWrite, kOpenExisting, 0};
constexpr OpenMode kQueryOnly{0, kShareReadWrite, kOpenExisting, 0};
constexpr OpenMode kUnbuffered{kAccessReadWrite, kShareReadWrite, kOpenExisting, kFlagNoBuffering};
constexpr MessageMode kPlainMessage{kMessageFromSystem, 255};

// The drive behind the name, closed again at once; kNoDriveNumber where it can't be opened or is no disk.
std::int32_t DriveNumberBehind(const std::string& path) {
  const Handle handle = port->Open(path, kQueryOnly);
  if (handle == kInvalidHandle) {
    return kNoDriveNumber;
  }
  DeviceNumber device{};
  const bool is_disk = port->QueryDeviceNumber(handle, device) && device.device_type == kDeviceTypeDisk;
  port->Close(handle);
  return is_disk ? static_cast<std::int32_t>(device.device_number) : kNoDriveNumber;
}

bool LogOutcome(bool succeeded, std::string_view success, std::string_view failure, Handle handle) {
  DebugLog(std::string(succeeded ? success : failure) + std::to_string(handle));
  return succeeded;
}

// The first root from D:\ on that names nothing. Behind Z: stand names that no platform knows as a root, so the search
// ends; the mount then fails quietly.
std::string FirstFreeRoot() {
  for (char letter = 'D';; ++letter) {
    std::string root = std::string(1, letter) + ":\\";
    if (port->DriveType(root) == kDriveTypeNoRoot) {
      return root;
    }
  }
}

void MountVolumeOnDrive(const std::string& name, std::int32_t drive) {
  const Handle handle = port->Open(name, kQueryOnly);
  if (handle == kInvalidHandle) {
    return;
  }
  DeviceNumber device{};
  if (port->QueryDeviceNumber(handle, device) && device.device_type == kDeviceTypeDisk &&
      device.device_number == static_cast<std::uint32_t>(drive)) {
    // Not looked at: a volume that already has its letter refuses another and keeps it.
    port->MountVolume(FirstFreeRoot(), name + "\\");
  }
  port->Close(handle);
}

void OpenAndLock(const std::string& letter, Handle& entry) {
  constexpr std::string_view kRoutine = " Lock_Unlock_All_Volumes - ";
  entry = port->Open(DevicePath(letter), kReadWrite);
  if (entry != kInvalidHandle) {
    DebugLog(std::string(kRoutine) + "VOLUME " + letter + " OPENED on Handle " + std::to_string(entry));
  } else {
    DebugLog(std::string(kRoutine) + "Cannot open " + letter + " to lock! " + std::to_string(port->LastError()));
  }
  if (port->Control(entry, ControlCode::kLockVolume)) {
    DebugLog(std::string(kRoutine) + "Volume " + letter + " LOCKED");
  } else {
    DebugLog(std::string(kRoutine) + "Cannot lock volume " + letter + " " + std::to_string(port->LastError()));
  }
}

void LockVolumes(std::int32_t drive) {
  LockedVolumeHandles.fill(0);
  std::array<std::string, 4> letters;
  Get_Drive_Volumes(drive, letters[0], letters[1], letters[2], letters[3]);
  for (std::size_t i = 0; i < letters.size(); ++i) {
    if (!letters[i].empty()) {
      OpenAndLock(letters[i], LockedVolumeHandles[i]);
    }
  }
}

void UnlockVolumes() {
  for (Handle& handle : LockedVolumeHandles) {
    if (handle > 0) {
      MyDismount_Volume(handle);
      MyUnlock_Volume(handle);
      DebugLog(" Lock_Unlock_All_Volumes - Close Handle " + std::to_string(handle));
      MyCloseHandle(handle);
    }
  }
}

}  // namespace

bool MyLock_Volume(Handle handle) {
  if (handle < 0) {
    return false;
  }
  if (port->Control(handle, ControlCode::kLockVolume)) {
    DebugLog(" MyLock_Volume Volume locked - Handle " + std::to_string(handle));
    return true;
  }
  const bool denied = port->LastError() == kErrorAccessDenied;
  DebugLog(std::string(" MyLock_Volume Cannot lock volume - ") + (denied ? "access denied - " : "") + "Handle " +
           std::to_string(handle));
  return false;
}

bool MyUnlock_Volume(Handle handle) {
  return handle > 0 &&
         LogOutcome(port->Control(handle, ControlCode::kUnlockVolume), " MY_UNLOCK_VOLUME Volume UNLOCKED on Handle ",
                    " MyUnlock_Volume Cannot unlock volume on Handle ", handle);
}

bool MyDismount_Volume(Handle handle) {
  return handle > 0 && LogOutcome(port->Control(handle, ControlCode::kDismountVolume),
                                  " MyDismount_Volume Dismounted volume on Handle  ",
                                  " MyDismount_Volume Cannot dismount volume on Handle ", handle);
}

void Open_Volume_get_lngHandle(const std::string& name) {
  DebugLog(" Open_Volume_get_lngHandle for " + name);
  VolumeHandle = port->Open(DevicePath(name), kUnbuffered);
  if (VolumeHandle == kInvalidHandle) {
    DebugLog(" Open_Volume_get_lngHandle Cannot open " + name);
  } else {
    DebugLog(" Open_Volume_get_lngHandle VOLUME " + name + " OPENED OK - Handle=" + std::to_string(VolumeHandle));
  }
}

std::int32_t VolumeDriveNumber(const std::string& name) { return DriveNumberBehind(DevicePath(name)); }

bool Get_Drive_Volumes(std::int32_t drive, std::string& letter1, std::string& letter2, std::string& letter3,
                       std::string& letter4) {
  DebugLog(" Get_Drive_Volumes for drive " + std::to_string(drive));
  const std::array<std::string*, 4> results{&letter1, &letter2, &letter3, &letter4};
  for (std::string* result : results) {
    result->clear();
  }
  std::size_t found = 0;
  for (char letter = 'C'; letter <= 'Z'; ++letter) {
    const std::string name = std::string(1, letter) + ":";
    if (VolumeDriveNumber(name) == drive && found < results.size()) {
      *results[found++] = name;
    }
  }
  return !letter1.empty();
}

void Open_Lock_Dismount_Volume(const std::string& letter) {
  DebugLog(" Open_Lock_Dismount_Volume " + letter);
  Open_Volume_get_lngHandle(letter.substr(0, 2));
  DebugLog(" Returned from Open_Volume_get_lngHandle");
  if (VolumeHandle > 0) {
    MyLock_Volume(VolumeHandle);
  }
  DebugLog(" Returned from MyLock_Volume");
  if (VolumeHandle > 0) {
    MyDismount_Volume(VolumeHandle);
  }
  DebugLog(" Returned from MyDismount_Volume");
}

void UnLock_Close_Volume() {
  if (VolumeHandle > 0) {
    MyUnlock_Volume(VolumeHandle);
  }
  const std::string number = std::to_string(VolumeHandle);
  MyCloseHandle(VolumeHandle);
  DebugLog(" UnLock_Close_Volume CLOSEVOLUME Handle=" + number);
}

void DisMount_All_Volumes(std::int32_t drive) {
  DebugLog(" DisMount_All_Volumes for Drive " + std::to_string(drive));
  std::array<std::string, 4> letters;
  Get_Drive_Volumes(drive, letters[0], letters[1], letters[2], letters[3]);
  for (const std::string& letter : letters) {
    Open_Lock_Dismount_Volume(letter);
    UnLock_Close_Volume();
  }
}

void Lock_Unlock_All_Volumes(std::int32_t drive, std::string_view mode) {
  if (mode == "LOCK") {
    LockVolumes(drive);
  } else {
    UnlockVolumes();
  }
  DebugLog(" Lock_Unlock_All_Volumes End");
}

bool ReMount_Drive(std::int32_t drive) {
  const std::string name = DriveName(drive);
  Handle handle = port->Open(DevicePath(name), kReadWrite);
  if (handle == kInvalidHandle) {
    DebugLog(" ReMount_Drive ERROR: Handle for drive " + name + " not obtained!");
    return false;
  }
  DebugLog(" OPENED HANDLE for drive " + name + " = " + std::to_string(handle));
  DebugLog(" ReMount_Drive Performing IOCTL_DISK_UPDATE_PROPERTIES on drive " + name +
           " Handle=" + std::to_string(handle));
  port->Control(handle, ControlCode::kUpdateProperties);
  const std::uint32_t code = port->LastError();
  if (code != kErrorNone) {
    DebugLog(" ReMount_Drive Error: " + std::to_string(code) + " - " +
             CutAtNul(port->ErrorMessage(code, kPlainMessage)));
  }
  MyCloseHandle(handle);  // after a failure too: nobody else has this handle
  return code == kErrorNone;
}

void MountDriveVolumes(std::int32_t drive) {
  std::string name;
  const Handle search = port->FirstVolume(name);
  if (search == kInvalidHandle) {
    return;
  }
  do {
    name = name.substr(0, name.find('\0'));
    if (!name.empty()) {
      name.pop_back();  // the backslash
    }
    MountVolumeOnDrive(name, drive);
  } while (port->NextVolume(search, name));
  port->EndVolumes(search);
}
