// The recorder in place of the system's calls: writes down each call with its arguments, in order, and answers for a
// small world.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/windows/windows_machine.h"

// There is one for the process, since calls are plain routines.
struct Recorder {
  // Each "Name(arguments)": numbers in hexadecimal, pointers as "null" or what they point to, input bytes as pairs of
  // digits without the zeros at their end. Calls that open have " = handle" behind them.
  std::vector<std::string> calls;

  // What the calls answer. Every call that fails leaves `error`.
  DWORD error = ERROR_FILE_NOT_FOUND;
  std::set<std::string> failing;                       // calls by name, control codes as "DeviceIoControl 90018"
  std::map<std::string, std::uint8_t> devices;         // names that can be opened, with the disk number behind them
  std::map<HANDLE, std::string> open;                  // by what name
  unsigned next_handle = 0x10;                         // the next one is 0x10 more
  std::map<unsigned, std::vector<std::uint8_t>> scsi;  // replies by the command's first two bytes, as 0x1201
  std::uint8_t bus = kBusTypeUsb;
  std::uint64_t length = 0;           // of any drive or file, in bytes
  const void* transferred = nullptr;  // the buffer of the last transfer
  std::vector<std::string> volumes;   // system names still to come
  std::set<std::string> roots;        // that are known
  UINT drive_type = DRIVE_REMOVABLE;  // of those
  std::string open_dialog;            // its title
  int box_answer = IDOK;
  std::vector<DWORD> exit_codes;       // of a process, as polls see them
  std::vector<ULONG> format_statuses;  // that FormatEx calls back with
  std::vector<ULONG> format_answers;   // and what it gets for them
  DWORD file_type = FILE_TYPE_DISK;
  IDispatch* management = nullptr;  // behind the moniker
  IDispatch* shell = nullptr;       // of the shell's class
};
inline Recorder recorder;

// The calls, all of them recorded. ExitProcess throws RunEnded.
SystemCalls RecordingCalls();
