// The one road to the raw drive: runs of 512-byte sectors between DiskHandle and SectorBuffer. No cache, no retry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "platform/platform.h"

inline constexpr std::uint32_t kSectorBytes = 512;
inline constexpr std::size_t kSignatureOffset = 0x1FE;  // 0x55 0xAA, at the end of every sector that a BIOS starts

// Memory that begins on a page, as systems want it of transfers on drives and volumes.
template <typename Element>
struct PageAllocator {
  using value_type = Element;
  static constexpr std::align_val_t kPage{4096};

  Element* allocate(std::size_t count) { return static_cast<Element*>(operator new(count * sizeof(Element), kPage)); }
  void deallocate(Element* memory, std::size_t /*count*/) { operator delete(memory, kPage); }
  bool operator==(const PageAllocator& /*other*/) const { return true; }
};

// Source of every write and target of every read, always from index 0. Sized by whoever uses it.
inline std::vector<std::uint8_t, PageAllocator<std::uint8_t>> SectorBuffer;

// Last-transfer values, written by DirectRead and DirectWrite.
inline std::uint64_t LastSectorLba = 0;      // first sector of the latest transfer, also of one that failed
inline std::uint32_t LastTransferBytes = 0;  // bytes that it moved, 0 when it failed
inline std::uint32_t LastDllError = 0;       // the platform's error code behind it
inline std::string LastErrorText;            // its text; after a success the text of code 0

// Gives SectorBuffer the indices 0 to `last`, all zero. Ends the run with level 6 where there is no memory for them.
void SizeSectorBuffer(std::size_t last);

// Reads or writes `sectors` sectors from `lba` on in one transfer. False when the platform reports a failure; true says
// nothing of how many bytes a read brought (LastTransferBytes does). What is written has been flushed. Prints nothing.
// SectorBuffer must hold the transfer, which stays below 2^31 bytes.
bool DirectRead(std::uint64_t lba, std::int32_t sectors);
bool DirectWrite(std::uint64_t lba, std::int32_t sectors);

// CR LF, "ERROR: " and the system's message for `code` (the last error in place of 0), without its line end; empty for
// a code that the system does not know.
std::string SystemErrorText(std::uint32_t code);

// Reads six sectors from LBA 0 into SectorBuffer, sized for them: the MBR and the head of a GPT. With OptDebug they are
// dumped. Ends the run with level 6 when the read fails.
void LoadDriveHeader();
