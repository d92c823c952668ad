// Little-endian fields of on-disk structures, the only place that knows their byte order. It stands below the port
// since the simulated machine reads partition tables too.
#pragma once

#include <cstdint>

inline void StoreLittle(std::uint8_t* to, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    to[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

inline void Store16(std::uint8_t* to, std::uint16_t value) { StoreLittle(to, value, 2); }
inline void Store32(std::uint8_t* to, std::uint32_t value) { StoreLittle(to, value, 4); }

inline std::uint64_t LoadLittle(const std::uint8_t* from, int bytes) {
  std::uint64_t value = 0;
  for (int i = bytes; i-- > 0;) {
    value = value << 8 | from[i];
  }
  return value;
}
