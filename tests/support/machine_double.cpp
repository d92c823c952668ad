#include "support/machine_double.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace {

constexpr std::uint64_t kSectorBytes = 512;

constexpr std::array<const char*, 12> kKindNames = {"open", "close",  "seek",     "read",   "write", "flush",
                                                    "lock", "unlock", "dismount", "update", "scsi",  "open file"};

CallKind KindOf(ControlCode code) {
  switch (code) {
    case ControlCode::kLockVolume:
      return CallKind::kLock;
    case ControlCode::kUnlockVolume:
      return CallKind::kUnlock;
    case ControlCode::kDismountVolume:
      return CallKind::kDismount;
    default:
      return CallKind::kUpdate;
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Call& call) {
  return stream << kKindNames[static_cast<std::size_t>(call.kind)] << " " << call.lba << "+" << call.sectors;
}

AttachedDrive MemoryDrive(int number, std::uint64_t bytes, DriveTraits traits) {
  return {number, std::make_unique<SimulatedDrive>(std::move(traits), std::make_unique<MemoryStore>(bytes))};
}

MachineDouble::MachineDouble(std::vector<AttachedDrive> drives, std::string command_line)
    : SimulatedMachine({std::move(command_line), /*seed=*/1, /*no_wait=*/true}, std::move(drives)) {}

void MachineDouble::FailCall(CallKind kind, int n, std::uint32_t code, bool from_there_on) {
  faults_[kind] = {n, code, from_there_on};
}

bool MachineDouble::Enter(const Call& call) {
  calls.push_back(call);
  const auto found = faults_.find(call.kind);
  if (found == faults_.end()) {
    return true;
  }
  Fault& fault = found->second;
  --fault.calls_left;
  const bool fails = fault.calls_left == 0 || (fault.from_there_on && fault.calls_left < 0);
  return !fails || Outcome(fault.code);
}

Call MachineDouble::TransferCall(CallKind kind, Handle handle, std::size_t bytes) {
  const OpenItem* item = ItemOf(handle);
  return {kind, item == nullptr ? 0 : item->position / kSectorBytes, bytes / kSectorBytes};
}

std::vector<Call> MachineDouble::CallsOf(CallKind kind) const {
  std::vector<Call> found;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
               [=](const Call& call) { return call.kind == kind; });
  return found;
}

std::vector<std::uint8_t> MachineDouble::DriveBytes(int number, std::uint64_t lba, std::uint64_t sectors) {
  std::vector<std::uint8_t> bytes(sectors * kSectorBytes);
  if (DriveOf(number)->Read(lba * kSectorBytes, bytes) != kErrorNone) {
    throw std::runtime_error("the drive can't be read there");
  }
  return bytes;
}

void MachineDouble::SetDriveBytes(int number, std::uint64_t lba, const std::vector<std::uint8_t>& bytes) {
  if (DriveOf(number)->Write(lba * kSectorBytes, bytes) != kErrorNone) {
    throw std::runtime_error("the drive can't be written there");
  }
}

bool MachineDouble::WriteText(Handle /*output*/, std::string_view text) {
  console += text;
  return Outcome(kErrorNone);
}

int MachineDouble::ShowBox(std::string_view text, int /*buttons*/, std::string_view /*title*/) {
  boxes.emplace_back(text);
  if (answers.empty()) {
    return kAnswerOk;
  }
  const int answer = answers.front();
  answers.pop_front();
  return answer;
}

void MachineDouble::FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                                 const std::string& label, const FormatCallback& callback) {
  formats.push_back(root + " " + std::to_string(media) + " " + file_system + " " + label);
  if (!format_statuses) {
    SimulatedMachine::FormatVolume(root, media, file_system, label, callback);
    return;
  }
  for (const std::uint32_t status : *format_statuses) {
    callback(status, 0, 0);
  }
}

Handle MachineDouble::StartProcess(const std::string& command) {
  started.push_back(command);
  return starts ? NewHandle() : kInvalidHandle;
}

bool MachineDouble::QueryExitCode(Handle /*process*/, std::uint32_t& code) {
  if (exit_codes.empty()) {
    return false;
  }
  code = exit_codes.front();
  exit_codes.pop_front();
  return true;
}

std::vector<std::vector<std::string>> MachineDouble::QueryManagement(const std::string& query, bool /*forward_only*/,
                                                                     const std::vector<std::string>& properties) {
  std::vector<std::vector<std::string>> rows;
  for (Object& object : (*objects)[query]) {
    std::vector<std::string>& row = rows.emplace_back();
    std::transform(properties.begin(), properties.end(), std::back_inserter(row),
                   [&](const std::string& property) { return object[property]; });
  }
  return rows;
}

bool MachineDouble::ReadRegistry(const std::string& path, std::string& value) {
  const auto found = registry.find(path);
  if (found == registry.end()) {
    return Outcome(kErrorFileNotFound);
  }
  value = found->second;
  return Outcome(kErrorNone);
}

Handle MachineDouble::Open(const std::string& path, const OpenMode& mode) {
  return Enter({CallKind::kOpen}) ? SimulatedMachine::Open(path, mode) : kInvalidHandle;
}

Handle MachineDouble::OpenFile(const std::string& path, const OpenMode& mode) {
  return Enter({CallKind::kOpenFile}) ? SimulatedMachine::OpenFile(path, mode) : kInvalidHandle;
}

bool MachineDouble::Close(Handle handle) { return Enter({CallKind::kClose}) && SimulatedMachine::Close(handle); }

bool MachineDouble::Seek(Handle handle, std::int64_t position) {
  return Enter({CallKind::kSeek}) && SimulatedMachine::Seek(handle, position);
}

bool MachineDouble::Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  clock += transfer_time;
  return Enter(TransferCall(CallKind::kRead, handle, buffer.size())) && SimulatedMachine::Read(handle, buffer, moved);
}

bool MachineDouble::Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  clock += transfer_time;
  return Enter(TransferCall(CallKind::kWrite, handle, buffer.size())) && SimulatedMachine::Write(handle, buffer, moved);
}

bool MachineDouble::Flush(Handle handle) { return Enter({CallKind::kFlush}) && SimulatedMachine::Flush(handle); }

bool MachineDouble::Control(Handle handle, ControlCode code) {
  return Enter({KindOf(code)}) && SimulatedMachine::Control(handle, code);
}

bool MachineDouble::ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) {
  returned = 0;
  return Enter({CallKind::kScsi}) && SimulatedMachine::ScsiCommand(handle, cdb, data, returned);
}
