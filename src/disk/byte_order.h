// Little-endian fields of on-disk structures, the only place that knows their byte order.
#pragma once

#include <cstdint>

inline void StoreLittle(std::uint8_t* to, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    to[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

inline void Store16(std::uint8_t* to, std::uint16_t value) { StoreLittle(to, value, 2); }
inline void Store32(std::uint8_t* to, std::uint32_t value) { StoreLittle(to, value, 4); }
