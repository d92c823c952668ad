// The format service of the simulated machine, with the system's own tools on drives in memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/byte_order.h"
#include "platform/simulated/simulated_machine.h"
#include "support/memory_store.h"
#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kDriveBytes = 64ULL << 20;
constexpr std::uint64_t kStart = 2048;
constexpr std::uint64_t kSectors = 100'001;

// A drive with one partition, as drive 1.
std::vector<AttachedDrive> PartitionedDrive(const DriveTraits& traits) {
  auto store = std::make_unique<MemoryStore>(kDriveBytes);
  std::vector<std::uint8_t> record(kSector);
  record[446 + 4] = 0x0E;
  Store32(&record[446 + 8], kStart);
  Store32(&record[446 + 12], kSectors);
  record[510] = 0x55;
  record[511] = 0xAA;
  store->Write(0, record);
  std::vector<AttachedDrive> drives;
  drives.push_back({1, std::make_unique<SimulatedDrive>(traits, std::move(store))});
  return drives;
}

using Statuses = std::vector<std::uint32_t>;

Statuses Format(SimulatedMachine& machine, const std::string& file_system, const std::string& root = "D:") {
  Statuses statuses;
  machine.FormatVolume(root, kMediaRemovable, file_system, "LABEL", [&](std::uint32_t status, auto, auto) {
    statuses.push_back(status);
    return 1U;
  });
  return statuses;
}

TEST(SimulatedFormat, AnswersWithItsStatus) {
  constexpr SectorRange kFirstFatSector{kStart + 2048, kStart + 2048};
  const struct {
    std::string label;
    bool read_only;
    std::vector<SectorRange> bad;
    std::string opened;  // for the time of the format, with this access
    std::uint32_t access;
    std::string root;
    Statuses statuses;
  } cases[] = {
      {"queried", false, {}, "\\\\.\\D:", 0, "D:", {0x0B}},
      {"volume open", false, {}, "\\\\.\\D:", kAccessRead, "D:", {0x08}},
      {"drive open", false, {}, "\\\\.\\PhysicalDrive1", kAccessReadWrite, "D:", {0x08}},
      {"gone", false, {}, "", 0, "E:", {0x08}},
      {"protected", true, {}, "", 0, "D:", {0x07}},
      {"bad sector", false, {kFirstFatSector}, "", 0, "D:", {}},
  };
  for (const auto& row : cases) {
    DriveTraits traits;
    traits.read_only = row.read_only;
    traits.bad_reads = traits.bad_writes = row.bad;
    SimulatedMachine machine({}, PartitionedDrive(traits));
    if (!row.opened.empty()) {
      ASSERT_NE(machine.Open(row.opened, {row.access, kShareReadWrite, kOpenExisting, 0}), kInvalidHandle);
    }
    EXPECT_EQ(Format(machine, "EXFAT", row.root), row.statuses) << row.label;
  }
}

TEST(SimulatedFormat, FindsTheToolInAbsoluteFolders) {
  const ScratchFolder folder;
  WriteBytes(folder.File("mkntfs"), 0, "#!/bin/sh\nexit 1\n");
  std::filesystem::permissions(folder.File("mkntfs"), std::filesystem::perms::owner_all);
  std::filesystem::create_directories(folder.File("folders/mkntfs"));
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.File(""));
  const std::string path = std::getenv("PATH");
  const std::pair<std::string, Statuses> rows[] = {
      {"", {}},
      {".::", {}},
      {"/nowhere:/bin", {0x0B}},
      {folder.File("folders") + ":/usr/sbin", {0x0B}},
      {"/bin:" + folder.File(""), {}},
  };
  for (const auto& [folders, statuses] : rows) {
    setenv("PATH", folders.c_str(), 1);
    SimulatedMachine machine({}, PartitionedDrive({}));
    EXPECT_EQ(Format(machine, "NTFS"), statuses) << folders;
  }
  setenv("PATH", path.c_str(), 1);
  std::filesystem::current_path(before);
}

TEST(SimulatedFormat, TakesTheGeometryOfTheTable) {
  const struct {
    std::uint8_t last_head, last_sector;
    std::uint32_t heads, sectors_per_track;
  } cases[] = {{0, 0, 255, 63}, {63, 0xE0, 64, 32}, {254, 0xFF, 255, 63}, {255, 63, 255, 63}, {15, 63, 16, 63}};
  for (const auto& c : cases) {
    SimulatedMachine machine({}, PartitionedDrive({}));
    std::vector<std::uint8_t> sector(kSector);
    machine.DriveOf(1)->Read(0, sector);
    sector[446 + 5] = c.last_head;
    sector[446 + 6] = c.last_sector;
    machine.DriveOf(1)->Write(0, sector);
    EXPECT_EQ(Format(machine, "NTFS"), Statuses{0x0B});
    machine.DriveOf(1)->Read(kStart * kSector, sector);
    EXPECT_EQ(LoadLittle(&sector[0x18], 2), c.sectors_per_track) << int{c.last_head};
    EXPECT_EQ(LoadLittle(&sector[0x1A], 2), c.heads) << int{c.last_head};
  }
}

}  // namespace
