// The loaders that a prepared drive starts, and what each of them is promised.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

enum class Contract {
  kNt,       // BOOTMGR, NTLDR: the whole file at 2000:0000
  kFreeDos,  // the whole file at 0060:0000, the boot sector out of its way
  kDos6,     // MS-DOS 5 to 6: three sectors at 0070:0000, and the directory entries of the two system files
  kDos7,     // MS-DOS 7 and 8: four sectors at 0070:0000, entered at 0070:0200
};

struct ContractFacts {
  std::uint32_t segment;
  std::uint32_t entry;         // where a trap loader stops
  std::size_t usual_bytes;     // of the file
  std::size_t promised_bytes;  // in memory; 0: all
  std::size_t most_bytes;      // of a file that has to fit into memory, and of one that can't
  std::size_t too_many_bytes;
};
const ContractFacts& FactsOf(Contract contract);

// What byte 2 of the boot sector in memory says; kAnyMark where the loader doesn't look.
inline constexpr int kAnyMark = -1;

// One boot type of the command line with one kind of system file.
struct BootKind {
  std::string label;
  std::vector<std::string> keywords;  // of the command line
  Contract contract;
  std::string loader;         // the file's 11 characters
  std::string missing;        // what the screen shows, up to the key
  std::string unreadable;     // the same for what can't be read
  std::string first = "";     // what the screen shows before that, and before the loader is entered
  int lba_mark = kAnyMark;    // LBA calls work
  int chs_mark = kAnyMark;    // they don't
  bool asks_geometry = true;  // takes the BIOS's geometry where there are no LBA calls
  bool checks_drive = true;   // takes the volume's drive number where DL makes no sense
};
std::ostream& operator<<(std::ostream& out, const BootKind& kind);

// Every boot type on FAT32 and FAT16.
const std::vector<BootKind>& BootKinds();
// The one with this label.
const BootKind& KindOf(const std::string& label);
bool IsFat32(const BootKind& kind);
bool LoadsWholeFile(const BootKind& kind);
// A trap loader as this kind wants it.
std::string LoaderFor(const BootKind& kind, std::size_t bytes);
std::string LoaderFor(const BootKind& kind);
