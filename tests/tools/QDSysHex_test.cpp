#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "Refusal.h"
#include "tools/QDSys.h"

namespace {

using Bytes = std::vector<unsigned char>;

const std::string kBinToHexTooShort = refused("convertBinToHex: Buffer too short");
const std::string kHexToBinTooShort = refused("convertHexToBin: Buffer too short");
const std::string kNullTooSmall = refused("convertHexStrNullToBin: Buffer too small");

/// All 256 bytes, several times, so that every path of a loop over blocks is taken.
Bytes manyBytes() {
  Bytes all(1000);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<unsigned char>(i * 7);
  return all;
}

std::string printed(const Bytes& data, const char* format) {
  std::string text;
  for (const unsigned char byte : data) {
    char digits[3];
    std::snprintf(digits, sizeof digits, format, byte);
    text += digits;
  }
  return text;
}

TEST(QDSysHex, WritesTwoDigitsAByte) {
  const Bytes data = manyBytes();
  const auto size = static_cast<unsigned int>(data.size());
  std::string text(2 * data.size() + 1, '#');
  EXPECT_EQ(QDSys::convertBinToHex(data.data(), size, text.data(), 2 * size, false), 2000);
  EXPECT_EQ(text, printed(data, "%02X") + '#');
  EXPECT_EQ(QDSys::convertBinToHex(data.data(), size, text.data(), 2 * size, true), 2000);
  EXPECT_EQ(text, printed(data, "%02x") + '#');
}

TEST(QDSysHex, WritesOnlyWhatFits) {
  const unsigned char data[] = {0x0A, 0xFF};
  unsigned char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(refusal([&] { QDSys::convertBinToHex(data, 2, out, 3, false); }), kBinToHexTooShort);
  EXPECT_EQ(out[0], '#');
  EXPECT_EQ(QDSys::convertBinToHex(data, 2, out, 4, false), 4);
  EXPECT_EQ(std::string(out, out + 4), "0AFF");
  EXPECT_EQ(QDSys::convertBinToHex(nullptr, 0, out, 0, false), 0);
  // Twice as many digits as 32 bits can count.
  EXPECT_EQ(refusal([&] { QDSys::convertBinToHex(data, 0x80000000, out, 4, false); }),
            kBinToHexTooShort);
  EXPECT_EQ(refusal([&] { QDSys::convertBinToHex(data, 0x40000000, out, 0xFFFFFFFF, false); }),
            kBinToHexTooShort);
}

TEST(QDSysHex, WritesAnEmptyInputAsZeroIfAsked) {
  const unsigned char data[] = {0xAB};
  unsigned char out[3] = {'#', '#', '#'};
  EXPECT_EQ(QDSys::convertBinToHexStrNull(nullptr, 0, out, 2), 2);
  EXPECT_EQ(std::string(out, out + 3), "00#");
  EXPECT_EQ(refusal([&] { QDSys::convertBinToHexStrNull(nullptr, 0, out, 1); }), kBinToHexTooShort);
  EXPECT_EQ(QDSys::convertBinToHexStrNull(data, 1, out, 2), 2);
  EXPECT_EQ(std::string(out, out + 3), "AB#");
}

TEST(QDSysHex, ReadsPairsOfDigits) {
  const Bytes data = manyBytes();
  for (const char* const format : {"%02x", "%02X"}) {
    const std::string text = printed(data, format);
    Bytes out(data.size());
    EXPECT_EQ(QDSys::convertHexToBin(bytes(text), 2000, out.data(), 1000), 1000);
    EXPECT_EQ(out, data);
  }
}

TEST(QDSysHex, AcceptsDigitsAndNothingElse) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (int c = 0; c < 256; ++c) {
    SCOPED_TRACE(c);
    const bool isDigit = digits.find(static_cast<char>(c)) != std::string::npos;
    const auto byte = static_cast<unsigned char>(c);
    const unsigned char first[] = {byte, '1'};
    const unsigned char second[] = {'1', byte};
    unsigned char out = 0;
    EXPECT_EQ(QDSys::convertHexToBin(first, 2, &out, 1), isDigit ? 1 : 0);
    EXPECT_EQ(QDSys::convertHexToBin(second, 2, &out, 1), isDigit ? 1 : 0);
  }
}

TEST(QDSysHex, StopsWhereTheDigitsEnd) {
  const struct {
    std::string text;
    unsigned int length;
    unsigned int size;
    std::string result;  // the message, or the number of bytes
  } kCases[] = {
      {"12zz34", 6, 3, "1"},
      {"123", 3, 1, "1"},
      {"1", 1, 0, "0"},
      {"", 0, 0, "0"},
      {"1234", 4, 1, kHexToBinTooShort},
      {"zzzz", 4, 1, kHexToBinTooShort},
      {"12", 32, 16, "1"},  // ends before its length: what is behind is not read
      {"123", 32, 16, "1"},
      {"", 0xFFFFFFFF, 0x7FFFFFFF, "0"},
      {"", 0xFFFFFFFF, 0x7FFFFFFE, kHexToBinTooShort},
  };
  for (const auto& [text, length, size, result] : kCases) {
    SCOPED_TRACE(testing::Message() << text << ", " << length << ", " << size);
    const Bytes exact(text.c_str(), text.c_str() + text.size() + 1);  // an overrun is detectable
    Bytes out(std::min(size, 16U));
    int count = -1;
    const std::string answer = refusal([&, length = length, size = size] {
      count = QDSys::convertHexToBin(exact.data(), length, out.data(), size);
    });
    EXPECT_EQ(answer == "nothing" ? std::to_string(count) : answer, result);
  }
}

TEST(QDSysHex, TerminatesIfAsked) {
  unsigned char out[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(QDSys::convertHexStrNullToBin(bytes("6162"), 4, out, 3), 2);
  EXPECT_EQ(std::string(out, out + 4), std::string("ab\0#", 4));
  EXPECT_EQ(refusal([&] { QDSys::convertHexStrNullToBin(bytes("6162"), 4, out, 2); }),
            kNullTooSmall);
  EXPECT_EQ(refusal([&] { QDSys::convertHexStrNullToBin(bytes("6162"), 4, out, 1); }),
            kHexToBinTooShort);
  EXPECT_EQ(QDSys::convertHexStrNullToBin(bytes("zz62"), 4, out, 2), 0);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(refusal([&] { QDSys::convertHexStrNullToBin(bytes(""), 0, out, 0); }), kNullTooSmall);
}

}  // namespace
