#include "ground/osal_heap.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>

void osal_growHeap(std::size_t bytes) noexcept {
  constexpr std::size_t kLargePage = std::size_t{2} << 20;
  constexpr int kOwnMapping = 32 << 20;  // glibc's highest limit: from there on not of the heap
  constexpr int kKept = 2 * kOwnMapping;
  if (bytes < 2 * kLargePage) return;
  if (::mallopt(M_MMAP_THRESHOLD, kOwnMapping) != 1 || ::mallopt(M_TRIM_THRESHOLD, kKept) != 1) {
    return;
  }
  std::size_t size = std::min(bytes, static_cast<std::size_t>(kOwnMapping) - kLargePage);
  void* const room = std::malloc(size);
  if (room == nullptr) return;
  void* first = room;
  if (std::align(kLargePage, kLargePage, first, size) != nullptr) {
    ::madvise(first, size, MADV_HUGEPAGE);
  }
  std::free(room);
}
#else
void osal_growHeap(std::size_t /*bytes*/) noexcept {}
#endif
