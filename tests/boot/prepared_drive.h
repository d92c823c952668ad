// Drives that the program has prepared, and what a boot from one must come to.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "boot/boot_kind.h"
#include "boot/fat_volume.h"
#include "boot/machine.h"
#include "support/run.h"

inline constexpr std::uint64_t kStartLba = 2048;
inline constexpr std::uint64_t kTranslatedStartLba = 32;  // with ZIP or CHS

// The name of a test for a kind.
inline std::string NameOfKind(const testing::TestParamInfo<BootKind>& info) { return info.param.label; }

struct PreparedDrive {
  // Runs the program: DRIVE=1 SURE, the words of the kind and these, on a simulated drive of this size ("8G"). The
  // volume starts at LBA 0 with USBFDD, at kTranslatedStartLba with ZIP, DOSZIP or CHS.
  explicit PreparedDrive(const BootKind& boot_kind, const std::string& size = "1G",
                         const std::vector<std::string>& more = {});

  BootKind kind;
  ScratchFolder folder;
  std::string image;
  FatVolume volume;
  std::string loader;  // as PutLoader has put it
  std::uint32_t first_cluster = 0;
};

// A disk whose geometry is the volume's.
std::string DiskOf(const FatVolume& volume);

// Writes the loader and its directory entry, number 1 of the root directory; behind it comes the entry of MSDOS.SYS
// for the kinds that have such a file.
void PutLoader(PreparedDrive& drive, const std::string& loader, Placement placement = {});

// The entries that PutLoader has written.
std::string EntriesOf(const PreparedDrive& drive);

// Fills the root directory with deleted entries and, in front, all that has the loader's name and isn't the loader. On
// FAT32 the directory gets these clusters. The number of its entries.
std::size_t FillRoot(const PreparedDrive& drive, const std::vector<std::uint32_t>& root = {2});

// The loader was entered as promised.
void ExpectLoaded(const BootReport& report, const PreparedDrive& drive, const Bios& bios = {});
// The drive starts its loader under this BIOS; what was reported.
BootReport ExpectBoots(const PreparedDrive& drive, const Bios& bios = {}, const std::string& device = kIde);
