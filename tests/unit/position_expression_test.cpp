#include "transfer/position_expression.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "discovery/identification.h"
#include "disk/sector_io.h"
#include "platform/byte_order.h"
#include "support/program.h"
#include "support/run.h"
#include "transfer/file_header.h"

namespace {

constexpr int kRefused = -1'000'000;

struct TableEntry {
  std::uint8_t type;
  std::uint32_t first;
  std::uint32_t sectors;
};

// An MBR with these entries, in order.
std::vector<std::uint8_t> Mbr(const std::vector<TableEntry>& entries) {
  std::vector<std::uint8_t> sector(3072);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    std::uint8_t* entry = &sector[0x1BE + 16 * i];
    entry[4] = entries[i].type;
    Store32(entry + 8, entries[i].first);
    Store32(entry + 12, entries[i].sectors);
  }
  sector[0x1FE] = 0x55;
  sector[0x1FF] = 0xAA;
  return sector;
}

const std::vector<std::uint8_t> kTwoPrimaries = Mbr({{0x0C, 2048, 1000}, {0x07, 5000, 3000}});
const std::vector<std::uint8_t> kWithExtended =
    Mbr({{0x0C, 2048, 1000}, {0x0C, 4000, 100}, {0x0C, 4200, 100}, {0x0F, 100, 50'000}});
const std::vector<std::uint8_t> kExtendedAlone = Mbr({{0x05, 300, 1000}});
const std::vector<std::uint8_t> kNoTable(3072);

// What an evaluator gives for a table in SectorBuffer, or kRefused when it ends the run with level 6.
template <typename Evaluator>
double Evaluate(const std::vector<std::uint8_t>& table, Evaluator evaluator, std::string* console = nullptr) {
  MachineDouble machine({});
  ResetProgram(machine);
  OptSure = true;
  DriveNumber = 7;
  DriveReportedBytes = 1'000'000 * 512;
  SectorBuffer.assign(table.begin(), table.end());
  LastTransferBytes = 3072;
  double value = kRefused;
  try {
    value = evaluator();
  } catch (const RunEnded& end) {
    EXPECT_EQ(end.level, 6);
  }
  if (console != nullptr) {
    *console = machine.console;
  }
  return value;
}

TEST(PlainNumber, IsTakenWhole) {
  for (const char* text : {"0", "12", "-5", "+5", "1.5", ".5", "5.", "1E3", "1.5E-3", "007"}) {
    EXPECT_TRUE(IsPlainNumber(text)) << text;
  }
  for (const char* text : {"", "-", ".", "1,000", "0x10", "1E", "E3", "1.2.3", "5KB", "--5", "INF", "NAN", "1 "}) {
    EXPECT_FALSE(IsPlainNumber(text)) << text;
  }
  EXPECT_EQ(LeadingNumber("1.5MB"), 1.5);
  EXPECT_EQ(LeadingNumber("MB"), 0);
  EXPECT_EQ(LeadingNumber("2EXT"), 2);
  EXPECT_EQ(WholePart(LeadingNumber("1E999")), INT64_MAX);
  EXPECT_EQ(WholePart(LeadingNumber("-1E999")), INT64_MIN);
}

TEST(EvalDriveStart, KnowsItsForms) {
  const struct {
    const std::vector<std::uint8_t>& table;
    std::string expression;
    double sectors;
  } cases[] = {
      {kNoTable, "2048", 2048},
      {kNoTable, "1.5MB", 3072},
      {kNoTable, "2GB", 4'194'304},
      {kNoTable, "10sec", 10},
      {kNoTable, "MBR", 0},
      {kNoTable, "DALL", 0},
      {kNoTable, "P1", kRefused},
      {kNoTable, "NOTHING", kRefused},
      {kTwoPrimaries, "P1", 2048},
      {kTwoPrimaries, "P2", 5000},
      {kTwoPrimaries, "P3", kRefused},
      {kTwoPrimaries, "NOTHING", 0},
      {kTwoPrimaries, "12X", 12},
      {kTwoPrimaries, "PALL", 2048},
      {kTwoPrimaries, "PEXT", kRefused},
      {kWithExtended, "EXT", 100},
      {kWithExtended, "PALL", kRefused},
      {kNoTable, "-5", -5},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Evaluate(row.table, [&] { return EvalDriveStart(row.expression); }), row.sectors) << row.expression;
  }
  std::string console;
  Evaluate(
      kNoTable, [] { return EvalDriveStart("P1"); }, &console);
  EXPECT_EQ(console, "\r\nInvalid partition table on drive 7\r\n\r\n");
}

TEST(EvalDriveLength, KnowsItsForms) {
  const struct {
    const std::vector<std::uint8_t>& table;
    std::string expression;
    double start, sectors;
  } cases[] = {
      {kNoTable, "1024", 0, 2},
      {kNoTable, "1025", 0, 3},
      {kNoTable, "0", 0, 0},
      {kNoTable, "MBR", 9, 1},
      {kNoTable, "1.5SEC", 0, 1.5},
      {kNoTable, "DALL", 100, 999'900},
      {kNoTable, "DALL", 1'000'000, kRefused},
      {kNoTable, "MBR+", 0, kRefused},
      {kTwoPrimaries, "MBR+", 500, 2048},
      {kWithExtended, "MBR+", 0, 100},
      {kTwoPrimaries, "P1", 2048, 1000},
      {kTwoPrimaries, "P1", 0, 3048},
      {kTwoPrimaries, "P3", 0, 1},
      {kTwoPrimaries, "P3", 1, kRefused},
      {kTwoPrimaries, "PALL", 1000, 7000},
      {kWithExtended, "PALL", 100, 50'000},
      {kTwoPrimaries, "PALL", 9000, 1},  // the span of the table's own pair, 0 to 0
      {kTwoPrimaries, "NOTHING", 0, kRefused},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Evaluate(row.table, [&] { return EvalDriveLength(row.expression, row.start); }), row.sectors)
        << row.expression << " from " << row.start;
  }
}

TEST(EvalFileStart, KnowsItsForms) {
  const struct {
    const std::vector<std::uint8_t>& table;
    std::string expression;
    double bytes;
  } cases[] = {
      {kNoTable, "1000", 1000},          {kNoTable, "2SEC", 1024},        {kNoTable, "MBR+", 0},
      {kNoTable, "1KB", 1024},           {kNoTable, "DALL", kRefused},    {kTwoPrimaries, "DALL", 0},
      {kTwoPrimaries, "P2", 2'560'000},  {kTwoPrimaries, "P7", kRefused}, {kTwoPrimaries, "PALL", 1'048'576},
      {kWithExtended, "PALL", kRefused}, {kWithExtended, "PEXT", 51'200},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Evaluate(row.table, [&] { return EvalFileStart("A.BIN", row.expression); }), row.bytes) << row.expression;
  }
  std::string console;
  Evaluate(
      kNoTable, [] { return EvalFileStart("A.BIN", "P1"); }, &console);
  EXPECT_EQ(console, "\r\nRequested partition table entry in file A.BIN not found!\r\n\r\n");
}

TEST(EvalFileLength, KnowsItsForms) {
  const struct {
    const std::vector<std::uint8_t>& table;  // of the file, which has 10,000 bytes
    std::string expression;
    double start, bytes;
  } cases[] = {
      {kNoTable, "1", 0, 1},
      {kNoTable, "MBR", 100, 512},
      {kNoTable, "2KB", 0, 2048},
      {kNoTable, "0", 1000, 9000},
      {kNoTable, "P1", 0, kRefused},
      {kNoTable, "DALL", 512, 511'999'488},
      {kTwoPrimaries, "P1", 0, 3048 * 512},
      {kTwoPrimaries, "P1", 2048 * 512, 1000 * 512},
      {kTwoPrimaries, "P3", 0, kRefused},
      {kTwoPrimaries, "MBR+", 0, 2048 * 512},
      {kWithExtended, "MBR+", 0, 100 * 512},
      {kExtendedAlone, "MBR+", 0, 300 * 512},
      {kNoTable, "MBR+", 0, kRefused},
      {kTwoPrimaries, "PALL", 512, 7999 * 512},
      {kWithExtended, "PALL", 0, 50'100 * 512},
  };
  const ScratchFolder folder;
  for (const auto& row : cases) {
    const std::string file = folder.File("table.bin");
    SetFileSize(file, 10'000);
    WriteBytes(file, 0, std::string(row.table.begin(), row.table.end()));
    const double bytes = Evaluate(kNoTable, [&] {
      FileName = "TABLE.BIN";
      FilePath = file;
      return EvalFileLength("TABLE.BIN", row.expression, row.start);
    });
    EXPECT_EQ(bytes, row.bytes) << row.expression << " from " << row.start;
  }
}

}  // namespace
