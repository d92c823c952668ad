#include "platform/simulated/simulated_drive.h"

#include <gtest/gtest.h>

#include <string>

#include "support/memory_store.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kSector = 512;

SimulatedDrive MakeDrive(std::uint64_t store_bytes, DriveTraits traits = {}) {
  return {std::move(traits), std::make_unique<MemoryStore>(store_bytes)};
}

// Writes one sector full of `value`.
ErrorCode Mark(SimulatedDrive& drive, std::uint64_t sector, std::uint8_t value) {
  return drive.Write(sector * kSector, Bytes(kSector, value));
}

// The value that a sector is full of; 256 where it is not full of one, 999 where the read fails.
int Marked(SimulatedDrive& drive, std::uint64_t sector) {
  Bytes bytes(kSector, 0xEE);
  if (drive.Read(sector * kSector, bytes) != kErrorNone) {
    return 999;
  }
  return bytes == Bytes(kSector, bytes[0]) ? bytes[0] : 256;
}

// The answer to a command in a buffer that held 0xAA; empty when the command is refused.
std::string Answer(const SimulatedDrive& drive, const Bytes& cdb) {
  Bytes data(192, 0xAA);
  std::uint32_t returned = 0;
  const bool done = drive.Scsi(cdb, data, returned);
  EXPECT_EQ(done, returned > 0);
  EXPECT_EQ(returned < data.size() ? data[returned] : 0xAA, 0xAA);
  return {data.begin(), data.begin() + returned};
}

const Bytes kReadCapacity = {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes kInquiry = {0x12, 0, 0, 0x03, 0xFC, 0};
const Bytes kSerialInquiry = {0x12, 0x01, 0x80, 0x03, 0xFC, 0};

}  // namespace

TEST(SimulatedDrive, TransfersMoveEverythingOrNothing) {
  DriveTraits traits;
  traits.bad_reads = {{20, 21}, {30, 30}};
  traits.bad_writes = {{22, 22}, {30, 30}};
  SimulatedDrive drive = MakeDrive(100 * kSector, traits);
  const struct {
    const char* label;
    std::uint64_t position;
    std::size_t bytes;
    ErrorCode read, write;
  } rows[] = {
      {"the last sector", 99 * kSector, kSector, kErrorNone, kErrorNone},
      {"one over the end", 99 * kSector, 2 * kSector, kErrorSectorNotFound, kErrorSectorNotFound},
      {"far behind the end", ~std::uint64_t{511}, kSector, kErrorSectorNotFound, kErrorSectorNotFound},
      {"half a sector", 0, 256, kErrorInvalidParameter, kErrorInvalidParameter},
      {"a byte off", 1, kSector, kErrorInvalidParameter, kErrorInvalidParameter},
      {"up to the bad ones", 10 * kSector, 10 * kSector, kErrorNone, kErrorNone},
      {"into the bad ones", 10 * kSector, 11 * kSector, kErrorCrc, kErrorNone},
      {"the last bad one", 21 * kSector, kSector, kErrorCrc, kErrorNone},
      {"behind them, bad to write", 22 * kSector, 8 * kSector, kErrorNone, kErrorCrc},
      {"over a bad one", 29 * kSector, 3 * kSector, kErrorCrc, kErrorCrc},
  };
  for (const auto& row : rows) {
    Bytes buffer(row.bytes, 0xEE);
    EXPECT_EQ(drive.Read(row.position, buffer), row.read) << row.label;
    EXPECT_EQ(buffer, Bytes(row.bytes, row.read == kErrorNone ? 0 : 0xEE)) << row.label;
    EXPECT_EQ(drive.Write(row.position, Bytes(row.bytes)), row.write) << row.label;
  }
  EXPECT_EQ(drive.Write(29 * kSector, Bytes(2 * kSector, 7)), kErrorCrc);
  EXPECT_EQ(Marked(drive, 29), 0);
}

TEST(SimulatedDrive, WrapStoresFromTheBeginningAgain) {
  DriveTraits traits;
  traits.bytes = 100 * kSector;
  traits.wrap_bytes = 8 * kSector;
  SimulatedDrive drive = MakeDrive(traits.wrap_bytes, traits);
  EXPECT_EQ(drive.Size(), 100 * kSector);
  Mark(drive, 7, 1);
  Mark(drive, 95, 2);  // 95 mod 8 = 7
  EXPECT_EQ(Marked(drive, 7), 2);
  EXPECT_EQ(Marked(drive, 15), 2);
  Bytes run(20 * kSector, 3);  // sectors 6 to 25: every place at least twice, 6 to 9 by sectors 22 to 25
  std::fill(run.begin() + 16 * kSector, run.end(), std::uint8_t{4});
  EXPECT_EQ(drive.Write(6 * kSector, run), kErrorNone);
  const int expected[] = {4, 4, 3, 3, 3, 3, 4, 4};
  for (std::uint64_t sector = 0; sector < 8; ++sector) {
    EXPECT_EQ(Marked(drive, 88 + sector), expected[sector]) << sector;
  }
  Bytes read(100 * kSector);
  EXPECT_EQ(drive.Read(0, read), kErrorNone);
  EXPECT_EQ(read[97 * kSector], 4);
  EXPECT_EQ(read[98 * kSector], 3);
}

