// A machine for tests: simulated drives in memory, nothing shown, no time spent, every call on a drive logged, and any
// of them made to fail.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/simulated/simulated_machine.h"
#include "support/memory_store.h"

// What Exit throws, since it can't return.
struct RunEnded {
  std::int32_t level;
};

enum class CallKind {
  kOpen,
  kClose,
  kSeek,
  kRead,
  kWrite,
  kFlush,
  kLock,
  kUnlock,
  kDismount,
  kUpdate,
  kScsi,
  kOpenFile
};

struct Call {
  CallKind kind;
  std::uint64_t lba = 0;  // of reads and writes, in units of 512 bytes, from the start of the drive or volume; files: 0
  std::uint64_t sectors = 0;  // of reads and writes
  friend bool operator==(const Call&, const Call&) = default;
};
std::ostream& operator<<(std::ostream& stream, const Call& call);

// A drive of so many bytes in memory; `traits.bytes` stays 0 for an honest one.
AttachedDrive MemoryDrive(int number, std::uint64_t bytes, DriveTraits traits = {});

class MachineDouble : public SimulatedMachine {
 public:
  // The command line is in UTF-8.
  explicit MachineDouble(std::vector<AttachedDrive> drives, std::string command_line = "");

  // Lets the n-th call of that kind from now on (the first is 1) fail with `code`, and with `from_there_on` every later
  // one too. A call that fails so moves and changes nothing.
  void FailCall(CallKind kind, int n, std::uint32_t code, bool from_there_on = false);
  // The logged calls of one kind.
  std::vector<Call> CallsOf(CallKind kind) const;
  // Bytes of a drive, past the handles and the log.
  std::vector<std::uint8_t> DriveBytes(int number, std::uint64_t lba, std::uint64_t sectors);
  void SetDriveBytes(int number, std::uint64_t lba, const std::vector<std::uint8_t>& bytes);

  std::string console;             // all that went to standard output
  std::vector<std::string> boxes;  // texts of the message boxes
  std::deque<int> answers;         // to the next boxes; OK when it is empty
  std::uint64_t waited = 0;        // milliseconds
  SystemVersion version{};
  std::uint32_t drive_type = 0;  // of every root; 0: as it is
  // The statuses that the format service gives in place of a format; without them it is the simulated machine's.
  std::optional<std::vector<std::uint32_t>> format_statuses;
  std::vector<std::string> formats;      // what the service was asked for: root, media, file system, label
  std::vector<std::string> started;      // command lines of other programs
  std::deque<std::uint32_t> exit_codes;  // as polls see them in turn; behind the last they fail
  bool starts = true;                    // whether other programs do
  std::vector<Call> calls;               // in order, failed ones too

  // The clock, in milliseconds, and what each read and write takes of it.
  std::uint64_t clock = 0;
  std::uint32_t transfer_time = 0;
  // What the machine says of itself: the objects that queries find, with their properties; no value, no management
  // service. The registry by full path.
  using Object = std::map<std::string, std::string>;
  std::optional<std::map<std::string, std::vector<Object>>> objects;
  std::map<std::string, std::string> registry;
  bool wow64 = false;
  char decimal_sign = '.';
  std::string program_folder = ".";

  [[noreturn]] void Exit(std::int32_t level) override { throw RunEnded{level}; }
  bool WriteText(Handle output, std::string_view text) override;
  int ShowBox(std::string_view text, int buttons, std::string_view title) override;
  void CloseShellDialog(std::string_view /*title*/) override {}
  void Wait(std::uint32_t milliseconds) override { waited += milliseconds; }
  SystemVersion Version() override { return version; }
  std::uint32_t DriveType(const std::string& root) override {
    return drive_type != 0 ? drive_type : SimulatedMachine::DriveType(root);
  }
  void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                    const std::string& label, const FormatCallback& callback) override;
  Handle StartProcess(const std::string& command) override;
  bool QueryExitCode(Handle process, std::uint32_t& code) override;
  std::uint32_t TickCount() override { return static_cast<std::uint32_t>(clock); }
  std::int64_t CalendarSeconds() override { return static_cast<std::int64_t>(clock / 1000); }
  std::string DateTimeText() override { return "2024-01-02 03:04:05"; }
  std::string PathBesideProgram(const std::string& name) override { return program_folder + "/" + name; }
  std::string ProgramFolder() override { return program_folder; }
  bool BindManagement() override { return objects.has_value(); }
  std::vector<std::vector<std::string>> QueryManagement(const std::string& query, bool forward_only,
                                                        const std::vector<std::string>& properties) override;
  bool ReadRegistry(const std::string& path, std::string& value) override;
  bool IsWow64() override { return wow64; }
  char DecimalSign() override { return decimal_sign; }

  Handle Open(const std::string& path, const OpenMode& mode) override;
  Handle OpenFile(const std::string& path, const OpenMode& mode) override;
  bool Close(Handle handle) override;
  bool Seek(Handle handle, std::int64_t position) override;
  bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) override;
  bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) override;
  bool Flush(Handle handle) override;
  bool Control(Handle handle, ControlCode code) override;
  bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) override;

 protected:
  // Logs the call; false when it is to fail, with the last error set.
  virtual bool Enter(const Call& call);

 private:
  struct Fault {
    int calls_left;
    std::uint32_t code;
    bool from_there_on;
  };

  Call TransferCall(CallKind kind, Handle handle, std::size_t bytes);

  std::map<CallKind, Fault> faults_;
};
