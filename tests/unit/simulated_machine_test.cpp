#include <gtest/gtest.h>

#include "support/machine_double.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kSector = 512;
constexpr std::uint64_t kDriveBytes = 512000;
constexpr OpenMode kReadWrite = {kAccessReadWrite, kShareReadWrite, kOpenExisting, 0};
const std::string kDrive = "\\\\.\\PhysicalDrive";

// A FAT16 partition in sectors 100 to 149.
Bytes Table() {
  Bytes record(512);
  record[446 + 4] = 6;
  record[446 + 8] = 100;
  record[446 + 12] = 50;
  record[510] = 0x55;
  record[511] = 0xAA;
  return record;
}

std::vector<AttachedDrive> OneDrive() {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(5, kDriveBytes));
  EXPECT_EQ(drives[0].drive->Write(0, Table()), kErrorNone);
  return drives;
}

class SimulatedMachineTest : public ::testing::Test {
 protected:
  MachineDouble machine{OneDrive()};
  std::uint32_t moved = 99;
};

}  // namespace

TEST_F(SimulatedMachineTest, OpensWhatThereIs) {
  Handle last = 0;
  for (const char* path :
       {"\\\\.\\PhysicalDrive5", "\\\\.\\D:", "\\\\.\\d:", "\\\\?\\Volume{6b6f7276-0000-0000-0005-000000000001}"}) {
    const Handle handle = machine.Open(path, kReadWrite);
    EXPECT_GT(handle, last) << path << ": above 0 and never given twice";
    EXPECT_EQ(machine.LastError(), 0U);
    EXPECT_TRUE(machine.Close(handle));
    last = handle;
  }
  for (const char* path :
       {"\\\\.\\PhysicalDrive", "\\\\.\\PhysicalDrive05", "\\\\.\\PhysicalDrive4", "\\\\.\\C:", "/etc/passwd"}) {
    EXPECT_EQ(machine.Open(path, kReadWrite), kInvalidHandle) << path;
    EXPECT_EQ(machine.LastError(), kErrorFileNotFound) << path;
  }
}

TEST_F(SimulatedMachineTest, TransfersMoveOn) {
  const Handle handle = machine.Open(kDrive + "5", kReadWrite);
  EXPECT_TRUE(machine.Seek(handle, 10 * kSector));
  EXPECT_TRUE(machine.Write(handle, Bytes(1024, 1), moved));
  EXPECT_EQ(moved, 1024U);
  EXPECT_TRUE(machine.Write(handle, Bytes(512, 2), moved));
  EXPECT_EQ(machine.DriveBytes(5, 12, 1), Bytes(512, 2));
  EXPECT_FALSE(machine.Seek(handle, -1));
  EXPECT_EQ(machine.LastError(), kErrorNegativeSeek);
  EXPECT_TRUE(machine.Seek(handle, 999 * kSector));
  Bytes two(1024);
  EXPECT_FALSE(machine.Read(handle, two, moved));
  EXPECT_EQ(machine.LastError(), kErrorSectorNotFound);
  EXPECT_EQ(moved, 0U);
  EXPECT_TRUE(machine.Read(handle, ByteSpan(two).first(512), moved)) << "the position is where it was";
  EXPECT_EQ(machine.LastError(), 0U);
}

TEST_F(SimulatedMachineTest, VolumesBeginAtTheirFirstSectorAndEndAtTheirLast) {
  const Handle handle = machine.Open("\\\\.\\D:", kReadWrite);
  std::uint64_t length = 0;
  EXPECT_TRUE(machine.QueryLength(handle, length));
  EXPECT_EQ(length, 50U * 512);
  EXPECT_TRUE(machine.Write(handle, Bytes(512, 9), moved));
  EXPECT_EQ(machine.DriveBytes(5, 100, 1), Bytes(512, 9));
  EXPECT_TRUE(machine.Seek(handle, 49 * kSector));
  EXPECT_FALSE(machine.Write(handle, Bytes(1024, 9), moved));
  EXPECT_EQ(machine.LastError(), kErrorSectorNotFound);
  EXPECT_EQ(machine.DriveBytes(5, 149, 2), Bytes(1024));
}

TEST_F(SimulatedMachineTest, TableIsReadAgainOnRequest) {
  std::string name;
  const Handle search = machine.FirstVolume(name);
  EXPECT_GT(search, 0);
  EXPECT_EQ(name, "\\\\?\\Volume{6b6f7276-0000-0000-0005-000000000001}\\");
  EXPECT_FALSE(machine.NextVolume(search, name));
  machine.EndVolumes(search);
  EXPECT_FALSE(machine.MountVolume("E:\\", name)) << "has its letter";
  machine.SetDriveBytes(5, 0, Bytes(512));
  EXPECT_EQ(machine.DriveType("D:\\"), kDriveTypeRemovable);
  EXPECT_EQ(machine.DriveType("E:\\"), kDriveTypeNoRoot);
  const Handle handle = machine.Open(kDrive + "5", kReadWrite);
  EXPECT_TRUE(machine.Control(handle, ControlCode::kUpdateProperties));
  EXPECT_EQ(machine.LastError(), 0U);
  EXPECT_EQ(machine.DriveType("D:\\"), kDriveTypeNoRoot);
  EXPECT_EQ(machine.FirstVolume(name), kInvalidHandle);
}

TEST(SimulatedMachine, FlushesOnceWhenAWrittenHandleIsClosed) {
  auto store = std::make_unique<MemoryStore>(kDriveBytes);
  const MemoryStore& memory = *store;
  std::vector<AttachedDrive> drives;
  drives.push_back({0, std::make_unique<SimulatedDrive>(DriveTraits(), std::move(store))});
  MachineDouble machine(std::move(drives));
  const Handle reader = machine.Open(kDrive + "0", kReadWrite);
  const Handle writer = machine.Open(kDrive + "0", kReadWrite);
  std::uint32_t moved = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(machine.Write(writer, Bytes(512, 1), moved) && machine.Flush(writer));
  }
  EXPECT_TRUE(machine.Close(reader));
  EXPECT_EQ(memory.flushes, 0);
  EXPECT_TRUE(machine.Close(writer));
  EXPECT_EQ(memory.flushes, 1);
}
