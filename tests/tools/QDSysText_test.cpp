#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "LogCapture.h"
#include "Refusal.h"
#include "tools/QDSys.h"

namespace {

thread_local std::size_t nextLength = 0;

}  // namespace

// The linker sends the calls of strlen here (see --wrap in CMakeLists.txt), since 4 GiB of text
// take seconds to lay out.
extern "C" {

std::size_t __real_strlen(const char* text);
std::size_t __wrap_strlen(const char* text) {
  return nextLength != 0 ? std::exchange(nextLength, 0) : __real_strlen(text);
}

}  // extern "C"

namespace {

TEST(QDSysText, RefusesNullArguments) {
  unsigned char room[4] = {};
  const unsigned char* const s = bytes("s");
  const char* const noFormat = nullptr;
  const struct {
    std::function<void()> operation;
    const char* message;
  } kCases[] = {
      {[] { QDSys::strlen(nullptr); }, "strlen: Arg is NULL"},
      {[&] { QDSys::memcpy(nullptr, s, 1); }, "memcpy: First arg is NULL"},
      {[&] { QDSys::memcpy(room, nullptr, 1); }, "memcpy: Second arg is NULL"},
      {[] { QDSys::memcpy(nullptr, nullptr, 0); }, "memcpy: First arg is NULL"},
      {[&] { QDSys::strIsEqual(nullptr, s); }, "strIsEqual: First arg is NULL"},
      {[&] { QDSys::strIsEqual(s, nullptr); }, "strIsEqual: Second arg is NULL"},
      {[&] { QDSys::strIsNEqual(nullptr, s, 0); }, "strIsNEqual: First arg is NULL"},
      {[&] { QDSys::strIsNEqual(s, nullptr, 0); }, "strIsNEqual: Second arg is NULL"},
      {[&] { QDSys::strncpy(nullptr, s, 4, true); }, "strncpy: First arg is NULL"},
      {[&] { QDSys::strncpy(room, nullptr, 4, true); }, "strncpy: Second arg is NULL"},
      {[&] { QDSys::snprintf(reinterpret_cast<char*>(room), 4, noFormat); },
       "snprintf: format is NULL"},
      {[] { QDSys::snprintf(nullptr, 4, "x"); }, "snprintf: buf is NULL"},
      {[&] { QDSys::encodeURLfromUTF8(nullptr, room, 4); }, "encodeURLfromUTF8: First arg is NULL"},
      {[&] { QDSys::decodeURLtoUTF8(s, nullptr, 4); }, "decodeURLtoUTF8: Second arg is NULL"},
      {[&] { QDSys::convertBinToHex(nullptr, 1, room, 4, true); },
       "convertBinToHex: First arg is NULL"},
      {[&] { QDSys::convertHexToBin(s, 2, nullptr, 4); }, "convertHexToBin: Second arg is NULL"},
      {[&] { QDSys::convertHexStrNullToBin(nullptr, 0, room, 4); },
       "convertHexStrNullToBin: First arg is NULL"},
      {[&] { QDSys::QDRand(nullptr, 4); }, "random: First arg is NULL"},
  };
  for (const auto& [operation, message] : kCases) {
    SCOPED_TRACE(message);
    EXPECT_EQ(refusal(operation), refused(message));
  }
}

TEST(QDSysText, MeasuresStringsBelow4GiB) {
  EXPECT_EQ(QDSys::strlen(bytes("")), 0U);
  EXPECT_EQ(QDSys::strlen(bytes("abc")), 3U);
  EXPECT_EQ(refusal([&] {
              nextLength = 0x100000000;
              QDSys::strlen(bytes("huge"));
            }),
            refused("strlen: too long"));
  nextLength = 0xFFFFFFFF;
  EXPECT_EQ(QDSys::strlen(bytes("large")), 0xFFFFFFFFU);
}

TEST(QDSysText, Compares) {
  constexpr struct {
    const char* a;
    const char* b;
    unsigned int n;
    bool equal;
    bool equalUpToN;
  } kCases[] = {
      {"abc", "abc", 3, true, true},   {"abc", "abd", 2, false, true},
      {"abc", "abd", 3, false, false}, {"abc", "ab", 3, false, false},
      {"abc", "ab", 2, false, true},   {"", "", 5, true, true},
      {"x", "y", 0, false, true},      {"\xff", "\x7f", 1, false, false},
  };
  for (const auto& [a, b, n, equal, equalUpToN] : kCases) {
    SCOPED_TRACE(testing::Message() << a << ", " << b << ", " << n);
    EXPECT_EQ(QDSys::strIsEqual(bytes(a), bytes(b)), equal);
    EXPECT_EQ(QDSys::strIsNEqual(bytes(a), bytes(b), n), equalUpToN);
  }
}

TEST(QDSysText, CopiesStrings) {
  const std::string overflow = refused("strncpy: Cannot copy string (overflow)");
  const struct {
    const char* source;
    unsigned int size;
    std::string refused;
    std::string strictResult;  // "#": untouched
    std::string laxResult;
  } kCases[] = {
      {"", 0, overflow, "#####", "#####"},
      {"a", 0, overflow, "#####", "#####"},
      {"", 1, "nothing", std::string("\0####", 5), std::string("\0####", 5)},
      {"a", 1, overflow, "#####", "a####"},
      {"ab", 4, "nothing", std::string("ab\0\0#", 5), std::string("ab\0\0#", 5)},
      {"abc", 4, "nothing", std::string("abc\0#", 5), std::string("abc\0#", 5)},
      {"abcd", 4, overflow, "#####", "abcd#"},
      {"abcde", 4, overflow, "#####", "abcd#"},
  };
  for (const auto& [source, size, refusedWith, strictResult, laxResult] : kCases) {
    SCOPED_TRACE(testing::Message() << source << ", " << size);
    std::string target = "#####";
    auto* const to = reinterpret_cast<unsigned char*>(target.data());
    EXPECT_EQ(refusal([to, source = source, size = size] {
                QDSys::strncpy(to, bytes(source), size, true);
              }),
              refusedWith);
    EXPECT_EQ(target, strictResult);
    target = "#####";
    QDSys::strncpy(to, bytes(source), size, false);
    EXPECT_EQ(target, laxResult);
  }
}

TEST(QDSysText, PrintsWhatFits) {
  std::array<char, 4> text{'#', '#', '#', '#'};
  QDSys::snprintf(text.data(), 3, "%d", 12345);
  EXPECT_EQ(std::string(text.data(), 4), std::string("12\0#", 4));
  QDSys::snprintf(text.data(), 4, "%s", "abc");
  EXPECT_STREQ(text.data(), "abc");
  QDSys::snprintf(nullptr, 0, "%d", 1);

  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  EXPECT_EQ(refusal([&] { QDSys::snprintf(text.data(), 4, "%ls", L"\u20ac"); }),
            refused("osal_vsnprintf failed"));
}

constexpr unsigned long long kMax = 18446744073709551615ULL;

struct Number {
  const char* text;
  bool valid;
  unsigned long long value;
};

constexpr Number kDecimals[] = {
    {"0", true, 0},
    {"007", true, 7},
    {"1234567890", true, 1234567890},
    {"18446744073709551615", true, kMax},
    {"18446744073709551616", false, 0},
    {"18446744073709551620", false, 0},
    {"20000000000000000000", false, 0},
    {"184467440737095516150", false, 0},
    {"00000000018446744073709551615", true, kMax},
    {"", false, 0},
    {nullptr, false, 0},
    {"12a", false, 0},
    {"a", false, 0},
    {"-1", false, 0},
    {"+1", false, 0},
    {" 1", false, 0},
    {"1 ", false, 0},
    {"/", false, 0},
    {":", false, 0},
};

constexpr Number kHexadecimals[] = {
    {"0", true, 0},
    {"ffffffffffffffff", true, kMax},
    {"FFFFFFFFFFFFFFFF", true, kMax},
    {"0123456789abcdef", true, 0x0123456789abcdef},
    {"0000ABCDEFabcdef", true, 0xABCDEFabcdef},
    {"00ffffffffffffffff", true, kMax},
    {"10000000000000000", false, 0},
    {"fffffffffffffffff", false, 0},
    {"0x10", false, 0},
    {"g", false, 0},
    {"G", false, 0},
    {"@", false, 0},
    {"`", false, 0},
    {"", false, 0},
    {nullptr, false, 0},
};

TEST(QDSysText, ParsesNumbers) {
  for (const auto& [text, valid, value] : kDecimals) {
    SCOPED_TRACE(text == nullptr ? "null" : text);
    bool ok = !valid;
    EXPECT_EQ(QDSys::atoll(text, &ok), value);
    EXPECT_EQ(ok, valid);
    unsigned long long number = 99;
    EXPECT_EQ(QDSys::atoll(text, number), valid);
    EXPECT_EQ(number, value);
  }
  for (const auto& [text, valid, value] : kHexadecimals) {
    SCOPED_TRACE(text == nullptr ? "null" : text);
    bool ok = !valid;
    EXPECT_EQ(QDSys::atoll16(text, &ok), value);
    EXPECT_EQ(ok, valid);
    unsigned long long number = 99;
    EXPECT_EQ(QDSys::atoll16(text, number), valid);
    EXPECT_EQ(number, value);
  }
}

}  // namespace
