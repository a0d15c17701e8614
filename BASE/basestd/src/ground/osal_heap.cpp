#include "ground/osal_heap.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

#if defined(__GLIBC__)
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

void osal_growHeap(std::size_t bytes) noexcept {
  constexpr std::size_t kLargePage = std::size_t{2} << 20;
  constexpr int kOwnMapping = 32 << 20;  // glibc's highest limit: from there on not of the heap
  constexpr int kKept = 2 * kOwnMapping;
  constexpr int kUsualPad = 128 << 10;
  constexpr std::size_t kSmall = std::size_t{256} << 10;  // more than the heap has left
  static std::size_t grown = 0;
  if (bytes < 2 * kLargePage || bytes <= grown) return;
  const std::size_t room = std::min<std::size_t>(bytes, std::numeric_limits<int>::max() / 2);
  if (::mallopt(M_MMAP_THRESHOLD, kOwnMapping) != 1 || ::mallopt(M_TRIM_THRESHOLD, kKept) != 1 ||
      ::mallopt(M_TOP_PAD, static_cast<int>(room + 2 * kLargePage)) != 1) {
    return;
  }
  grown = bytes;
  void* const start = std::malloc(kSmall);
  ::mallopt(M_TOP_PAD, kUsualPad);
  // A page of the usual size in its place would prevent a large one.
  const auto begin = reinterpret_cast<std::uintptr_t>(start);
  const std::uintptr_t first = (begin + kSmall + kLargePage) / kLargePage * kLargePage;
  const auto end = reinterpret_cast<std::uintptr_t>(::sbrk(0)) / kLargePage * kLargePage;
  std::free(start);
  if (start == nullptr || begin >= end || first >= end) return;
  ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
  // What follows is to lie in them from its first byte on. The gap before costs addresses only.
  static void* gap = nullptr;
  if (gap == nullptr) gap = std::malloc(first - begin);
}
#else
void osal_growHeap(std::size_t /*bytes*/) noexcept {}
#endif
