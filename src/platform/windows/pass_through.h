// The one buffer with which SCSI commands pass through the system: its header, the sense bytes and the data behind it.
//
// In a program of 32 bits the header takes 44 bytes, with the sense bytes at 44, the data at 76, and 1100 bytes in all.
// In one of 64 bits the system wants DataBufferOffset as 8 bytes on a multiple of 8: it then lies at 24,
// SenseInfoOffset at 32 and the command at 36, and the header ends at 56. What follows is 12 bytes further behind, and
// there are 1112 bytes in all. Fields before DataBufferOffset have the same places in both.
#pragma once

#include "platform/windows/system_calls.h"
// Behind windows.h, whose names it needs.
#include <ntddscsi.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/platform.h"

inline constexpr std::size_t kSenseBytes = 32;
inline constexpr std::size_t kPassThroughDataBytes = 1024;
// Of the whole buffer the last three bytes are not given to the system, neither as input nor as output.
inline constexpr std::size_t kBytesNotGiven = 3;

template <typename Header>
struct PassThrough {
  Header header{};
  std::array<std::uint8_t, kSenseBytes> sense{};
  std::array<std::uint8_t, kPassThroughDataBytes> data{};

  // The buffer for a command with data from the device: `reply` is as long as the data that it asks for, at most 1020
  // bytes, and what the device doesn't fill keeps its bytes.
  PassThrough(ConstByteSpan cdb, ConstByteSpan reply) {
    header.Length = sizeof header;
    header.TargetId = 1;
    header.CdbLength = static_cast<std::uint8_t>(cdb.size());
    header.SenseInfoLength = 24;
    header.DataIn = SCSI_IOCTL_DATA_IN;
    header.DataTransferLength = static_cast<std::uint32_t>(reply.size());
    header.TimeOutValue = 2;  // seconds
    header.DataBufferOffset = offsetof(PassThrough, data);
    header.SenseInfoOffset = offsetof(PassThrough, sense);
    std::copy(cdb.begin(), cdb.end(), header.Cdb);
    std::copy(reply.begin(), reply.end(), data.begin());
  }
};

using NativePassThrough = PassThrough<SCSI_PASS_THROUGH>;
inline constexpr std::uint32_t kPassThroughBytesGiven = sizeof(NativePassThrough) - kBytesNotGiven;

#ifdef _WIN64
using PassThroughOf32Bits = PassThrough<SCSI_PASS_THROUGH32>;
static_assert(offsetof(SCSI_PASS_THROUGH, DataBufferOffset) == 24 &&
              offsetof(SCSI_PASS_THROUGH, SenseInfoOffset) == 32);
static_assert(offsetof(SCSI_PASS_THROUGH, Cdb) == 36 && sizeof(SCSI_PASS_THROUGH) == 56);
static_assert(sizeof(NativePassThrough) == 1112 && kPassThroughBytesGiven == 1109);
#else
using PassThroughOf32Bits = NativePassThrough;
#endif
static_assert(offsetof(decltype(PassThroughOf32Bits::header), DataTransferLength) == 12);
static_assert(offsetof(decltype(PassThroughOf32Bits::header), DataBufferOffset) == 20);
static_assert(offsetof(decltype(PassThroughOf32Bits::header), SenseInfoOffset) == 24);
static_assert(offsetof(decltype(PassThroughOf32Bits::header), Cdb) == 28);
static_assert(offsetof(PassThroughOf32Bits, sense) == 44 && offsetof(PassThroughOf32Bits, data) == 76);
static_assert(sizeof(PassThroughOf32Bits) == 1100);
