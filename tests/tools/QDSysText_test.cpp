// Strings, numbers and the encodings of bytes.

#include "tools/QDSys.h"

#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "tools/QDException.h"

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

TEST(QDSysUrl, EncodesAndDecodesInJustEnoughRoom) {
  const LogCapture log("EXCP:0;");
  unsigned char out[16];
  EXPECT_EQ(QDSys::encodeURLfromUTF8(bytes(" a\xC3"), out, 8), 7);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "%20a%C3");
  EXPECT_THROW(QDSys::encodeURLfromUTF8(bytes(" a"), out, 6), QDException);
  EXPECT_EQ(QDSys::decodeURLtoUTF8(bytes("%41%4a%4g%4+"), out, 11), 10);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "A%4a%4g%4+");
  EXPECT_THROW(QDSys::decodeURLtoUTF8(bytes("%41bc"), out, 3), QDException);
}

TEST(QDSysUtf8, ReplacesEachByteOrSequenceThatIsIllFormedInPlace) {
  std::string text =
      "\xC3\xA9\xC1\xED\xA0\x80\xEF\xB7\x90z\xE2\x82";  // a surrogate, a non-character
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(QDSys::fixedUTF8(bytes(text), text), "\xC3\xA9" + bad + bad + bad + "z" + bad);
}

}  // namespace
