#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "Refusal.h"
#include "tools/QDSys.h"

namespace {

const std::string kEncodeTooShort = refused("encodeURLfromUTF8: Buffer too short");
const std::string kDecodeTooShort = refused("decodeURLtoUTF8: Buffer too short");

/// The result in a buffer of exactly `size` bytes, or the message.
std::string encoded(const std::string& text, std::size_t size) {
  std::vector<unsigned char> out(size + 1, '#');
  int length = 0;
  const std::string message = refusal([&] {
    length = QDSys::encodeURLfromUTF8(bytes(text), out.data(), static_cast<unsigned int>(size));
  });
  EXPECT_EQ(out[size], '#');
  if (message != "nothing") return message;
  EXPECT_EQ(out[static_cast<std::size_t>(length)], 0);
  return {out.begin(), out.begin() + length};
}

std::string decoded(const std::string& text, std::size_t size) {
  std::vector<unsigned char> out(size + 1, '#');
  int length = 0;
  const std::string message = refusal([&] {
    length = QDSys::decodeURLtoUTF8(bytes(text), out.data(), static_cast<unsigned int>(size));
  });
  EXPECT_EQ(out[size], '#');
  if (message != "nothing") return message;
  EXPECT_EQ(out[static_cast<std::size_t>(length)], 0);
  return {out.begin(), out.begin() + length};
}

std::string decodedInPlace(std::string text) {
  auto* const buffer = reinterpret_cast<unsigned char*>(text.data());
  const auto size = static_cast<unsigned int>(text.size() + 1);
  return text.substr(0, static_cast<std::size_t>(QDSys::decodeURLtoUTF8(buffer, buffer, size)));
}

/// Decoding as a definition: one character after the other.
std::string simplyDecoded(const std::string& text) {
  const auto isUpperHex = [&](std::size_t i) {
    return i < text.size() && text[i] != '\0' &&
           std::strchr("0123456789ABCDEF", text[i]) != nullptr;
  };
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && isUpperHex(i + 1) && isUpperHex(i + 2)) {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

TEST(QDSysUrl, EncodesEveryByte) {
  EXPECT_EQ(encoded("a b/c~", 100), "a%20b/c~");
  EXPECT_EQ(encoded("\xC3\xA9", 100), "%C3%A9");
  for (int c = 1; c < 256; ++c) {
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02X", c);
    const bool stays = c < 128 && (std::isalnum(c) != 0 || std::strchr("-./_~", c) != nullptr);
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(encoded(text, 4), stays ? text : escape);
  }
}

TEST(QDSysUrl, EncodesWithFourBytesToSpareAtEachCharacter) {
  const struct {
    const char* text;
    std::size_t smallest;  // buffer that will do
    const char* result;
  } kCases[] = {
      {"", 1, ""},       {"a", 4, "a"},       {"ab", 5, "ab"},     {" ", 4, "%20"},
      {" a", 7, "%20a"}, {"  ", 7, "%20%20"}, {"a b", 8, "a%20b"},
  };
  for (const auto& [text, smallest, result] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(encoded(text, smallest), result);
    EXPECT_EQ(encoded(text, smallest - 1), kEncodeTooShort);
  }
}

TEST(QDSysUrl, DecodesUpperCaseEscapesOnly) {
  constexpr struct {
    const char* text;
    const char* result;
  } kCases[] = {
      {"", ""},         {"%41%4a", "A%4a"},     {"%4A%4g", "J%4g"}, {"100%", "100%"},
      {"%", "%"},       {"%4", "%4"},           {"%%41", "%A"},     {"a+b", "a+b"},
      {"%2541", "%41"}, {"%C3%A9", "\xC3\xA9"}, {"%G1", "%G1"},     {"%/0%:0%@0", "%/0%:0%@0"},
  };
  for (const auto& [text, result] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(decoded(text, 100), result);
    EXPECT_EQ(decoded(text, std::strlen(result) + 1), result);
    EXPECT_EQ(decoded(text, std::strlen(result)), kDecodeTooShort);
    EXPECT_EQ(decodedInPlace(text), result);
  }
  EXPECT_EQ(decoded("a%00b", 4), std::string("a\0b", 3));
}

TEST(QDSysUrl, DecodesAnEscapeWhereverItLies) {
  for (std::size_t before = 0; before < 100; ++before) {
    for (const std::size_t more : {std::size_t{0}, std::size_t{8130}}) {
      for (const char* const tail : {"%41", "%4", "%%42%zz%43 and some more characters"}) {
        // Of all bytes this one is the furthest from "%", which it must not hide.
        const std::string text = std::string(before + more, '\xDA') + tail + "\xDA%C3%A9";
        EXPECT_EQ(decoded(text, text.size() + 1), simplyDecoded(text)) << before << tail;
        EXPECT_EQ(decodedInPlace(text), simplyDecoded(text)) << before << tail;
      }
    }
  }
}

TEST(QDSysUrl, RandomTextsComeBack) {
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    std::string text;
    const std::size_t dense = random() % 20 + 1;  // one in so many is an escape
    const std::size_t length = random() % 20000;
    while (text.size() < length) {
      const std::size_t c = random() % dense == 0 ? random() % 255 + 1 : 'a' + random() % 26;
      text += static_cast<char>(c);
    }
    const std::string url = encoded(text, 3 * text.size() + 4);
    EXPECT_EQ(decoded(url, text.size() + 1), text);
    EXPECT_EQ(decodedInPlace(url), text);
    EXPECT_EQ(decoded(text, text.size() + 1), simplyDecoded(text));
  }
}

}  // namespace
