// Where the bytes of a simulated drive are kept.
#pragma once

#include <cstdint>

#include "platform/platform.h"

// Positions and lengths are bytes; a transfer lies inside the store, moves everything, or fails.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  virtual ~Store() = default;

  virtual std::uint64_t Size() const = 0;
  virtual ErrorCode Read(std::uint64_t position, ByteSpan buffer) = 0;
  virtual ErrorCode Write(std::uint64_t position, ConstByteSpan bytes) = 0;
  // Passes what was written on to the medium.
  virtual ErrorCode Flush() = 0;
};
