#include "tools/QDBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tools/QDException.h"

QDBuffer::QDBuffer(unsigned int n, bool onPage, bool zeroed)
    : size(n), pageAligned(onPage), zeroFill(zeroed) {}

QDBuffer::~QDBuffer() { release(); }

unsigned char* QDBuffer::getPtr() {
  if (!block) _alloc();
  return data;
}

void QDBuffer::alloc(unsigned int n) {
  if (size != 0 && size != n) QD_THROW_ERROR("Size already defined");
  size = n;
  _alloc();
}

void QDBuffer::realloc(unsigned int n) {
  if (size == 0) QD_THROW_ERROR("Buffer size not defined");
  if (n < size) QD_THROW_ERROR("Cannot reduce size");
  if (n == size) return;
  if (block) {
    std::unique_ptr<unsigned char[]> larger = newBlock(n);
    std::memcpy(dataOf(larger.get()), data, size);
    block = std::move(larger);
    data = dataOf(block.get());
  }
  size = n;
}

void QDBuffer::release() {
  block.reset();
  data = nullptr;
}

void QDBuffer::_alloc() {
  if (size == 0) QD_THROW_ERROR("Buffer size not defined");
  if (block) QD_THROW_ERROR("Buffer duplicate alloc");
  block = newBlock(size);
  data = dataOf(block.get());
}

std::unique_ptr<unsigned char[]> QDBuffer::newBlock(unsigned int n) const {
  // A 32-bit machine cannot count every size. It asks for the largest instead, and is refused as
  // for any other size for which there is no memory.
  const std::uint64_t wanted = std::uint64_t{n} + (pageAligned ? kPageSize : 0);
  const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, SIZE_MAX));
  unsigned char* const memory = zeroFill ? new unsigned char[length]() : new unsigned char[length];
  return std::unique_ptr<unsigned char[]>(memory);
}

/// The first page boundary above `memory`, so up to a page behind it, when aligned.
unsigned char* QDBuffer::dataOf(unsigned char* memory) const {
  if (!pageAligned) return memory;
  return memory + (kPageSize - reinterpret_cast<std::uintptr_t>(memory) % kPageSize);
}