TEST(SimulatedDrive, AbsentMemorySwallowsWrites) {
  DriveTraits traits;
  traits.bytes = 100 * kSector;
  traits.absent_bytes = 8 * kSector;
  SimulatedDrive drive = MakeDrive(traits.absent_bytes, traits);
  EXPECT_EQ(drive.Write(6 * kSector, Bytes(6 * kSector, 5)), kErrorNone);
  EXPECT_EQ(Marked(drive, 7), 5);
  EXPECT_EQ(Marked(drive, 8), 0);
  Bytes across(4 * kSector, 0xEE);
  EXPECT_EQ(drive.Read(6 * kSector, across), kErrorNone);
  EXPECT_EQ(across[2 * kSector - 1], 5);
  EXPECT_EQ(across[2 * kSector], 0);
  EXPECT_EQ(across[4 * kSector - 1], 0);
}

TEST(SimulatedDrive, CacheAnswersTheLastWrites) {
  DriveTraits traits;
  traits.bytes = 100 * kSector;
  traits.wrap_bytes = 8 * kSector;
  traits.cache_bytes = 2 * kSector;
  SimulatedDrive drive = MakeDrive(traits.wrap_bytes, traits);
  Mark(drive, 0, 1);
  Mark(drive, 8, 2);
  EXPECT_EQ(Marked(drive, 0), 1);
  EXPECT_EQ(Marked(drive, 8), 2);
  EXPECT_EQ(Marked(drive, 16), 2) << "never written, so the memory answers";
  Mark(drive, 8, 3);
  EXPECT_EQ(Marked(drive, 0), 3) << "two writes later, though to one sector";
  EXPECT_EQ(Marked(drive, 8), 3);
  Mark(drive, 16, 4);
  EXPECT_EQ(Marked(drive, 8), 3) << "the older write of the sector has gone, the newer one not";
  Mark(drive, 24, 5);
  EXPECT_EQ(Marked(drive, 8), 5);
}

TEST(SimulatedDrive, ReadCapacity) {
  using std::string_literals::operator""s;
  DriveTraits traits;
  traits.sector_bytes = 4096;
  EXPECT_EQ(Answer(MakeDrive(40960, traits), kReadCapacity), "\x00\x00\x00\x09\x00\x00\x10\x00"s);
  const std::uint64_t most = (std::uint64_t{1} << 32) * kSector;
  EXPECT_EQ(Answer(MakeDrive(most), kReadCapacity), "\xFF\xFF\xFF\xFF\x00\x00\x02\x00"s);
  EXPECT_EQ(Answer(MakeDrive(most + kSector), kReadCapacity), "\xFF\xFF\xFF\xFF\x00\x00\x02\x00"s);
}

TEST(SimulatedDrive, Inquiry) {
  using std::string_literals::operator""s;
  DriveTraits traits;
  EXPECT_EQ(Answer(MakeDrive(kSector, traits), kInquiry),
            "\x00\x80\x04\x02\x5B\x00\x00\x00Generic Flash Disk      1.00"s + std::string(60, '\0'));
  traits.removable = false;
  traits.revision = "1";
  EXPECT_EQ(Answer(MakeDrive(kSector, traits), kInquiry).substr(0, 36),
            "\x00\x00\x04\x02\x5B\x00\x00\x00Generic Flash Disk      1   "s);
  EXPECT_EQ(Answer(MakeDrive(kSector, traits), kSerialInquiry), "\x00\x80\x00\x00"s);
  traits.serial = "0123456789ABCDEF4321";
  EXPECT_EQ(Answer(MakeDrive(kSector, traits), kSerialInquiry), "\x00\x80\x00\x14\x30"s + "123456789ABCDEF4321");
  EXPECT_EQ(Answer(MakeDrive(kSector, traits), {0x12, 0x01, 0x80, 0, 6, 0}), "\x00\x80\x00\x14\x30\x31"s);
}

TEST(SimulatedDrive, RefusesOtherCommands) {
  const SimulatedDrive drive = MakeDrive(kSector);
  for (const Bytes& cdb : {Bytes{}, Bytes{0x12}, Bytes{0x25, 0, 0, 0, 0, 0}, Bytes{0x12, 1, 0x83, 0, 255, 0},
                           Bytes{0x12, 0, 0x80, 0, 255, 0}, Bytes{0x2A, 0, 0, 0, 0, 0, 0, 0, 1, 0}}) {
    EXPECT_EQ(Answer(drive, cdb), "");
  }
}
