#include "platform/simulated/simulated_volumes.h"

#include <gtest/gtest.h>

#include "platform/byte_order.h"
#include "platform/simulated/volume_table.h"
#include "support/memory_store.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kSectors = 100000;

struct Entry {
  std::uint8_t type;
  std::uint32_t first;
  std::uint32_t sectors;
  std::uint8_t status = 0;
};

Bytes Record(const std::vector<Entry>& entries) {
  Bytes record(kSector);
  std::size_t at = 446;
  for (const Entry& entry : entries) {
    record[at] = entry.status;
    record[at + 4] = entry.type;
    Store32(&record[at + 8], entry.first);
    Store32(&record[at + 12], entry.sectors);
    at += 16;
  }
  StoreLittle(&record[510], 0xAA55, 2);
  return record;
}

Bytes BootRecord(const std::string& oem) {
  Bytes record = Record({});
  const std::string start = "\xEB\x3C\x90" + oem;
  std::copy(start.begin(), start.end(), record.begin());
  return record;
}

Bytes FatBootRecord() {
  Bytes record = BootRecord("ANY NAME");
  StoreLittle(&record[11], 512, 2);
  record[13] = 8;
  StoreLittle(&record[14], 32, 2);
  record[16] = 2;
  return record;
}

struct Sector {
  std::uint64_t lba;
  Bytes bytes;
};

SimulatedDrive MakeDrive(const std::vector<Sector>& sectors, bool fixed = false) {
  DriveTraits traits;
  traits.removable = !fixed;
  SimulatedDrive drive(traits, std::make_unique<MemoryStore>(kSectors * kSector));
  for (const Sector& sector : sectors) {
    EXPECT_EQ(drive.Write(sector.lba * kSector, sector.bytes), kErrorNone);
  }
  return drive;
}

// "first+sectors " of each volume.
std::string Extents(const std::vector<Sector>& sectors, bool fixed = false) {
  SimulatedDrive drive = MakeDrive(sectors, fixed);
  std::string text;
  for (const VolumeExtent& extent : ReadVolumeExtents(drive)) {
    text += std::to_string(extent.first_sector) + "+" + std::to_string(extent.sectors) + " ";
  }
  return text;
}

// A header at LBA 1 with these entries at LBA 2, as first and last sector.
std::vector<Sector> Gpt(std::uint64_t count, std::uint64_t entry_bytes, std::uint64_t entries_lba = 2) {
  Bytes header(kSector);
  std::copy_n("EFI PART", 8, header.begin());
  StoreLittle(&header[72], entries_lba, 8);
  StoreLittle(&header[80], count, 4);
  StoreLittle(&header[84], entry_bytes, 4);
  Bytes entries(kSector);
  const std::uint64_t places[][2] = {{2048, 4095}, {9000, 8000}, {50000, kSectors - 1}, {60000, kSectors}};
  for (std::size_t i = 0; i < 4; ++i) {
    entries[i * 128] = 1;
    StoreLittle(&entries[i * 128 + 32], places[i][0], 8);
    StoreLittle(&entries[i * 128 + 40], places[i][1], 8);
  }
  return {{0, Record({{0xEE, 1, 0xFFFFFFFF}})}, {1, header}, {2, entries}};
}

}  // namespace

TEST(ReadVolumeExtents, PrimaryEntries) {
  Bytes unsigned_record = Record({{0x0C, 63, 1000}});
  unsigned_record[511] = 0;
  Bytes stray = FatBootRecord();
  stray[446 + 4] = 6;
  StoreLittle(&stray[446 + 8], kSectors, 4);
  stray[446 + 12] = 1;
  const struct {
    const char* label;
    Bytes sector0;
    const char *removable, *fixed;
  } rows[] = {
      {"no signature", unsigned_record, "", ""},
      {"one", Record({{0x0C, 63, 1000, 0x80}}), "63+1000 ", "63+1000 "},
      {"the first used", Record({{0, 63, 10}, {7, 70, 0}, {6, 80, 20}, {7, 200, 30}}), "80+20 ", "80+20 200+30 "},
      {"protective without a GPT", Record({{0xEE, 1, 99999}}), "", ""},
      {"longer than the drive", Record({{6, 99990, 0xFFFFFFFF}}), "99990+10 ", "99990+10 "},
      {"in the last sector", Record({{6, 99999, 1}}), "99999+1 ", "99999+1 "},
      {"behind the drive", Record({{6, 100000, 1}, {6, 0xFFFFFFFF, 0xFFFFFFFF}}), "", ""},
      {"extended ones", Record({{0x0F, 63, 10}, {0x05, 63, 10}, {0x85, 70, 10}, {6, 80, 20}}), "80+20 ", "80+20 "},
      {"one of two behind the drive", Record({{6, 100000, 1}, {6, 63, 1}}), "63+1 ", "63+1 "},
      {"a bad status byte anywhere", Record({{6, 63, 10}, {0, 0, 0, 1}}), "", ""},
      {"NTFS", BootRecord("NTFS    "), "0+100000 ", "0+100000 "},
      {"exFAT", BootRecord("EXFAT   "), "0+100000 ", "0+100000 "},
      {"boot record with a stray entry behind the drive", stray, "0+100000 ", "0+100000 "},
      {"a jump and nothing else", BootRecord("MASTER  "), "", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Extents({{0, row.sector0}}), row.removable) << row.label;
    EXPECT_EQ(Extents({{0, row.sector0}}, /*fixed=*/true), row.fixed) << row.label;
  }
}

