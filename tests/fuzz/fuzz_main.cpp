// A fuzzer's entry point; KORVENTIX_FUZZ_TARGET names the routine.
#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KORVENTIX_FUZZ_TARGET(FuzzBytes(data, size));
  return 0;
}
