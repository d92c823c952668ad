// Drives that the program has prepared for BOOTMGR, and what a boot from one must come to.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "boot/fat32_volume.h"
#include "boot/machine.h"
#include "support/run.h"

inline constexpr std::string_view kLoaderName = "BOOTMGR    ";
inline constexpr std::uint64_t kStartLba = 2048;
inline constexpr std::uint64_t kTranslatedStartLba = 32;  // with ZIP or CHS
inline constexpr std::size_t kUsualLoaderBytes = 413001;
inline constexpr std::uint8_t kLbaWorks = 0x0E;  // byte 2 of the boot sector in memory
inline constexpr std::uint8_t kChsOnly = 0x00;

struct PreparedDrive {
  // Runs the program: DRIVE=1 SURE FAT32 WINPE and these keywords, on a simulated drive of this size ("8G").
  explicit PreparedDrive(const std::string& size, const std::vector<std::string>& keywords = {},
                         std::uint64_t volume_lba = kStartLba);

  ScratchFolder folder;
  std::string image;
  Fat32Volume volume;
};

// Writes the loader and its directory entry, the second of the root directory.
void PutLoader(const Fat32Volume& volume, const std::string& loader, Placement placement = {});

// The loader was entered as promised, every byte of it in memory, the boot sector of the volume at 0:7C00 as it is on
// the drive but for the drive number and whether LBA calls work, and, with CHS calls, the geometry.
void ExpectLoaded(const BootReport& report, const Fat32Volume& volume, const std::string& loader,
                  std::uint8_t drive = 0x80, std::uint8_t lba_mark = kLbaWorks);
