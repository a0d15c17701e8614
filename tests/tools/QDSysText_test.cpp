// Strings, numbers and the encodings of bytes.

#include "tools/QDSys.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"

namespace {

TEST(QDSysText, ParsesNumbersThatFit) {
  unsigned long long number = 0;
  EXPECT_TRUE(QDSys::atoll("00018446744073709551615", number) && number == ~0ULL);
  EXPECT_TRUE(QDSys::atoll16("00FFFFFFFFffffffff", number) && number == ~0ULL);
  EXPECT_FALSE(QDSys::atoll16("10000000000000000", number));
  for (const char* const text : {"18446744073709551616", "-1", "/", ":", ""}) {
    EXPECT_FALSE(QDSys::atoll(text, number)) << text;
  }
}

TEST(QDSysUtf8, ReplacesEachByteOrSequenceThatIsIllFormedInPlace) {
  std::string text =
      "\xC3\xA9\xC1\xED\xA0\x80\xEF\xB7\x90z\xE2\x82";  // a surrogate, a non-character
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(QDSys::fixedUTF8(bytes(text), text), "\xC3\xA9" + bad + bad + bad + "z" + bad);
}

}  // namespace
