#pragma once

#include <memory>

#include "ground/QDMarkers.h"

/// A heap buffer whose size is fixed before its first use, on a page boundary and filled with zeros
/// if asked for. Misuse is logged and thrown. Used by one thread at a time.
class QDBuffer : private qd_no_duplic {
 public:
  static constexpr unsigned int kPageSize = 4096;

  /// A buffer of `n` bytes, or, when `n` is 0, of the size that `alloc` is given. Nothing is
  /// allocated yet. `onPage`: it shall begin at a multiple of `kPageSize`.
  explicit QDBuffer(unsigned int n = 0, bool onPage = false, bool zeroed = false);
  virtual ~QDBuffer();

  /// The buffer, which stays this object's; allocated at the first call.
  unsigned char* getPtr();

  /// Defines the size as `n`, or confirms it, and allocates. Once allocated it cannot be repeated.
  void alloc(unsigned int n);

  /// Makes the buffer larger and keeps its content. Its place changes. An `n` below the size is
  /// refused.
  void realloc(unsigned int n);

  /// Frees the memory; the next `getPtr` allocates the same size afresh.
  void release();

 private:
  void _alloc();
  [[nodiscard]] std::unique_ptr<unsigned char[]> newBlock(unsigned int n) const;
  [[nodiscard]] unsigned char* dataOf(unsigned char* memory) const;

  unsigned int size;  // 0: not defined yet
  std::unique_ptr<unsigned char[]> block;
  unsigned char* data = nullptr;  // in `block`
  bool pageAligned;
  bool zeroFill;
};
