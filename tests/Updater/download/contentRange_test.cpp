#include "Updater/download/contentRange.h"

#include <gtest/gtest.h>

namespace {

TEST(ContentRange, IsReadInItsThreeForms) {
  const struct {
    const char* text;
    std::optional<std::uint64_t> first;
    std::optional<std::uint64_t> total;
  } kCases[] = {{"bytes 100-199/200", 100, 200},
                {"bytes 0-18446744073709551615/*", 0, {}},
                {"bytes */200", {}, 200}};
  for (const auto& [text, first, total] : kCases) {
    const ContentRange range = parseContentRange(text).value();
    EXPECT_TRUE(range.first == first && range.total == total) << text;
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
