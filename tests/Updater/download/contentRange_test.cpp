#include "Updater/download/contentRange.h"

#include <gtest/gtest.h>

namespace {

TEST(ContentRange, IsReadInItsThreeForms) {
  const auto part = parseContentRange("bytes 100-199/200");
  ASSERT_TRUE(part);
  EXPECT_EQ(part->first, 100U);
  EXPECT_EQ(part->total, 200U);
  const auto unknown = parseContentRange("bytes 0-18446744073709551615/*");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->first, 0U);
  EXPECT_FALSE(unknown->total);
  const auto none = parseContentRange("bytes */200");
  ASSERT_TRUE(none);
  EXPECT_FALSE(none->first);
  EXPECT_EQ(none->total, 200U);
  for (const char* const text : {"", "bytes", "bytes ", "bytes 1-2", "bytes 2-1/9", "bytes 1-2/",
                                 "bytes */*", "bytes -2/9", "bytes 1-/9", "bytes 1-2/9x",
                                 "bytes +1-2/9", "bytes 18446744073709551616-2/9", "items 1-2/9"}) {
    EXPECT_FALSE(parseContentRange(text)) << text;
  }
}

TEST(ValidatorOf, IsStrongOrNothing) {
  const char* const then = "Sun, 01 Mar 2026 14:05:09 GMT";
  const char* const later = "Sun, 01 Mar 2026 14:05:10 GMT";
  EXPECT_EQ(validatorOf({{"etag", "\"a\""}, {"last-modified", then}}), "\"a\"");
  EXPECT_EQ(validatorOf({{"etag", "W/\"a\""}, {"last-modified", then}, {"date", later}}), then);
  EXPECT_EQ(validatorOf({{"last-modified", then}, {"date", then}}), "");
  EXPECT_EQ(validatorOf({{"last-modified", then}}), "");
  EXPECT_EQ(validatorOf({{"last-modified", "soon"}, {"date", later}}), "");
}

}  // namespace
