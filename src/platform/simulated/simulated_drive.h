// A USB or other drive played on a store: honest, or one of several kinds of counterfeit.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "platform/simulated/drive_traits.h"
#include "platform/simulated/store.h"

class SimulatedDrive {
 public:
  // The store is as long as the drive claims to be, or as long as the memory that a counterfeit has.
  SimulatedDrive(DriveTraits traits, std::unique_ptr<Store> store);

  // The claimed length in bytes.
  std::uint64_t Size() const { return bytes_; }
  const DriveTraits& Traits() const { return traits_; }

  // Transfers at a byte position. They move everything, or nothing and fail: kErrorInvalidParameter when not made of
  // whole sectors, kErrorSectorNotFound across the end, kErrorWriteProtected, kErrorCrc where they touch a bad sector.
  ErrorCode Read(std::uint64_t position, ByteSpan buffer);
  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes);
  ErrorCode Flush() { return store_->Flush(); }

  // Answers READ CAPACITY (10), standard INQUIRY and the unit serial number page; false for any other command.
  // `returned` gets the bytes that were stored in `data`.
  bool Scsi(ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) const;

 private:
  struct CachedSector {
    std::uint64_t written = 0;  // number of the write that it came with
    std::vector<std::uint8_t> bytes;
  };
  struct CachedWrite {
    std::uint64_t sector;
    std::uint64_t written;
  };

  // A part of a transfer that lies in one piece in the store.
  struct Piece {
    std::uint64_t place;  // in the store
    std::size_t offset;   // in the transfer
    std::size_t bytes;
    bool present;  // false where the drive has no memory
  };

  std::vector<Piece> PiecesOf(std::uint64_t position, std::size_t bytes) const;
  ErrorCode CheckTransfer(std::uint64_t position, std::uint64_t bytes, const std::vector<SectorRange>& bad) const;
  ErrorCode ReadMemory(std::uint64_t position, ByteSpan buffer);
  ErrorCode WriteMemory(std::uint64_t position, ConstByteSpan bytes);
  void CacheSectors(std::uint64_t position, ConstByteSpan bytes);
  void OverlayCache(std::uint64_t position, ByteSpan buffer) const;
  std::vector<std::uint8_t> Capacity() const;
  std::vector<std::uint8_t> Inquiry() const;
  std::vector<std::uint8_t> SerialPage() const;

  DriveTraits traits_;
  std::unique_ptr<Store> store_;
  std::uint64_t bytes_;
  std::uint64_t writes_ = 0;  // sectors written so far
  std::unordered_map<std::uint64_t, CachedSector> cache_;
  std::deque<CachedWrite> cache_order_;  // oldest first; the newest entry of a sector is the one that counts
};
