// A store in memory for simulated drives: sparse, so that a drive of any size costs what is written to it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>

#include "platform/simulated/store.h"

class MemoryStore : public Store {
 public:
  explicit MemoryStore(std::uint64_t bytes) : bytes_(bytes) {}

  std::uint64_t Size() const override { return bytes_; }

  ErrorCode Read(std::uint64_t position, ByteSpan buffer) override {
    for (std::size_t i = 0; i < buffer.size();) {
      const Piece piece = PieceAt(position + i, buffer.size() - i);
      const auto found = blocks_.find(piece.block);
      const ByteSpan to = buffer.subspan(i, piece.bytes);
      if (found == blocks_.end()) {
        std::fill(to.begin(), to.end(), std::uint8_t{0});
      } else {
        std::copy_n(found->second.begin() + piece.offset, piece.bytes, to.begin());
      }
      i += piece.bytes;
    }
    return kErrorNone;
  }

  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes) override {
    for (std::size_t i = 0; i < bytes.size();) {
      const Piece piece = PieceAt(position + i, bytes.size() - i);
      const ConstByteSpan from = bytes.subspan(i, piece.bytes);
      const bool zeros = std::all_of(from.begin(), from.end(), [](std::uint8_t byte) { return byte == 0; });
      if (!zeros || blocks_.contains(piece.block)) {
        std::copy(from.begin(), from.end(), blocks_[piece.block].begin() + piece.offset);
      }
      i += piece.bytes;
    }
    return kErrorNone;
  }

  ErrorCode Flush() override {
    ++flushes;
    return kErrorNone;
  }

  int flushes = 0;  // how often Flush was called

 private:
  static constexpr std::size_t kBlockBytes = 512;
  struct Piece {
    std::uint64_t block;
    std::ptrdiff_t offset;  // in the block
    std::size_t bytes;
  };

  static Piece PieceAt(std::uint64_t position, std::size_t most) {
    const std::size_t offset = position % kBlockBytes;
    return {position / kBlockBytes, static_cast<std::ptrdiff_t>(offset), std::min(most, kBlockBytes - offset)};
  }

  std::uint64_t bytes_;
  std::map<std::uint64_t, std::array<std::uint8_t, kBlockBytes>> blocks_;
};
