// Starting a prepared drive in QEMU, with a stub in place of the loader.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Peculiarities of a BIOS that the stage-zero program plays; fields in the order of its configuration.
inline constexpr std::uint16_t kNoLba = 1;        // calls 41h and 42h are refused
inline constexpr std::uint16_t kFalseLba = 2;     // call 41h promises what 42h refuses
inline constexpr std::uint16_t kNoGeometry = 4;   // call 08h is refused
inline constexpr std::uint16_t kNoCrossing = 8;   // no transfer crosses a 64 KiB page
inline constexpr std::uint16_t kAlways = 0xFFFF;  // as `faults`: that sector is never read
inline constexpr std::uint16_t kMemoryKib = 631;

struct Bios {
  std::uint16_t memory_kib = kMemoryKib;
  std::uint8_t drive = 0x80;                  // the number under which the prepared drive is known
  std::optional<std::uint8_t> first_dl = {};  // DL at the start, if it isn't that number
  std::uint16_t peculiar = 0;
  std::uint16_t most_sectors = 128;  // of one transfer
  std::uint16_t entry_segment = 0;   // 0 or 07C0h
  std::uint16_t faults = 0;          // reads of fault_lba that fail; after a fault only a reset helps
  std::uint64_t fault_lba = 0;
};

inline constexpr std::uint32_t kBelowBp = 0x14;  // bytes of `at_bp` in front of SS:BP

// What came over the debug port. The state is that at the loader's first instruction.
struct BootReport {
  std::string text = {};  // all of it; characters printed, and "<key>", "<int18>", "<int19>", "<halt>"
  bool loaded = false;    // the fields below hold something
  std::uint32_t ss = 0, ds = 0, es = 0, di = 0, si = 0, bp = 0, sp = 0;
  std::uint32_t bx = 0, dx = 0, cx = 0, ax = 0, ip = 0, cs = 0, flags = 0;
  std::uint32_t reads = 0;  // calls that read (stage zero only)
  std::uint32_t hash = 0;
  std::string boot_sector = {};  // the sector at 0:7C00
  std::string stack = {};        // four words from SS:SP up
  std::string at_bp = {};        // from kBelowBp bytes below SS:BP to 59h bytes above
  std::string entries = {};      // two directory entries at 0:0500
  std::string diskette = {};     // offset and segment of the diskette parameters, as the BIOS has them in its vectors
};

// Loader files of a given length: of the one for BootDirectly the first 250 bytes or so are code, the one for BootUnder
// begins with `head` and INT3; all other bytes depend on their position.
std::string StubLoader(std::size_t bytes);
std::string TrapLoader(std::size_t bytes, const std::string& head = "");
// What the stubs make of a file's bytes.
std::uint32_t HashOf(const std::string& bytes);

// How the drive is attached: options of the QEMU device.
inline const std::string kIde = "ide-hd";
inline const std::string kUsb = "usb-storage";

// Starts the drive with QEMU's own BIOS; the loader has to be a StubLoader.
BootReport BootDirectly(const std::string& image, const std::string& device = kIde);
// Starts the drive under a BIOS with peculiarities; of the loader, a TrapLoader, the first `loader_bytes` are looked
// at.
BootReport BootUnder(const Bios& bios, const std::string& image, std::size_t loader_bytes = 1,
                     const std::string& device = kIde);
