#include "disk/handles.h"

#include "console/console.h"

std::string DriveName(std::int32_t drive) { return "PhysicalDrive" + std::to_string(drive); }

std::string DevicePath(const std::string& name) { return "\\\\.\\" + name; }

bool Open_Physical_Disk_hDrive(std::int32_t drive) {
  if (DiskHandle > 0) {
    MyCloseHandle(DiskHandle);
  }
  DiskHandle = port->Open(DevicePath(DriveName(drive)), {kAccessReadWrite, kShareReadWrite, kOpenExisting, 0});
  if (DiskHandle == kInvalidHandle) {
    LastOpenError = port->LastError();
    DebugLog(" Open_Physical_Disk_hDrive - Handle for " + std::to_string(drive) + " not obtained!");
    return false;
  }
  DebugLog(" Open_Physical_Disk_hDrive OPENED PHYSICAL DISK " + std::to_string(drive) +
           " handle = " + std::to_string(DiskHandle));
  return true;
}

void MyCloseHandle(Handle& handle) {
  DebugLog(" MyCloseHandle CLOSED HANDLE " + std::to_string(handle));
  port->Close(handle);
  handle = 0;
}
