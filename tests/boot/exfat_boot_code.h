// The boot code for exFAT drives, as the program carries it.
#pragma once

#include <cstdint>
#include <string>

// A master boot record whose table has one active entry.
std::string MasterBootRecord(std::uint32_t first_lba, std::uint32_t sectors);
// The twelve sectors of the exFAT boot image, patched to look for GRLDR if so wanted.
std::string ExfatBootCode(bool for_grldr);
