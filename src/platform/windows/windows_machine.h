// The machine with the drives of a Windows system: each service is one call of the system, or the few that go with it.
//
// Handles are the system's own. They have 32 significant bits in programs of 64 bits too, and
// kInvalidHandle is INVALID_HANDLE_VALUE.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/host/host_machine.h"
#include "platform/windows/management.h"
#include "platform/windows/system_calls.h"

class WindowsMachine : public HostMachine {
 public:
  explicit WindowsMachine(HostSettings settings, const SystemCalls& calls = {})
      : HostMachine(std::move(settings)), calls_(calls), management_(calls) {}

  // --- windows_machine.cpp: the run, console, time, errors
  void SuppressErrorBoxes() override;
  [[noreturn]] void Exit(std::int32_t level) override;
  SystemVersion Version() override;
  Handle StandardOutput() override;
  bool WriteText(Handle output, std::string_view text) override;
  int ShowBox(std::string_view text, int buttons, std::string_view title) override;
  void CloseShellDialog(std::string_view title) override;
  void Wait(std::uint32_t milliseconds) override;
  std::uint32_t TickCount() override;
  std::string ErrorMessage(std::uint32_t code, const MessageMode& mode) override;

  // --- windows_drives.cpp
  Handle Open(const std::string& path, const OpenMode& mode) override;
  bool Close(Handle handle) override;
  bool Seek(Handle handle, std::int64_t position) override;
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override;
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override;
  bool Flush(Handle handle) override;
  bool LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) override;
  bool Control(Handle handle, ControlCode code) override;
  bool QueryDeviceNumber(Handle handle, DeviceNumber& answer) override;
  bool QueryLength(Handle handle, std::uint64_t& bytes) override;
  bool QueryBusType(Handle handle, std::uint8_t& bus) override;
  bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) override;

  // --- windows_files.cpp
  bool FindFile(const std::string& path) override;
  Handle OpenFile(const std::string& path, const OpenMode& mode) override;
  bool QueryFileSize(Handle file, std::uint64_t& bytes) override;
  bool RemoveFile(const std::string& path) override;

  // --- windows_volumes.cpp
  Handle FirstVolume(std::string& name) override;
  bool NextVolume(Handle search, std::string& name) override;
  void EndVolumes(Handle search) override;
  bool MountVolume(const std::string& root, const std::string& name) override;
  std::uint32_t DriveType(const std::string& root) override;
  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override;
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override;

  // --- windows_programs.cpp: other programs and the machine itself
  Handle StartProcess(const std::string& command) override;
  bool QueryExitCode(Handle process, std::uint32_t& code) override;
  bool BindManagement() override;
  std::vector<std::vector<std::string>> QueryManagement(const std::string& query, bool forward_only,
                                                        const std::vector<std::string>& properties) override;
  bool ReadRegistry(const std::string& path, std::string& value) override;
  bool IsWow64() override;

 private:
  // Sets the last error from what a call returned; true for success.
  bool Succeeded(BOOL result) {
    Outcome(result != 0 ? ERROR_SUCCESS : calls_.GetLastError());
    return result != 0;
  }
  // The same for what opens: the handle, or kInvalidHandle.
  Handle Opened(HANDLE opened);
  // A control code with an answer of at most `answer_bytes`.
  bool Ask(Handle handle, DWORD code, ConstByteSpan question, void* answer, std::size_t answer_bytes);

  SystemCalls calls_;
  // Searches for volumes are pointers, unlike other handles, and may need all 64 bits.
  std::map<Handle, HANDLE> searches_;
  // The first threads of started programs, closed with them.
  std::map<Handle, HANDLE> threads_;
  Management management_;
};

inline HANDLE SystemHandle(Handle handle) { return LongToHandle(handle); }
inline Handle HandleOf(HANDLE handle) { return HandleToLong(handle); }
