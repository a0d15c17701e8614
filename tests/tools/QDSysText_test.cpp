// Strings, numbers and the encodings of bytes.

#include "tools/QDSys.h"

#include <gtest/gtest.h>

#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ToolsTest.h"

namespace {

/// What `convert(out, size)` puts into a buffer of exactly `size` bytes, or its message.
template <typename Convert>
std::string converted(std::size_t size, Convert convert) {
  std::vector<unsigned char> out(size + 1, '#');
  int length = 0;
  const std::string message =
      refusal([&] { length = convert(out.data(), static_cast<unsigned int>(size)); });
  EXPECT_EQ(out[size], '#');
  return message == "nothing" ? std::string(out.begin(), out.begin() + length) : message;
}

std::string toHex(const std::string& data, std::size_t size, bool lowerCase = false) {
  return converted(size, [&](unsigned char* out, unsigned int n) {
    return QDSys::convertBinToHex(data.data(), static_cast<unsigned int>(data.size()), out, n,
                                  lowerCase);
  });
}

std::string fromHex(const std::string& hex, unsigned int length, std::size_t size) {
  const std::vector<unsigned char> exact(hex.c_str(), hex.c_str() + hex.size() + 1);
  return converted(size, [&](unsigned char* out, unsigned int n) {
    return QDSys::convertHexToBin(exact.data(), length, out, n);
  });
}

template <typename Coder>
std::string coded(Coder coder, const std::string& text, std::size_t size) {
  return converted(size,
                   [&](unsigned char* out, unsigned int n) { return coder(bytes(text), out, n); });
}

std::string decodedInPlace(std::string text) {
  auto* const buffer = reinterpret_cast<unsigned char*>(text.data());
  const auto size = static_cast<unsigned int>(text.size() + 1);
  return text.substr(0, static_cast<std::size_t>(QDSys::decodeURLtoUTF8(buffer, buffer, size)));
}

std::string printed(const char* format, int byte) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), format, byte);
  return text.data();
}

TEST(QDSysText, ParsesNumbersThatFit) {
  unsigned long long number = 0;
  EXPECT_TRUE(QDSys::atoll("00018446744073709551615", number) && number == ~0ULL);
  EXPECT_TRUE(QDSys::atoll16("00FFFFFFFFffffffff", number) && number == ~0ULL);
  EXPECT_FALSE(QDSys::atoll16("10000000000000000", number));
  for (const char* const text : {"18446744073709551616", "-1", "/", ":", ""}) {
    EXPECT_FALSE(QDSys::atoll(text, number)) << text;
  }
}

TEST(QDSysHex, ConvertsWhatFits) {
  const std::string binShort = refused("convertBinToHex: Buffer too short");
  const std::string hexShort = refused("convertHexToBin: Buffer too short");
  EXPECT_EQ(toHex("\x0A\xFF", 4), "0AFF");
  EXPECT_EQ(toHex("\x0A\xFF", 3), binShort);
  EXPECT_EQ(fromHex("123", 3, 1), "\x12");
  EXPECT_EQ(fromHex("1234", 4, 1), hexShort);
  EXPECT_EQ(fromHex("123", 32, 16), "\x12");  // ends before its length: no byte behind is read
  unsigned char out[4] = {};                  // and digits that 32 bits cannot count
  EXPECT_EQ(refusal([&] { QDSys::convertBinToHex("a", 1U << 31, out, 99, false); }), binShort);
  EXPECT_EQ(refusal([&] { QDSys::convertHexToBin(out, 0xFFFFFFFF, out, 0x7FFFFFFE); }), hexShort);
}

TEST(QDSysHex, AgreesWithPrintfForEveryByteAndTakesNothingButDigits) {
  std::string data;
  std::string upper;
  std::string lower;
  for (int byte = 0; byte < 256; ++byte) {
    data += static_cast<char>(byte);
    upper += printed("%02X", byte);
    lower += printed("%02x", byte);
    EXPECT_EQ(fromHex(data.back() + std::string("1"), 2, 1).size(), std::isxdigit(byte) ? 1U : 0U);
    EXPECT_EQ(fromHex(std::string("1") + data.back(), 2, 1).size(), std::isxdigit(byte) ? 1U : 0U);
  }
  EXPECT_EQ(toHex(data, 512), upper);
  EXPECT_EQ(toHex(data, 512, true), lower);
  EXPECT_EQ(fromHex(upper, 512, 256), data);
  EXPECT_EQ(fromHex(lower, 512, 256), data);
}

