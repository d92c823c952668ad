#include "boot/boot_kind.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "boot/machine.h"

namespace {

constexpr std::size_t kKib = 1024;

// "MZ" at the start, and at 200h "BJ", two harmless instructions ahead of the trap. A trap at the start tells a wrong
// entry.
std::string Dos7Head() {
  std::string head = "MZ\xCC";
  head.resize(0x200, '\x90');
  return head + "BJ";
}

const std::string kRestart = "\r\nPress any key to restart\r\n<key><int19>";
const std::string kError = "\r\nError!<key><int19>";
const std::string kReplace = "\r\nReplace the disk, and then press any key\r\n<key><int19>";
const std::string kShortRestart = "\r\nPress any key to restart<key><int19>";

}  // namespace

const ContractFacts& FactsOf(Contract contract) {
  constexpr std::size_t kUpToTheTop = (kMemoryKib - 128) * kKib;
  static const ContractFacts facts[] = {
      {0x2000, 0, 300001, 0, kUpToTheTop, kUpToTheTop + 1},
      {0x0060, 0, 90001, 0, 128 * kKib, 200 * kKib},
      {0x0070, 0, 40801, std::size_t{3} * 512, 0, 0},
      {0x0070, 0x202, 222391, std::size_t{4} * 512, 0, 0},
  };
  return facts[static_cast<std::size_t>(contract)];
}

std::ostream& operator<<(std::ostream& out, const BootKind& kind) { return out << kind.label; }

const std::vector<BootKind>& BootKinds() {
  static const std::vector<BootKind> kinds = {
      {.label = "Fat32Bootmgr",
       .keywords = {"FAT32", "WINPE"},
       .contract = Contract::kNt,
       .loader = "BOOTMGR    ",
       .missing = "\r\nBOOTMGR is missing" + kRestart,
       .unreadable = "\r\nDisk error" + kRestart,
       .lba_mark = 0x0E,
       .chs_mark = 0x00},
      {.label = "Fat32Ntldr",
       .keywords = {"FAT32", "NTLDR"},
       .contract = Contract::kNt,
       .loader = "NTLDR      ",
       .missing = "\r\nRemove disks or other media." + kRestart,
       .unreadable = "\r\nDisk error" + kRestart,
       .lba_mark = 0x0E,
       .chs_mark = 0x90},
      {.label = "Fat32FreeDos",
       .keywords = {"FAT32", "FREEDOS"},
       .contract = Contract::kFreeDos,
       .loader = "KERNEL  SYS",
       .missing = "\r\nNo KERNEL  SYS<key><int19>",
       .unreadable = "\r\nNo KERNEL  SYS<key><int19>",
       .first = "Loading FreeDOS ",
       .asks_geometry = false},
      {.label = "Fat16Bootmgr",
       .keywords = {"WINPE"},
       .contract = Contract::kNt,
       .loader = "BOOTMGR    ",
       .missing = "\r\nRemove disks or other media." + kShortRestart,
       .unreadable = "\r\nDisk error" + kShortRestart,
       .lba_mark = 0x0E,
       .chs_mark = 0x90,
       .asks_geometry = false,
       .checks_drive = false},
      {.label = "Fat16Ntldr",
       .keywords = {"XP"},
       .contract = Contract::kNt,
       .loader = "NTLDR      ",
       .missing = "\r\nNTLDR is missing" + kShortRestart,
       .unreadable = "\r\nDisk error" + kShortRestart,
       .lba_mark = 0x0E,
       .chs_mark = 0x90,
       .asks_geometry = false,
       .checks_drive = false},
      {.label = "Fat16FreeDos",
       .keywords = {"FREEDOS"},
       .contract = Contract::kFreeDos,
       .loader = "KERNEL  SYS",
       .missing = "\r\nError!<key><int19>",
       .unreadable = "\r\nError!<key><int19>"},
      {.label = "Fat16MsDos6",
       .keywords = {"MSDOS"},
       .contract = Contract::kDos6,
       .loader = "IO      SYS",
       .missing = kError,
       .unreadable = kError,
       .lba_mark = 0x0E,
       .chs_mark = 0x90,
       .checks_drive = false},
      {.label = "Fat16MsDos7",
       .keywords = {"MSDOS"},
       .contract = Contract::kDos7,
       .loader = "IO      SYS",
       .missing = kError,
       .unreadable = kError,
       .lba_mark = 0x0E,
       .chs_mark = 0x90,
       .checks_drive = false},
      {.label = "Fat16Zip6",
       .keywords = {"DOSZIP"},
       .contract = Contract::kDos6,
       .loader = "IO      SYS",
       .missing = "\r\nInvalid system disk" + kReplace,
       .unreadable = "\r\nDisk I/O error" + kReplace,
       .lba_mark = 0x90,
       .chs_mark = 0x90,
       .asks_geometry = false,
       .checks_drive = false},
      {.label = "Fat16Zip7",
       .keywords = {"DOSZIP"},
       .contract = Contract::kDos7,
       .loader = "IO      SYS",
       .missing = "\r\nInvalid system disk" + kReplace,
       .unreadable = "\r\nDisk I/O error" + kReplace,
       .lba_mark = 0x90,
       .chs_mark = 0x90,
       .asks_geometry = false,
       .checks_drive = false},
      {.label = "Fat32MsDos",
       .keywords = {"FAT32", "MSDOS"},
       .contract = Contract::kDos7,
       .loader = "IO      SYS",
       .missing = "\r\nInvalid system disk" + kReplace,
       .unreadable = "\r\nDisk I/O error" + kReplace,
       .lba_mark = 0x0C,
       .chs_mark = 0x90},
  };
  return kinds;
}

const BootKind& KindOf(const std::string& label) {
  for (const BootKind& kind : BootKinds()) {
    if (kind.label == label) {
      return kind;
    }
  }
  throw std::out_of_range(label);
}

bool IsFat32(const BootKind& kind) { return kind.keywords.front() == "FAT32"; }

bool LoadsWholeFile(const BootKind& kind) { return FactsOf(kind.contract).promised_bytes == 0; }

std::string LoaderFor(const BootKind& kind, std::size_t bytes) {
  return TrapLoader(bytes, kind.contract == Contract::kDos7 ? Dos7Head() : "");
}

std::string LoaderFor(const BootKind& kind) { return LoaderFor(kind, FactsOf(kind.contract).usual_bytes); }
