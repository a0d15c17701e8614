#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "Refusal.h"
#include "tools/QDSys.h"

namespace {

std::string fixed(const std::string& text) {
  std::string out = "what was there before";
  const char* const result = QDSys::fixedUTF8(bytes(text), out);
  EXPECT_EQ(result, out.c_str());
  return out;
}

/// The rules as a definition: how many bytes a lead byte announces, what number the sequence spells
/// and whether this number needs that many bytes and is a character.
std::string simplyFixed(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = [&](std::size_t at) {
      return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    std::size_t announced = 0;
    while (byte(i) >= 0xC0 && announced < 7 && (byte(i) << (announced + 1) & 0x80) != 0) {
      ++announced;
    }
    if (announced > 5) announced = 0;  // FE and FF announce nothing
    unsigned long number = announced == 0 ? byte(i) : byte(i) & (0x3FU >> announced);
    std::size_t length = 1;
    for (; length <= announced && (byte(i + length) & 0xC0) == 0x80; ++length) {
      number = number << 6 | (byte(i + length) & 0x3F);
    }
    constexpr std::array<unsigned long, 6> kSmallest = {0, 0x80, 0x800, 0x10000, ~0UL, ~0UL};
    const bool good = length == announced + 1 && number >= kSmallest[announced] &&
                      !(announced == 0 && number >= 0x80) && number <= 0x10FFFF &&
                      !(number >= 0xD800 && number <= 0xDFFF) &&
                      !(number >= 0xFDD0 && number <= 0xFDEF) && (number & 0xFFFE) != 0xFFFE;
    out += good ? text.substr(i, length) : "\xEF\xBF\xBD";
    i += length;
  }
  return out;
}

/// Checks `text` alone, with characters around it, and cut off by the end.
void check(const std::string& text) {
  ASSERT_EQ(fixed(text), simplyFixed(text)) << testing::PrintToString(text);
  const std::string embedded = "0123456" + text + "\xC3\xA9 and some more";
  ASSERT_EQ(fixed(embedded), simplyFixed(embedded)) << testing::PrintToString(text);
}

/// Checks every combination of one byte out of each list.
void checkAll(const std::string& start, const std::vector<std::vector<int>>& lists,
              std::size_t depth = 0) {
  if (depth == lists.size()) return check(start);
  for (const int byte : lists[depth]) {
    checkAll(start + static_cast<char>(byte), lists, depth + 1);
  }
}

std::vector<int> allBytes() {
  std::vector<int> all;
  for (int byte = 1; byte < 256; ++byte) all.push_back(byte);
  return all;
}

const std::vector<int> kEdges = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xAF,
                                 0xB0, 0xB6, 0xB7, 0xB8, 0xBD, 0xBE, 0xBF, 0xC0};

TEST(QDSysUtf8, ReplacesIllFormedSequencesAndNonCharacters) {
  const std::string replacement = "\xEF\xBF\xBD";
  const struct {
    std::string text;
    std::string expected;
  } kCases[] = {
      {"", ""},
      {"plain", "plain"},
      {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
      {"\xC0\x80", replacement},
      {"\xED\xA0\x80", replacement},
      {"\xEF\xBF\xBE", replacement},
      {"\xEF\xB7\x90|\xEF\xB7\xAF|\xEF\xB7\x8F", replacement + "|" + replacement + "|\xEF\xB7\x8F"},
      {"\xF4\x8F\xBF\xBF|\xF4\x8F\xBF\xBD", replacement + "|\xF4\x8F\xBF\xBD"},
      {"\xF5\x80\x80\x80x", replacement + "x"},
      {"\xF8\x80\x80\x80\x80\x80", replacement + replacement},
      {"\xE2\x82", replacement},
      {"\xE2x", replacement + "x"},
      {"\x80\x80", replacement + replacement},
      {"\xFF\xFE", replacement + replacement},
  };
  for (const auto& [text, expected] : kCases) {
    SCOPED_TRACE(testing::PrintToString(text));
    EXPECT_EQ(fixed(text), expected);
    EXPECT_EQ(simplyFixed(text), expected);
  }
}

TEST(QDSysUtf8, AgreesWithTheDefinitionForOneAndTwoBytes) {
  checkAll("", {allBytes()});
  checkAll("", {allBytes(), allBytes()});
}

TEST(QDSysUtf8, AgreesWithTheDefinitionAtTheEdgesOfLongerForms) {
  checkAll("", {{0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF}, kEdges, kEdges});
  checkAll("", {{0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7}, kEdges, kEdges, kEdges});
  const std::vector<int> few = {0x41, 0x80, 0xBF, 0xC3};
  checkAll("", {{0xF8, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF}, few, few, few, few, few, few});
}

TEST(QDSysUtf8, AgreesWithTheDefinitionForRandomBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const std::size_t dense = random() % 30 + 1;
    const std::size_t length = random() % 500;
    while (text.size() < length) {
      text += static_cast<char>(random() % dense == 0 ? random() % 255 + 1 : 'a');
    }
    check(text);
  }
}

TEST(QDSysUtf8, RepairsATextInItsOwnPlace) {
  std::string text = "a\xC0\x80z";
  EXPECT_STREQ(QDSys::fixedUTF8(bytes(text), text), "a\xEF\xBF\xBDz");
  EXPECT_STREQ(QDSys::fixedUTF8(bytes(text) + 4, text), "z");
  EXPECT_EQ(refusal([&] { QDSys::fixedUTF8(nullptr, text); }), refused("fixedUTF8: Arg is NULL"));
  EXPECT_EQ(text, "z");
}

}  // namespace