TEST(QDSysUrl, EncodesEveryByteWithFourBytesToSpare) {
  for (const auto& [text, smallest, expected] :
       std::initializer_list<std::tuple<const char*, std::size_t, const char*>>{
           {"", 1, ""}, {" a", 7, "%20a"}, {"\xC3\xA9", 7, "%C3%A9"}}) {
    EXPECT_EQ(coded(QDSys::encodeURLfromUTF8, text, smallest), expected);
    EXPECT_EQ(coded(QDSys::encodeURLfromUTF8, text, smallest - 1),
              refused("encodeURLfromUTF8: Buffer too short"));
  }
  for (int c = 1; c < 256; ++c) {
    const bool stays = c < 128 && (std::isalnum(c) != 0 || std::strchr("-./_~", c) != nullptr);
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(coded(QDSys::encodeURLfromUTF8, text, 4), stays ? text : printed("%%%02X", c));
  }
}

TEST(QDSysUrl, DecodesUpperCaseEscapesOnlyWhereverTheyLie) {
  for (const std::size_t before : {0, 1, 14, 15, 16, 17, 31, 32, 33, 8190, 8191, 8192}) {
    // Of all bytes this one is the furthest from "%", which it must not hide.
    const std::string start(before, '\xDA');
    const std::string text = start + "%41%4a%4g%G1%4%%42%2541+b%/0%:0%@0 and some more\xDA%C3%A9%4";
    const std::string expected = start + "A%4a%4g%G1%4%B%41+b%/0%:0%@0 and some more\xDA\xC3\xA9%4";
    EXPECT_EQ(coded(QDSys::decodeURLtoUTF8, text, expected.size() + 1), expected);
    EXPECT_EQ(coded(QDSys::decodeURLtoUTF8, text, expected.size()),
              refused("decodeURLtoUTF8: Buffer too short"));
    EXPECT_EQ(decodedInPlace(text), expected);
  }
}

// "?" is U+FFFD in what is expected.
TEST(QDSysUtf8, ReplacesWhatIsIllFormedAlsoInPlace) {
  constexpr const char* kCases[][2] = {
      {"\x7F\x80\xBF", "\x7F??"},
      {"\xC0\xC1\xC2", "???"},
      {"\xC0\x80\xC1\xBF\xC2\x80\xDF\xBF", "??\xC2\x80\xDF\xBF"},
      {"\xC2z\xC2\xC0", "?z??"},
      {"\xE0\x9F\xBF\xE0\xA0\x80\xEC\xBF\xBF", "?\xE0\xA0\x80\xEC\xBF\xBF"},
      {"\xED\x9F\xBF\xED\xA0\x80\xED\xBF\xBF\xEE\x80\x80", "\xED\x9F\xBF??\xEE\x80\x80"},
      {"\xEF\xB7\x8F\xEF\xB7\x90\xEF\xB7\xAF\xEF\xB7\xB0", "\xEF\xB7\x8F??\xEF\xB7\xB0"},
      {"\xEF\xBF\xBD\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBE\xBE", "???\xEF\xBE\xBE"},
      {"\xE2\x82z\xE2\x82\xE2\x82\xAC", "?z?\xE2\x82\xAC"},
      {"\xF0\x8F\xBF\xBF\xF0\x90\x80\x80\xF1\x80\x80\x80", "?\xF0\x90\x80\x80\xF1\x80\x80\x80"},
      {"\xF0\x9F\xBF\xBE\xF0\x9F\xBF\xBD\xF3\xBF\xBF\xBF", "?\xF0\x9F\xBF\xBD?"},
      {"\xF4\x8F\xBF\xBD\xF4\x90\x80\x80\xF5\x80\x80\x80\xF7\xBF\xBF\xBF", "\xF4\x8F\xBF\xBD???"},
      {"\xF8\x88\x80\x80\x80\xFB\x80\x80\x80z", "??z"},
      {"\xFC\x84\x80\x80\x80\x80\xFD\x80\x80\x80\x80\xFE\xFF\x80", "?????"},
  };
  for (const auto& [text, expected] : kCases) {
    for (const std::string around : {"", "0123456", "\xC3\xA9 and some more"}) {
      std::string out = around + text + around;
      EXPECT_EQ(
          QDSys::fixedUTF8(bytes(out), out),
          around + boost::replace_all_copy(std::string(expected), "?", "\xEF\xBF\xBD") + around)
          << expected;
    }
  }
  std::string text = "ab\x80\x80z";
  EXPECT_STREQ(QDSys::fixedUTF8(bytes(text) + 1, text), "b\xEF\xBF\xBD\xEF\xBF\xBDz");
}

}  // namespace
