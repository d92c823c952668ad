#include "fuzz/targets.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "cli/option_model.h"
#include "console/console.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "partition/table_reader.h"
#include "platform/host/host_options.h"
#include "support/program.h"
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
  constexpr std::uint64_t kDriveBytes = 20ULL << 20;
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, kDriveBytes));
  MachineDouble machine(std::move(drives), "NOWRITE DRIVE=1 " + std::string(bytes.begin(), bytes.end()));
  RunMain(machine);
  Require(machine.CallsOf(CallKind::kWrite).empty());
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
