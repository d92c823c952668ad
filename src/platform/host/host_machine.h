// What every machine takes from the system that it runs on: standard output, message boxes, time, process, files.
//
// The machines above it add the drives. Derived classes report the outcome of each service through Outcome().
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/host_description.h"
#include "platform/host/host_file.h"
#include "platform/host/host_system.h"
#include "platform/platform.h"

struct HostSettings {
  std::string command_line;  // as typed, in the system's own encoding
  std::optional<std::uint64_t> seed;
  bool no_wait = false;    // waits only put the clock on
  std::string root = "/";  // folder, with its slash, under which the system's description is looked up
};

// The answer that a line of input gives to a box: ok, o, yes, y, no and n in any case, with blanks around them;
// anything else is Cancel, which a box with OK alone doesn't have.
int BoxAnswer(std::string_view line, int buttons);

class HostMachine : public Platform {
 public:
  explicit HostMachine(HostSettings settings) : settings_(std::move(settings)) {}

  std::string CommandLine() override { return TextOfLine(settings_.command_line); }
  std::string OriginalText(std::size_t first, std::size_t characters) override {
    return PartOfLine(settings_.command_line, first, characters);
  }
  std::uint64_t RandomSeed() override;
  void SuppressErrorBoxes() override;
  [[noreturn]] void Exit(std::int32_t level) override;
  SystemVersion Version() override { return {}; }

  Handle StandardOutput() override { return kStandardOutput; }
  bool WriteText(Handle output, std::string_view text) override;
  int ShowBox(std::string_view text, int buttons, std::string_view title) override;
  void CloseShellDialog(std::string_view title) override;

  void Wait(std::uint32_t milliseconds) override;
  std::uint32_t TickCount() override;
  std::int64_t CalendarSeconds() override;
  std::string DateTimeText() override;

  std::uint32_t LastError() override { return last_error_; }
  std::string ErrorMessage(std::uint32_t code, const MessageMode& mode) override;

  bool FindFile(const std::string& path) override;
  Handle OpenFile(const std::string& path, const OpenMode& mode) override;
  bool QueryFileSize(Handle file, std::uint64_t& bytes) override;
  bool RemoveFile(const std::string& path) override;
  std::string PathBesideProgram(const std::string& name) override;
  std::string ProgramFolder() override;
  // The services for handles of files, and Close for standard output's. A machine passes on what is none of its own.
  bool Close(Handle handle) override;
  bool Seek(Handle handle, std::int64_t position) override;
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override;
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override;
  bool Flush(Handle handle) override;

  // No program is started on behalf of a drive that is not the system's own.
  Handle StartProcess(const std::string& command) override;
  bool QueryExitCode(Handle process, std::uint32_t& code) override;

  bool BindManagement() override { return SystemDescribesItself(); }
  std::vector<std::vector<std::string>> QueryManagement(const std::string& query, bool forward_only,
                                                        const std::vector<std::string>& properties) override;
  bool ReadRegistry(const std::string& path, std::string& value) override;
  bool IsWow64() override { return false; }
  char DecimalSign() override { return SystemDecimalSign(); }

 protected:
  // Standard output's handle; what a machine opens gets higher ones.
  static constexpr Handle kStandardOutput = 1;

  // A number for what has been opened, never given twice.
  Handle NewHandle() { return next_handle_++; }
  // Sets the last error; true for success.
  bool Outcome(std::uint32_t code) {
    last_error_ = code;
    return code == kErrorNone;
  }

 private:
  // Null, with the last error set, when the handle is not that of an open file.
  HostFile* FileOf(Handle handle);
  // From here on writes to standard output fail. The system's own descriptor stays open, or a file opened later would
  // take its place and get the program's texts.
  bool CloseStandardOutput();

  HostSettings settings_;
  Handle next_handle_ = kStandardOutput + 1;
  std::map<Handle, std::unique_ptr<HostFile>> files_;
  std::uint32_t last_error_ = kErrorNone;
  bool output_closed_ = false;
  std::string last_text_;                // as it went to standard output
  std::chrono::milliseconds skipped_{};  // waits that took no time
};
