// What every machine takes from the system that it runs on: standard output, message boxes, time, process.
//
// The machines above it add the drives. Derived classes report the outcome of each service through Outcome().
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

struct HostSettings {
  std::string command_line;  // code page 1252
  std::optional<std::uint64_t> seed;
  bool no_wait = false;  // waits only put the clock on
};

// The answer that a line of input gives to a box: ok, o, yes, y, no and n in any case, with blanks around them;
// anything else is Cancel, which a box with OK alone doesn't have.
int BoxAnswer(std::string_view line, int buttons);

class HostMachine : public Platform {
 public:
  explicit HostMachine(HostSettings settings) : settings_(std::move(settings)) {}

  std::string CommandLine() override { return settings_.command_line; }
  std::uint64_t RandomSeed() override;
  void SuppressErrorBoxes() override;
  [[noreturn]] void Exit(std::int32_t level) override;
  SystemVersion Version() override { return {}; }

  Handle StandardOutput() override { return kStandardOutput; }
  bool WriteText(Handle output, std::string_view text) override;
  int ShowBox(std::string_view text, int buttons, std::string_view title) override;
  void CloseShellDialog(std::string_view title) override;

  void Wait(std::uint32_t milliseconds) override;
  std::string DateTimeText() override;

  std::uint32_t LastError() override { return last_error_; }
  std::string ErrorMessage(std::uint32_t code) override;

 protected:
  // Standard output's handle; what a machine opens gets higher ones.
  static constexpr Handle kStandardOutput = 1;

  // Sets the last error; true for success.
  bool Outcome(std::uint32_t code) {
    last_error_ = code;
    return code == kErrorNone;
  }
  // From here on writes to standard output fail. The system's own descriptor stays open, or a file opened later would
  // take its place and get the program's texts.
  bool CloseStandardOutput();

 private:
  HostSettings settings_;
  std::uint32_t last_error_ = kErrorNone;
  bool output_closed_ = false;
  std::string last_text_;                // as it went to standard output
  std::chrono::milliseconds skipped_{};  // waits that took no time
};
