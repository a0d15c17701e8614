// Strings, numbers and the encodings of bytes.

#include "tools/QDSys.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <numeric>
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
  std::vector<std::pair<std::string, std::string>> cases = {{"", ""},
                                                            {"%41%4a%4g%G1", "A%4a%4g%G1"},
                                                            {"%4", "%4"},
                                                            {"%2541+b", "%41+b"},
                                                            {"%/0%:0%@0", "%/0%:0%@0"}};
  for (std::size_t before = 0; before < 8230; before += before == 99 ? 8031 : 1) {
    // Of all bytes this one is the furthest from "%", which it must not hide.
    const std::string start(before, '\xDA');
    cases.emplace_back(start + "%4%%42%zz%43 and some more characters\xDA%C3%A9",
                       start + "%4%B%zzC and some more characters\xDA\xC3\xA9");
  }
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(coded(QDSys::decodeURLtoUTF8, text, expected.size() + 1), expected);
    EXPECT_EQ(coded(QDSys::decodeURLtoUTF8, text, expected.size()),
              refused("decodeURLtoUTF8: Buffer too short"));
    EXPECT_EQ(decodedInPlace(text), expected);
  }
}

/// The rules as a definition: how many bytes a lead byte announces, what number the sequence spells
/// and whether this number needs that many bytes and is a character.
std::string simplyFixed(const std::string& text) {
  std::string out;
  for (std::size_t i = 0, length = 1; i < text.size(); i += length) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text.c_str()[at]); };
    auto announced = static_cast<std::size_t>(std::countl_one(byte(i)));
    announced = announced < 2 || announced > 6 ? 0 : announced - 1;  // FE and FF announce nothing
    unsigned long number = announced == 0 ? byte(i) : byte(i) & (0x3FU >> announced);
    for (length = 1; length <= announced && (byte(i + length) & 0xC0) == 0x80; ++length) {
      number = number << 6 | (byte(i + length) & 0x3F);
    }
    constexpr std::array<unsigned long, 6> kSmallest = {0, 0x80, 0x800, 0x10000, ~0UL, ~0UL};
    const bool good = length == announced + 1 && number >= kSmallest[announced] &&
                      !(announced == 0 && number >= 0x80) && number <= 0x10FFFF &&
                      !(number >= 0xD800 && number <= 0xDFFF) &&
                      !(number >= 0xFDD0 && number <= 0xFDEF) && (number & 0xFFFE) != 0xFFFE;
    out += good ? text.substr(i, length) : "\xEF\xBF\xBD";
  }
  return out;
}

/// Checks every combination of one byte out of each list, alone and with characters around it.
void checkAll(const std::string& start, const std::vector<std::vector<int>>& lists) {
  if (start.size() < lists.size()) {
    for (const int byte : lists[start.size()]) checkAll(start + static_cast<char>(byte), lists);
    return;
  }
  for (const std::string& text : {start, "0123456" + start + "\xC3\xA9 and some more"}) {
    std::string out = "what was there before";
    ASSERT_EQ(QDSys::fixedUTF8(bytes(text), out), simplyFixed(text))
        << testing::PrintToString(start);
  }
}

TEST(QDSysUtf8, ReplacesWhatTheDefinitionCallsIllFormedAlsoInPlace) {
  std::vector<int> all(255);
  std::iota(all.begin(), all.end(), 1);
  const std::vector<int> edges = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xAF,
                                  0xB0, 0xB6, 0xB7, 0xB8, 0xBD, 0xBE, 0xBF, 0xC0};
  const std::vector<int> few = {0x41, 0x80, 0xBF, 0xC3};
  checkAll("", {all, all});
  checkAll("", {{0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF}, edges, edges});
  checkAll("", {{0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7}, edges, edges, edges});
  checkAll("", {{0xF8, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF}, few, few, few, few, few, few});
  EXPECT_EQ(simplyFixed("\xE2\x82\xACx\xED\xA0\x80\xFF"), "\xE2\x82\xACx\xEF\xBF\xBD\xEF\xBF\xBD");

  std::string text = "ab\x80\x80z";
  EXPECT_STREQ(QDSys::fixedUTF8(bytes(text) + 1, text), "b\xEF\xBF\xBD\xEF\xBF\xBDz");
}

}  // namespace