TEST(ReadVolumeExtents, LogicalEntries) {
  const Sector start = {0, Record({{0x0F, 1000, 5000}, {6, 63, 100}})};
  const std::vector<Sector> chain = {start,
                                     {1000, Record({{6, 10, 500}, {5, 2000, 600}})},
                                     {3000, Record({{7, 20, 400}, {5, 1000, 600}})},
                                     {2000, Record({{0x83, 30, 300}})}};
  EXPECT_EQ(Extents(chain, /*fixed=*/true), "63+100 1010+500 3020+400 2030+300 ");
  EXPECT_EQ(Extents(chain), "63+100 ");
  EXPECT_EQ(Extents({start, {1000, Record({{6, 10, 500}, {5, 0, 600}})}}, true), "63+100 1010+500 ") << "loop";
  EXPECT_EQ(Extents({start, {1000, Record({{6, 0xFFFFFFFF, 500}, {5, 0xFFFFFFFF, 600}})}}, true), "63+100 ") << "far";
}

TEST(ReadVolumeExtents, GptEntries) {
  const struct {
    const char* label;
    std::vector<Sector> sectors;
    const char* fixed;
  } rows[] = {
      {"used, inside the drive, not backwards", Gpt(4, 128), "2048+2048 50000+50000 "},
      {"as many as the header says", Gpt(2, 128), "2048+2048 "},
      {"entries of a strange size", Gpt(4, 136), ""},
      {"too many", Gpt(0xFFFFFFFF, 128), ""},
      {"too large", Gpt(4, 0x80000000), ""},
      {"behind the drive", Gpt(4, 128, ~std::uint64_t{0}), ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Extents(row.sectors, /*fixed=*/true), row.fixed) << row.label;
    EXPECT_EQ(Extents(row.sectors), "") << row.label;
  }
}

namespace {

// "letter drive.index" of each volume, '-' for no letter.
std::string Letters(const SimulatedVolumes& volumes) {
  std::string text;
  for (const Volume& volume : volumes.All()) {
    text += std::string(1, volume.letter == 0 ? '-' : volume.letter) + std::to_string(volume.drive) + "." +
            std::to_string(volume.index) + " ";
  }
  return text;
}

void SetTable(SimulatedDrive& drive, std::uint32_t partitions) {
  std::vector<Entry> entries;
  for (std::uint32_t i = 0; i < partitions; ++i) {
    entries.push_back({6, 100 + i, 1});
  }
  EXPECT_EQ(drive.Write(0, Record(entries)), kErrorNone);
}

}  // namespace

TEST(SimulatedVolumes, LettersStayAndFreeOnesAreTaken) {
  SimulatedVolumes volumes;
  SimulatedDrive first = MakeDrive({}, /*fixed=*/true);
  SimulatedDrive second = MakeDrive({}, /*fixed=*/true);
  SetTable(first, 2);
  SetTable(second, 1);
  volumes.Refresh(1, first);
  volumes.Refresh(2, second);
  SetTable(first, 3);
  EXPECT_EQ(Letters(volumes), "D1.1 E1.2 F2.1 ") << "not read again yet";
  volumes.Refresh(1, first);
  EXPECT_EQ(Letters(volumes), "D1.1 E1.2 G1.3 F2.1 ");
  SetTable(first, 1);
  volumes.Refresh(1, first);
  SetTable(second, 2);
  volumes.Refresh(2, second);
  EXPECT_EQ(Letters(volumes), "D1.1 F2.1 E2.2 ");
}

TEST(SimulatedVolumes, NoLetterBehindZ) {
  SimulatedVolumes volumes;
  SimulatedDrive drive = MakeDrive({}, /*fixed=*/true);
  SetTable(drive, 4);
  for (int number = 0; number < 6; ++number) {
    volumes.Refresh(number, drive);
  }
  EXPECT_EQ(volumes.All().at(22).letter, 'Z');
  EXPECT_EQ(volumes.All().at(23).letter, 0);
  const std::string last = SystemNameOf(volumes.All()[23]);
  EXPECT_EQ(volumes.WithLetter(0), nullptr);
  EXPECT_FALSE(volumes.GiveLetter(last, 'D'));
  SetTable(drive, 3);
  volumes.Refresh(0, drive);
  EXPECT_FALSE(volumes.GiveLetter(SystemNameOf(volumes.All()[0]), 'G')) << "has one";
  EXPECT_TRUE(volumes.GiveLetter(last, 'g'));
  EXPECT_EQ(volumes.WithLetter('G'), volumes.WithName(last.substr(0, last.size() - 1)));
}
