#include "partition/reorder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "console/sector_dump.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "partition/mbr_builder.h"
#include "platform/byte_order.h"

namespace {

constexpr std::size_t kSlots = 4;
using Table = std::array<PartitionEntry, kSlots>;

Table TableInBuffer() {
  Table table{};
  std::memcpy(table.data(), &SectorBuffer[kTableOffset], sizeof table);
  return table;
}

void PutTable(const Table& table) { std::memcpy(&SectorBuffer[kTableOffset], table.data(), sizeof table); }

std::uint64_t FirstLba(const PartitionEntry& entry) { return LoadLittle(entry.first_lba, sizeof entry.first_lba); }

// A bubble sort: equal values stay in their order.
void SortAscending(std::array<std::uint64_t, kSlots>& values) {
  bool swapped = true;
  for (std::size_t limit = values.size() - 1; swapped && limit > 0; --limit) {
    swapped = false;
    for (std::size_t i = 0; i < limit; ++i) {
      if (values[i] > values[i + 1]) {
        std::swap(values[i], values[i + 1]);
        swapped = true;
      }
    }
  }
}

Table Swapped(Table table, std::size_t slot) {
  if (table[slot - 1].type == 0) {
    ConsoleWrite("Warning: Partition table " + PlainNumber(slot) + " has no partition!");
  }
  std::swap(table[0], table[slot - 1]);
  return table;
}

// Entries that begin at the same LBA keep their order, and each gets one slot.
Table Sorted(const Table& table) {
  std::array<std::uint64_t, kSlots> starts{};
  std::transform(table.begin(), table.end(), starts.begin(), FirstLba);
  SortAscending(starts);
  Table sorted{};
  std::array<bool, kSlots> placed{};
  std::size_t position = 0;
  for (const std::uint64_t start : starts) {
    for (std::size_t i = 0; start != 0 && i < kSlots; ++i) {
      if (FirstLba(table[i]) == start && !placed[i]) {
        ConsoleWrite("Moving partition table entry no. " + PlainNumber(i + 1) + " to position " +
                     PlainNumber(position + 1));
        sorted[position++] = table[i];
        placed[i] = true;
      }
    }
  }
  return sorted;
}

[[noreturn]] void WriteTable(std::int32_t drive, const std::string& success) {
  const std::string number = std::to_string(drive);
  if (!Confirmed("\r\nDrive " + number + "   " + DriveModel + "\r\n\r\nOK TO RE-ORDER PARTITION TABLE? ")) {
    MyExitProcess(kLevelUserAbort);
  }
  DisMount_All_Volumes(drive);
  const bool written = DirectWrite(0, 1);
  MyCloseHandle(DiskHandle);
  ConsoleWrite("\r\nRemounting drive " + number);
  ReMount_Drive(drive);
  if (!written) {
    ReportBox("\r\n*** ERROR *** writing to drive at LBA 0");
    MyExitProcess(kLevelWriteError);
  }
  ConsoleWrite(success);
  MyExitProcess(kLevelOk);
}

}  // namespace

void ReorderPartitions(std::int32_t drive, std::int16_t slot) {
  const bool sorts = slot == 0;
  const Table table = TableInBuffer();
  PutTable(sorts ? Sorted(table) : Swapped(table, static_cast<std::size_t>(slot)));
  if (OptDebug) {
    DebugWrite("\r\nBUFFER CONTENTS:");
    PrintDump(SectorBuffer);
  }
  if (OptNoWrite) {
    return;
  }
  WriteTable(drive,
             sorts ? "OK - Partition table order on Drive " + std::to_string(drive) + " now reset.!"
                   : "\r\nOK - Partition " + std::to_string(slot) + " is now the first entry in the partititon table.");
}

void CleanDrive(std::int32_t drive) {
  const std::string number = std::to_string(drive);
  if (OptNoWrite) {
    ConsoleWrite("\r\nSector not written to disk by request!");
    MyExitProcess(kLevelUserAbort);
  }
  if (!Confirmed("\r\nCLEAN Drive " + number + "   " + DriveModel + "\r\n\r\nOK TO ERASE ALL DATA ON THIS DRIVE? ")) {
    MyExitProcess(kLevelOperational);
  }
  DisMount_All_Volumes(drive);
  std::fill_n(SectorBuffer.begin(), kSectorBytes, std::uint8_t{0});
  Open_Physical_Disk_hDrive(drive);
  const bool written = DirectWrite(0, 1);
  MyCloseHandle(DiskHandle);
  ReMount_Drive(drive);
  if (!written) {
    ConsoleWrite("\r\n" + LastErrorText);
    ReportBox("WRITE ERROR TO MBR ON DRIVE " + number + "!", kBoxStop);
    MyExitProcess(kLevelWriteError);
  }
  ConsoleWrite("\r\nMBR and partition table erased." + MediaClassText());
  ReMount_Drive(drive);
  MyExitProcess(kLevelOk);
}
