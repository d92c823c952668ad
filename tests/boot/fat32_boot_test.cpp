// What FAT32 boot code has to bear beyond what all FAT boot code has.
#include <gtest/gtest.h>

#include "boot/prepared_drive.h"

namespace {

TEST(Fat32Boot, TakesClusterSizesOfOtherFormatters) {
  const BootKind& kind = KindOf("Fat32Bootmgr");
  for (const int cluster_sectors : {1, 2, 4, 128}) {
    for (const std::int32_t step : {1, 2}) {
      SCOPED_TRACE(testing::Message() << cluster_sectors << " sectors, step " << step);
      PreparedDrive drive(kind);
      drive.volume = ChangeClusterSize(drive.volume, static_cast<std::uint8_t>(cluster_sectors));
      PutLoader(drive, LoaderFor(kind), {3, step});
      const BootReport report = ExpectBoots(drive, {.peculiar = kNoCrossing, .most_sectors = 127});
      const std::size_t sectors = drive.loader.size() / kSectorBytes + 1;
      EXPECT_LE(report.reads, sectors / static_cast<unsigned>(cluster_sectors) + 50)
          << "FAT sectors are read once, clusters whole";
    }
  }
}

TEST(Fat32Boot, StartsAVolumeAtTheEndOf32BitAddresses) {
  for (const BootKind& kind : BootKinds()) {
    if (IsFat32(kind)) {
      SCOPED_TRACE(kind.label);
      PreparedDrive drive(kind);
      drive.volume = MoveVolume(drive.volume, 0xFFFFF000);
      PutLoader(drive, LoaderFor(kind), {drive.volume.LastCluster() - 1000, 1});
      ExpectBoots(drive);
    }
  }
}

TEST(Fat32BootMessage, RefusesARootDirectoryThatRunsInACircle) {
  for (const BootKind& kind : BootKinds()) {
    if (IsFat32(kind)) {
      SCOPED_TRACE(kind.label);
      const PreparedDrive drive(kind);
      for (std::size_t i = 1; i < drive.volume.cluster_sectors * kSectorBytes / kEntryBytes; ++i) {
        PlaceEntries(drive.volume, i, DirectoryEntry("OTHER      ", kArchive, 3, 100));
      }
      SetFatEntry(drive.volume, 2, 2);
      EXPECT_EQ(BootUnder({}, drive.image).text, kind.first + kind.unreadable);
    }
  }
}

TEST(Fat32BootMessage, KnowsItsExtendedSector) {
  const std::pair<const char*, std::uint64_t> cases[] = {{"Fat32Bootmgr", 12}, {"Fat32Ntldr", 12}, {"Fat32MsDos", 2}};
  for (const auto& [label, sector] : cases) {
    SCOPED_TRACE(label);
    const BootKind& kind = KindOf(label);
    PreparedDrive drive(kind);
    PutLoader(drive, LoaderFor(kind));
    const std::uint64_t lba = drive.volume.first_lba + sector;
    EXPECT_EQ(BootUnder({.faults = kAlways, .fault_lba = lba}, drive.image).text, kind.unreadable);
    ExpectBoots(drive, {.faults = 1, .fault_lba = lba});
    WriteBytes(drive.image, lba * kSectorBytes, std::string(kSectorBytes, '\0'));
    EXPECT_EQ(BootUnder({}, drive.image).text, kind.unreadable);
  }
}

}  // namespace
