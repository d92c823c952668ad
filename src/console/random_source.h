// The program's one random source, for disk signatures and volume serial numbers.
#pragma once

#include <cstdint>

// Seeds the source; the same seed gives the same numbers.
void SeedRandom(std::uint64_t seed);
// The next number, uniform from 0 to below 1, in single precision.
float NextRandom();
