#include "discovery/identification.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/option_model.h"
#include "disk/sector_io.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kCylinder = 8'225'280;

// Identifies drive 1 of that machine.
void Identify(MachineDouble& machine) {
  ResetProgram(machine);
  SizeSectorBuffer(512);
  DriveNumber = 1;
  GetUSBDiskDriveInfo(1);
}

MachineDouble MachineWith(std::uint64_t bytes, DriveTraits traits) {
  std::vector<AttachedDrive> drives;
  drives.push_back(MemoryDrive(1, bytes, std::move(traits)));
  return MachineDouble(std::move(drives));
}

TEST(GetUSBDiskDriveInfo, TakesWholeCylindersOff) {
  const struct {
    std::uint64_t bytes;
    std::int64_t usable_cylinders;
  } cases[] = {
      {10 * kCylinder + 512, 9},
      {11 * kCylinder - 512, 9},
      {11 * kCylinder, 10},
      {2 * kCylinder - 512, 0},
      {kCylinder, 0},
      {2'200'000'000'000, 267'467},  // beyond READ CAPACITY (10)
  };
  for (const auto& row : cases) {
    MachineDouble machine = MachineWith(row.bytes, {});
    Identify(machine);
    EXPECT_EQ(DriveReportedBytes, row.bytes);
    EXPECT_EQ(DriveBytes, row.usable_cylinders * static_cast<std::int64_t>(kCylinder)) << row.bytes;
  }
}

TEST(GetUSBDiskDriveInfo, GivesACylinderUpForABadLastSector) {
  DriveTraits traits;
  const std::uint64_t last = 9 * kCylinder / 512 - 1;
  traits.bad_reads = {{last, last}};
  MachineDouble machine = MachineWith(10 * kCylinder, traits);
  Identify(machine);
  EXPECT_EQ(DriveBytes, static_cast<std::int64_t>(8 * kCylinder));
}

TEST(GetUSBDiskDriveInfo, NamesTheDrive) {
  DriveTraits traits;
  traits.vendor = "Ac.me";
  traits.product = "<Stick>, \"x\" 3";
  traits.revision = "1.0";
  traits.serial = "A.B<>\"7";
  traits.removable = false;
  MachineDouble machine = MachineWith(1 << 30, traits);
  Identify(machine);
  EXPECT_EQ(DriveBus, "USB");
  EXPECT_EQ(DriveMedia, "FIXED MEDIA");
  EXPECT_EQ(DriveModel, "Acme Stick x 3");
  EXPECT_EQ(DriveFirmware, "10");
  EXPECT_EQ(DriveSerial, "A.B<>\"7");  // as the drive says it, unlike the inquiry's texts

  traits.usb = false;
  MachineDouble other = MachineWith(1 << 30, traits);
  Identify(other);
  EXPECT_EQ(DriveModel, "");
  EXPECT_TRUE(other.CallsOf(CallKind::kScsi).empty());
}

TEST(GetUSBDiskDriveInfo, GoesOnWithoutTheDrivesAnswers) {
  for (int refused = 1; refused <= 3; ++refused) {
    DriveTraits traits;
    traits.serial = "42";
    MachineDouble machine = MachineWith(10 * kCylinder, traits);
    machine.FailCall(CallKind::kScsi, refused, kErrorIoDevice);
    Identify(machine);
    EXPECT_EQ(DriveReportedBytes, 10 * kCylinder) << refused;
    EXPECT_EQ(DriveMedia, refused == 2 ? "" : "REMOVABLE MEDIA");
    EXPECT_EQ(DriveModel, refused == 2 ? "" : "Generic Flash Disk");
    EXPECT_EQ(DriveSerial, refused == 3 ? "" : "42");
  }
}

TEST(BytesToText, CutsAndTrims) {
  const std::vector<std::uint8_t> bytes{' ', 'a', ' ', 'b', 0, 'c', ' '};
  EXPECT_EQ(BytesToText(bytes, 0, 6, true), "a b");
  EXPECT_EQ(BytesToText(bytes, 0, -1, false), std::string("a b\0c", 5));
  EXPECT_EQ(BytesToText(bytes, -5, 99, true), "a b");
  EXPECT_EQ(BytesToText(bytes, 4, 5, true), std::string("\0c", 2));
}

}  // namespace
