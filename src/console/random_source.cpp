#include "console/random_source.h"

static std::uint64_t random_state = 0;

void SeedRandom(std::uint64_t seed) { random_state = seed; }

float NextRandom() {
  // A Weyl sequence through a 64-bit mixer; the upper 24 bits are what single precision holds exactly.
  random_state += 0x9E3779B97F4A7C15U;
  std::uint64_t mixed = random_state;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
  mixed ^= mixed >> 31;
  return static_cast<float>(mixed >> 40) / static_cast<float>(1U << 24);
}
