// Blocks of memory of a sector and more begin on a page, as the system wants it of transfers on drives and volumes,
// which come straight from the program's buffers. The library would have them on any multiple of 16.
#include <malloc.h>

#include <cstddef>
#include <new>

void* operator new(std::size_t bytes) {
  constexpr std::size_t kSector = 512;
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kSmall = 16;
  if (void* block = _aligned_malloc(bytes == 0 ? 1 : bytes, bytes < kSector ? kSmall : kPage)) {
    return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept { _aligned_free(block); }

void operator delete(void* block, std::size_t /*bytes*/) noexcept { _aligned_free(block); }
