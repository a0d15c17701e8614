// The words that all rooms use: versions and names.

#include <gtest/gtest.h>

#include <sstream>

#include "Updater/terms/Version.h"
#include "Updater/terms/utilsPlatform.h"

namespace {

using namespace utils;

TEST(Version, ReadsFourNumbersByTheRulesOfScanf) {
  constexpr const char* kInvalid = "-1.-1.-1.-1";
  constexpr std::pair<const char*, const char*> kCases[] = {
      {"7.2.1.15.3\n", "7.2.1.15"},   {" \t+7. 2.\n1.15 word", "7.2.1.15"},
      {"07.08.009.0010", "7.8.9.10"}, {"2147483647.0.0.0", "2147483647.0.0.0"},
      {"2147483648.0.0.0", kInvalid}, {"1.2.3.-99999999999999999999", kInvalid},
      {"7.2.1.", kInvalid},           {"7 .2.1.15", kInvalid},
  };
  for (const auto& [text, expected] : kCases) {
    const Version version{std::string(text)};
    std::ostringstream printed;
    version.print(printed);
    EXPECT_EQ(printed.str(), expected) << text;
    EXPECT_EQ(version.isValid(), std::string(expected) != kInvalid);
  }
}

TEST(UtilsPlatform, MapsNames) {
  for (const char* const name : {"amd64", "x64", "x86_64"}) {
    EXPECT_EQ(stringToAgentArch(name), ArchAmd64);
  }
  EXPECT_EQ(stringToAgentArch("aarch64"), ArchArm64);
  EXPECT_EQ(stringToAgentArch("my-armv7-box"), ArchArm);
  EXPECT_EQ(stringToAgentArch("ARM64"), ArchUnknown);
  EXPECT_EQ(stringToAgentDistrib("a.b.dmg"), DistribDmg);
  EXPECT_EQ(stringToAgentDistrib("a.pkg.gz"), DistribNone);
}

}  // namespace
