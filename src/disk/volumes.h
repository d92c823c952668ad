// Volumes: finding the lettered volumes of a drive, making the platform's file systems let go of them, giving them
// letters, and having the partition table read again.
//
// All of it is best effort: nothing here prints (but for debug lines), ends the run or keeps a write from being tried.
// A volume is named by its letter and colon ("D:").
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/platform.h"

// The one volume that Open_Volume_get_lngHandle opened last.
inline Handle VolumeHandle = 0;
// Volumes held by Lock_Unlock_All_Volumes; only the first four are ever filled, one for each letter of the drive.
inline std::array<Handle, 31> LockedVolumeHandles{};

inline constexpr std::int32_t kNoDriveNumber = 99;

bool MyLock_Volume(Handle handle);
bool MyUnlock_Volume(Handle handle);
bool MyDismount_Volume(Handle handle);
// Opens a volume unbuffered into VolumeHandle.
void Open_Volume_get_lngHandle(const std::string& name);

// The physical drive that a volume lies on, kNoDriveNumber if there is none.
std::int32_t VolumeDriveNumber(const std::string& name);
// The first four lettered volumes of the drive, in the order of their letters from C: on; empty texts behind the last.
// True when there is one.
bool Get_Drive_Volumes(std::int32_t drive, std::string& letter1, std::string& letter2, std::string& letter3,
                       std::string& letter4);

// Opens, locks and dismounts a volume, which stays locked in VolumeHandle until UnLock_Close_Volume.
void Open_Lock_Dismount_Volume(const std::string& letter);
// Unlocks and closes VolumeHandle, which is 0 then.
void UnLock_Close_Volume();
// Dismounts every volume of the drive and releases it again.
void DisMount_All_Volumes(std::int32_t drive);
// "LOCK" opens and locks the volumes of the drive into LockedVolumeHandles; anything else dismounts, unlocks and closes
// them. A second "UNLOCK" finds nothing to do.
void Lock_Unlock_All_Volumes(std::int32_t drive, std::string_view mode);
// Has the platform read the drive's partition table again, on a handle of its own. True when that worked.
bool ReMount_Drive(std::int32_t drive);
// Gives every volume of the drive a letter, the first free one from D: on; a volume that has one keeps it.
void MountDriveVolumes(std::int32_t drive);
