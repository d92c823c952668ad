#include "fuzz/targets.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/command_line.h"
#include "cli/option_model.h"
#include "console/console.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "partition/table_reader.h"
#include "platform/host/host_options.h"
#include "support/program.h"
#include "support/run.h"
#include "transfer/boot_record_text.h"
#include "transfer/position_expression.h"

namespace {

constexpr std::uint32_t kHeaderBytes = 3072;

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// The bytes as what the last transfer brought into a buffer of six sectors.
void FillBuffer(MachineDouble& machine, FuzzBytes bytes) {
  ResetProgram(machine);
  OptSure = true;
  DriveReportedBytes = 1ULL << 40;
  const std::size_t count = std::min<std::size_t>(bytes.size(), kHeaderBytes);
  SectorBuffer.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
  LastTransferBytes = static_cast<std::uint32_t>(count);
}

// Runs an evaluator, which may end the run with level 6.
template <typename Evaluator>
void Evaluate(Evaluator evaluator) {
  try {
    WholePart(evaluator());
  } catch (const RunEnded& end) {
    Require(end.level == kLevelOperational);
  }
}

// Drive 1 for a whole run, and a drive 2 that nobody may write to unless the line names it. Whatever path a line gives,
// it is that of one file in a folder of the fuzzer's own.
constexpr std::uint64_t kDriveBytes = 20ULL << 20;

class Bystander : public MemoryStore {
 public:
  using MemoryStore::MemoryStore;
  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes) override {
    Require(DriveNumber == 2);
    return MemoryStore::Write(position, bytes);
  }
};

std::vector<AttachedDrive> TwoDrives() {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, kDriveBytes));
  auto store = std::make_unique<Bystander>(kDriveBytes);
  drives.push_back({2, std::make_unique<SimulatedDrive>(DriveTraits{}, std::move(store))});
  return drives;
}

class ConfinedMachine : public MachineDouble {
 public:
  ConfinedMachine(const std::string& line, FuzzBytes file) : MachineDouble(TwoDrives(), line) {
    static const ScratchFolder folder;
    file_ = folder.File("file");
    RemoveFile(file_);
    WriteBytes(file_, 0, {reinterpret_cast<const char*>(file.data()), file.size()});
    program_folder = folder.File("");
    format_statuses = {0x0B};
  }

  bool FindFile(const std::string& /*path*/) override { return MachineDouble::FindFile(file_); }
  Handle OpenFile(const std::string& /*path*/, const OpenMode& mode) override {
    return MachineDouble::OpenFile(file_, mode);
  }
  bool RemoveFile(const std::string& /*path*/) override { return MachineDouble::RemoveFile(file_); }

 private:
  std::string file_;
};

// A run ends with a level, if only with the size that a test recommends; what nobody may write stays.
void RunConfined(ConfinedMachine& machine) {
  Require(RunMain(machine) >= 0);
  Require(!OptNoWrite || machine.CallsOf(CallKind::kWrite).empty() || CmdLine.find("SPEEDTEST") != std::string::npos);
}

// Cuts what stands in front of the first zero byte off the bytes.
std::string TakeText(FuzzBytes& bytes) {
  const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
  const std::string text(bytes.begin(), end);
  bytes = bytes.subspan(std::min(text.size() + 1, bytes.size()));
  return text;
}

// A device that lies: each answer to a command is the next of the bytes, behind one that tells how many there are.
class LyingMachine : public ConfinedMachine {
 public:
  LyingMachine(const std::string& line, FuzzBytes answers) : ConfinedMachine(line, {}), answers_(answers) {}

  bool ScsiCommand(Handle /*handle*/, ConstByteSpan /*cdb*/, ByteSpan data, std::uint32_t& returned) override {
    const FuzzBytes length = Take(1);
    const FuzzBytes answer = Take(length.empty() ? 0 : std::min<std::size_t>(length[0], data.size()));
    std::copy(answer.begin(), answer.end(), data.begin());
    returned = static_cast<std::uint32_t>(answer.size());
    return Outcome(answers_.empty() ? kErrorIoDevice : kErrorNone);
  }

 private:
  FuzzBytes Take(std::size_t count) {
    const FuzzBytes taken = answers_.first(std::min(count, answers_.size()));
    answers_ = answers_.subspan(taken.size());
    return taken;
  }

  FuzzBytes answers_;
};

void EvaluateEach(const std::string& expression) {
  Evaluate([&] { return EvalDriveStart(expression); });
  Evaluate([&] { return EvalDriveLength(expression, LeadingNumber(expression)); });
  Evaluate([&] { return EvalFileStart("FILE", expression); });
  Evaluate([&] { return EvalFileLength("FILE", expression, LeadingNumber(expression)); });
}

}  // namespace

void FuzzExtents(FuzzBytes bytes) {
  MachineDouble machine({});
  FillBuffer(machine, bytes);
  PartitionExtents extents{};
  ReadPartitionExtents(extents);
  ExtentsText(extents);
  for (const char* name : {"P1", "P2", "P3", "P4", "P5", "P6", "P7", "P8", "PEXT", "PALL", "DALL", "MBR+"}) {
    EvaluateEach(name);
  }
}

void FuzzTableText(FuzzBytes bytes) {
  MachineDouble machine({});
  FillBuffer(machine, bytes);
  Require(PartitionTableText().find("MBR Partition 4") != std::string::npos);
}

void FuzzBootRecord(FuzzBytes bytes) {
  MachineDouble machine({});
  FillBuffer(machine, bytes);
  BootRecordText();
}

void FuzzExpression(FuzzBytes bytes) {
  MachineDouble machine({});
  std::vector<std::uint8_t> table(kHeaderBytes);
  for (std::size_t slot = 0; slot < 4; ++slot) {
    table[0x1BE + 16 * slot + 4] = slot == 3 ? 0x0F : 0x0C;
    table[0x1BE + 16 * slot + 9] = static_cast<std::uint8_t>(1 + slot);
    table[0x1BE + 16 * slot + 12] = 100;
  }
  table[0x1FE] = 0x55;
  table[0x1FF] = 0xAA;
  FillBuffer(machine, table);
  EvaluateEach(std::string(bytes.begin(), bytes.end()));
}

void FuzzCommandLine(FuzzBytes bytes) {
  ConfinedMachine machine("NOWRITE DRIVE=1 " + std::string(bytes.begin(), bytes.end()), {});
  RunMain(machine);
  Require(machine.CallsOf(CallKind::kWrite).empty() || CmdLine.find("SPEEDTEST") != std::string::npos);
}

void FuzzScsiAnswers(FuzzBytes bytes) {
  const std::string line = TakeText(bytes);
  LyingMachine machine(line, bytes);
  RunConfined(machine);
}

void FuzzWholeRun(FuzzBytes bytes) {
  constexpr std::size_t kSector = 512;
  const std::string line = TakeText(bytes);
  ConfinedMachine machine(line, bytes);
  std::vector<std::uint8_t> sectors(bytes.begin(), bytes.end());
  sectors.resize((sectors.size() + kSector - 1) / kSector * kSector);
  machine.SetDriveBytes(1, 0, sectors);
  RunConfined(machine);
}

void FuzzHostOptions(FuzzBytes bytes) {
  std::vector<std::string> arguments(1);
  for (const std::uint8_t byte : bytes) {
    if (byte == 0) {
      arguments.emplace_back();
    } else {
      arguments.back() += static_cast<char>(byte);
    }
  }
  HostOptions options;
  std::string problem;
  Require(ParseHostOptions(arguments, options, problem) != !problem.empty());
  JoinCommandLine(arguments, std::min(options.consumed, arguments.size()));
}
