// Every call of the system that the Windows machine makes, as a table: tests put a recorder in its place.
//
// The members have the names of the calls and their types, and begin as the calls themselves. What the machine takes
// from HostMachine (regional texts, the program's folder, the command line) changes nothing and is not in the table.
#pragma once

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX  // the library may have said so already
#define NOMINMAX
#endif
#include <windows.h>
// Behind windows.h, whose names they need.
#include <objbase.h>
#include <winioctl.h>

struct SystemCalls {
  // Files, drives and volumes, opened by name.
  decltype(&::CreateFileA) CreateFileA = ::CreateFileA;
  decltype(&::CreateFileW) CreateFileW = ::CreateFileW;
  decltype(&::CloseHandle) CloseHandle = ::CloseHandle;
  decltype(&::SetFilePointerEx) SetFilePointerEx = ::SetFilePointerEx;
  decltype(&::ReadFile) ReadFile = ::ReadFile;
  decltype(&::WriteFile) WriteFile = ::WriteFile;
  decltype(&::FlushFileBuffers) FlushFileBuffers = ::FlushFileBuffers;
  decltype(&::LockFile) LockFile = ::LockFile;
  decltype(&::UnlockFile) UnlockFile = ::UnlockFile;
  decltype(&::DeviceIoControl) DeviceIoControl = ::DeviceIoControl;
  decltype(&::GetFileType) GetFileType = ::GetFileType;
  decltype(&::GetFileInformationByHandle) GetFileInformationByHandle = ::GetFileInformationByHandle;
  decltype(&::GetFileSize) GetFileSize = ::GetFileSize;
  decltype(&::FindFirstFileA) FindFirstFileA = ::FindFirstFileA;
  decltype(&::FindClose) FindClose = ::FindClose;
  decltype(&::DeleteFileA) DeleteFileA = ::DeleteFileA;

  // Volumes and letters.
  decltype(&::FindFirstVolumeA) FindFirstVolumeA = ::FindFirstVolumeA;
  decltype(&::FindNextVolumeA) FindNextVolumeA = ::FindNextVolumeA;
  decltype(&::FindVolumeClose) FindVolumeClose = ::FindVolumeClose;
  decltype(&::SetVolumeMountPointA) SetVolumeMountPointA = ::SetVolumeMountPointA;
  decltype(&::GetDriveTypeA) GetDriveTypeA = ::GetDriveTypeA;
  decltype(&::GetDiskFreeSpaceExA) GetDiskFreeSpaceExA = ::GetDiskFreeSpaceExA;

  // The run, errors and time.
  decltype(&::SetErrorMode) SetErrorMode = ::SetErrorMode;
  decltype(&::GetStdHandle) GetStdHandle = ::GetStdHandle;
  decltype(&::ExitProcess) ExitProcess = ::ExitProcess;
  decltype(&::GetVersionExA) GetVersionExA = ::GetVersionExA;
  decltype(&::GetLastError) GetLastError = ::GetLastError;
  decltype(&::SetLastError) SetLastError = ::SetLastError;
  decltype(&::FormatMessageA) FormatMessageA = ::FormatMessageA;
  decltype(&::Sleep) Sleep = ::Sleep;
  decltype(&::GetTickCount) GetTickCount = ::GetTickCount;

  // Boxes and windows.
  decltype(&::MessageBoxA) MessageBoxA = ::MessageBoxA;
  decltype(&::FindWindowA) FindWindowA = ::FindWindowA;
  decltype(&::PostMessageA) PostMessageA = ::PostMessageA;

  // Other programs, libraries, and what the system says of itself.
  decltype(&::CreateProcessA) CreateProcessA = ::CreateProcessA;
  decltype(&::GetExitCodeProcess) GetExitCodeProcess = ::GetExitCodeProcess;
  decltype(&::GetSystemDirectoryA) GetSystemDirectoryA = ::GetSystemDirectoryA;
  decltype(&::LoadLibraryA) LoadLibraryA = ::LoadLibraryA;
  decltype(&::GetModuleHandleA) GetModuleHandleA = ::GetModuleHandleA;
  decltype(&::GetProcAddress) GetProcAddress = ::GetProcAddress;
  decltype(&::GetCurrentProcess) GetCurrentProcess = ::GetCurrentProcess;
  decltype(&::CoInitialize) CoInitialize = ::CoInitialize;
  decltype(&::CoGetObject) CoGetObject = ::CoGetObject;
  decltype(&::CLSIDFromProgID) CLSIDFromProgID = ::CLSIDFromProgID;
  decltype(&::CoCreateInstance) CoCreateInstance = ::CoCreateInstance;
};

// A routine that a library exports, by name; null where it doesn't.
template <typename Routine>
Routine RoutineOf(const SystemCalls& calls, HMODULE library, const char* name) {
  return reinterpret_cast<Routine>(reinterpret_cast<void (*)()>(calls.GetProcAddress(library, name)));
}
