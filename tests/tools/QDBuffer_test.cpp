#include "tools/QDBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "Refusal.h"

namespace {

const std::string kNoSize = refused("Buffer size not defined");
const std::string kTwice = refused("Buffer duplicate alloc");

TEST(QDBuffer, IsAllocatedOnce) {
  QDBuffer buffer(100);
  unsigned char* const first = buffer.getPtr();
  EXPECT_EQ(buffer.getPtr(), first);
  EXPECT_EQ(refusal([&] { buffer.alloc(100); }), kTwice);
  buffer.release();
  buffer.alloc(100);
  EXPECT_EQ(refusal([&] { buffer.alloc(100); }), kTwice);
}

TEST(QDBuffer, NeedsOneSize) {
  QDBuffer buffer;
  EXPECT_EQ(refusal([&] { buffer.getPtr(); }), kNoSize);
  EXPECT_EQ(refusal([&] { buffer.alloc(0); }), kNoSize);
  EXPECT_EQ(refusal([&] { buffer.realloc(5); }), kNoSize);
  buffer.alloc(5);
  EXPECT_NE(buffer.getPtr(), nullptr);

  QDBuffer defined(100);
  EXPECT_EQ(refusal([&] { defined.alloc(200); }), refused("Size already defined"));
  defined.alloc(100);
}

TEST(QDBuffer, BeginsOnAPageIfAsked) {
  QDBuffer buffer(100, true, true);
  unsigned char* const data = buffer.getPtr();
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 4096, 0U);
  EXPECT_EQ(std::string(data, data + 100), std::string(100, '\0'));
  std::memset(data, 'x', 100);
  buffer.realloc(10000);
  unsigned char* const larger = buffer.getPtr();
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(larger) % 4096, 0U);
  EXPECT_EQ(std::string(larger, larger + 10000), std::string(100, 'x') + std::string(9900, '\0'));
}

TEST(QDBuffer, GrowsWithItsContent) {
  QDBuffer buffer(3);
  buffer.realloc(4);  // nothing to keep yet
  std::memcpy(buffer.getPtr(), "abcd", 4);
  buffer.realloc(4);
  buffer.realloc(1000);
  std::memset(buffer.getPtr() + 4, '.', 996);
  EXPECT_EQ(std::string(buffer.getPtr(), buffer.getPtr() + 4), "abcd");
  EXPECT_EQ(refusal([&] { buffer.realloc(999); }), refused("Cannot reduce size"));
  buffer.release();
  std::memset(buffer.getPtr(), 'x', 1000);
}

}  // namespace
