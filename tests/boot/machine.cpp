#include "boot/machine.h"

#include <sstream>

#include "boot/fat_volume.h"
#include "support/run.h"

namespace {

constexpr std::uint64_t kConfigOffset = 2;     // of the stage-zero program
constexpr std::size_t kStubLengthOffset = 2;   // of the stub loader
constexpr std::size_t kWholeFile = 1U << 20U;  // more than either program has
constexpr char kTrap = '\xCC';                 // INT3

// Bytes of which no two sectors have the same.
std::string Pattern(std::string head, std::size_t bytes) {
  for (std::size_t i = head.size(); i < bytes; ++i) {
    head += static_cast<char>(static_cast<std::uint32_t>(i) * 2654435761U >> 24U);
  }
  head.resize(bytes);
  return head;
}

std::string ConfigOf(const Bios& bios, std::size_t loader_bytes) {
  return Little(bios.memory_kib, 2) + Little(bios.drive, 1) + Little(bios.first_dl.value_or(bios.drive), 1) +
         Little(bios.peculiar, 2) + Little(bios.most_sectors, 2) + Little(bios.entry_segment, 2) +
         Little(bios.faults, 2) + Little(bios.fault_lba, 4) + Little(loader_bytes, 4);
}

// So many bytes of memory, reported as words.
std::string ReadMemory(std::istream& words, std::size_t bytes) {
  std::string memory;
  for (std::uint32_t word = 0; memory.size() < bytes && words >> word;) {
    memory += Little(word, 2);
  }
  return memory;
}

// The words behind the "R" of a report, in the order in which the bench's programs say them.
BootReport ParseReport(const std::string& text) {
  BootReport report{.text = text};
  const std::size_t mark = text.rfind('R');
  std::istringstream words(mark == std::string::npos ? "" : text.substr(mark + 1));
  words >> std::hex;
  std::uint32_t zero = 0;
  std::uint32_t high = 0;
  std::uint32_t low = 0;
  words >> zero >> report.ss >> report.ds >> report.es >> report.di >> report.si >> report.bp >> report.sp >>
      report.bx >> report.dx >> report.cx >> report.ax >> report.ip >> report.cs >> report.flags >> report.reads >>
      high >> low;
  report.hash = high << 16 | low;
  report.boot_sector = ReadMemory(words, kSectorBytes);
  report.stack = ReadMemory(words, 8);
  report.at_bp = ReadMemory(words, kBelowBp + 0x5A);
  report.entries = ReadMemory(words, 2 * kEntryBytes);
  report.diskette = ReadMemory(words, 4);
  report.loaded = !words.fail() && report.diskette.size() == 4;
  return report;
}

// The backend of a drive, and the device behind a controller that every machine has.
void Attach(std::vector<std::string>& command, const std::string& name, const std::string& image,
            const std::string& device) {
  command.insert(command.end(), {"-drive", "if=none,format=raw,file.locking=off,id=" + name + ",file=" + image});
  command.insert(command.end(), {"-device", device + ",drive=" + name});
}

BootReport Run(std::vector<std::string> drives) {
  std::vector<std::string> command = {"timeout",
                                      "30",
                                      "qemu-system-i386",
                                      "-nodefaults",
                                      "-no-user-config",
                                      "-accel",
                                      "tcg",
                                      "-m",
                                      "16",
                                      "-display",
                                      "none",
                                      "-no-reboot",
                                      "-debugcon",
                                      "stdio",
                                      "-device",
                                      "isa-debug-exit,iobase=0xf4,iosize=4",
                                      "-device",
                                      "usb-ehci"};
  command.insert(command.end(), drives.begin(), drives.end());
  const RunResult result = RunCommand(command);
  return ParseReport(result.out + result.err);
}

}  // namespace

std::string StubLoader(std::size_t bytes) {
  std::string stub = ReadBytes(STUB_LOADER, 0, kWholeFile);
  stub.replace(kStubLengthOffset, 4, Little(bytes, 4));
  return Pattern(stub, bytes);
}

std::string TrapLoader(std::size_t bytes, const std::string& head) { return Pattern(head + kTrap, bytes); }

std::uint32_t HashOf(const std::string& bytes) {
  std::uint32_t hash = 0;
  for (const char byte : bytes) {
    hash = hash * 33 + static_cast<std::uint8_t>(byte);
  }
  return hash;
}

BootReport BootDirectly(const std::string& image, const std::string& device) {
  std::vector<std::string> drives;
  Attach(drives, "prepared", image, device + ",bootindex=0");
  return Run(drives);
}

BootReport BootUnder(const Bios& bios, const std::string& image, std::size_t loader_bytes, const std::string& device) {
  const ScratchFolder scratch;
  const std::string stage_zero = scratch.File("stage_zero.img");
  SetFileSize(stage_zero, kWholeFile);
  WriteBytes(stage_zero, 0, ReadBytes(STAGE_ZERO, 0, kWholeFile));
  WriteBytes(stage_zero, kConfigOffset, ConfigOf(bios, loader_bytes));
  std::vector<std::string> drives;
  Attach(drives, "stage_zero", stage_zero, "ide-hd,bootindex=0");
  Attach(drives, "prepared", image, device + ",bootindex=1");
  return Run(drives);
}
