#include "base/osal/Linux/keyfile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <optional>
#include <string>

#include "TempFolder.h"

namespace {

TEST(Keyfile, FindsAValueAndUnquotesIt) {
  constexpr struct {
    const char* text;
    std::optional<const char*> value;
  } kCases[] = {
      {"", std::nullopt},
      {"OTHER=1\n", std::nullopt},
      {"#KEY=1\n", std::nullopt},
      {"KEYS=1\nKE=2\n KEY=3\nKEY\n", std::nullopt},
      {"KEY=", ""},
      {"KEY=12", "12"},
      {"OTHER=1\nKEY=12\nKEY=13\n", "12"},
      {"KEY=12 \r\n", "12"},
      {"KEY=\"Debian GNU/Linux 12 (bookworm)\"\n", "Debian GNU/Linux 12 (bookworm)"},
      {"KEY='a \\ b'\n", "a \\ b"},
      {"KEY=\"a \\\"b\\\" \\$c \\\\\"\n", "a \"b\" $c \\"},
      {"KEY=\"open\n", "\"open"},
      {"KEY=\"\n", "\""},
      {"KEY=\"\"\n", ""},
      {"KEY=\"end\\\"\n", "end\\"},
  };
  for (const auto& [text, value] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(keyfile_find(text, "KEY").value_or("(none)"), value.value_or("(none)"));
  }
}

TEST(Keyfile, ReadsFilesUpToItsLimit) {
  const TempFolder folder;
  std::string value = "before";
  EXPECT_EQ(keyfile_value((folder / "none").c_str(), "KEY", value), ENOENT);
  std::ofstream(folder / "file") << "A=1\nKEY=\"two words\"\n" << std::string(200000, '#');
  EXPECT_EQ(keyfile_value((folder / "file").c_str(), "NONE", value), ENOENT);
  EXPECT_EQ(value, "before");
  EXPECT_EQ(keyfile_value((folder / "file").c_str(), "KEY", value), 0);
  EXPECT_EQ(value, "two words");
  EXPECT_EQ(keyfile_read((folder / "file").c_str(), value), 0);
  EXPECT_EQ(value.size(), 65536U);
}

}  // namespace
