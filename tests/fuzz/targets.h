// What the fuzzers drive: routines that take any bytes and must neither crash, hang nor overrun.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

using FuzzBytes = std::span<const std::uint8_t>;

// The bytes as the start of a drive: extents and their text, the four evaluators asked for every name.
void FuzzExtents(FuzzBytes bytes);
// The bytes as a master boot record: the table's text.
void FuzzTableText(FuzzBytes bytes);
// The bytes as a boot record.
void FuzzBootRecord(FuzzBytes bytes);
// The bytes as an expression, on a table that has everything.
void FuzzExpression(FuzzBytes bytes);
// The bytes as a command line, on a machine with a small drive; nothing may be written with NOWRITE in it.
void FuzzCommandLine(FuzzBytes bytes);
// The bytes as a command line, a zero byte, and a device's answers to SCSI commands.
void FuzzScsiAnswers(FuzzBytes bytes);
// The bytes as a command line, a zero byte, and the start of drive 1 and of every file.
void FuzzWholeRun(FuzzBytes bytes);
// The bytes as host options, separated by zero bytes.
void FuzzHostOptions(FuzzBytes bytes);

struct FuzzTarget {
  std::string_view name;  // of its folder in the corpus
  void (*run)(FuzzBytes bytes);
};
inline constexpr std::array kFuzzTargets{
    FuzzTarget{"boot_record", FuzzBootRecord},   FuzzTarget{"command_line", FuzzCommandLine},
    FuzzTarget{"expression", FuzzExpression},    FuzzTarget{"extents", FuzzExtents},
    FuzzTarget{"host_options", FuzzHostOptions}, FuzzTarget{"scsi_answers", FuzzScsiAnswers},
    FuzzTarget{"table_text", FuzzTableText},     FuzzTarget{"whole_run", FuzzWholeRun},
};
