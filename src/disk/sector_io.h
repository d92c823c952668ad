// The one road to the raw drive: runs of 512-byte sectors between DiskHandle and SectorBuffer. No cache, no retry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

inline constexpr std::uint32_t kSectorBytes = 512;
inline constexpr std::size_t kSignatureOffset = 0x1FE;  // 0x55 0xAA, at the end of every sector that a BIOS starts

// Source of every write and target of every read, always from index 0. Sized by whoever uses it.
inline std::vector<std::uint8_t> SectorBuffer;

// Last-transfer values, written by DirectRead and DirectWrite.
inline std::uint64_t LastSectorLba = 0;      // first sector of the latest transfer, also of one that failed
inline std::uint32_t LastTransferBytes = 0;  // bytes that it moved, 0 when it failed
inline std::uint32_t LastDllError = 0;       // the platform's error code behind it
inline std::string LastErrorText;            // its text; after a success the text of code 0

// Gives SectorBuffer the indices 0 to `last`, all zero.
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
