// Strings, numbers and the encodings of bytes.

#include "tools/QDSys.h"

#include <gtest/gtest.h>

#include <string>
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
  EXPECT_EQ(toHex("\x0A\xFF", 4), "0AFF");
  EXPECT_EQ(toHex("\x0A\xFF", 4, true), "0aff");
  EXPECT_EQ(fromHex("0aFFg1", 6, 3), "\x0A\xFF") << "up to what is no digit";
  EXPECT_EQ(toHex("\x0A\xFF", 3), refused("convertBinToHex: Buffer too short"));
  EXPECT_EQ(fromHex("123", 3, 1), "\x12");
  EXPECT_EQ(fromHex("1234", 4, 1), refused("convertHexToBin: Buffer too short"));
  EXPECT_EQ(fromHex("123", 32, 16), "\x12") << "ends before its length: no byte behind is read";
}

TEST(QDSysUtf8, ReplacesEachByteOrSequenceThatIsIllFormedInPlace) {
  std::string text =
      "\xC3\xA9\xC1\xED\xA0\x80\xEF\xB7\x90z\xE2\x82";  // a surrogate, a non-character
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(QDSys::fixedUTF8(bytes(text), text), "\xC3\xA9" + bad + bad + bad + "z" + bad);
}

}  // namespace
