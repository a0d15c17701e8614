#include "Updater/prepare/packageOutput.h"

#include <gtest/gtest.h>

namespace {

TEST(UnmetDependency, IsTheFirstThatNoInstalledPackageMeets) {
  const auto installed =
      utils::readInstalledPackages({"installed|libc6|2.36|", "config-files|gone|1|",
                                    "installed|nullmailer|2|mail-transport-agent, mta (= 3)"});
  const auto holds = [](const std::string& left, const std::string& relation,
                        const std::string& right) {
    return relation == ">=" ? left >= right : relation == "=" && left == right;
  };
  constexpr struct {
    const char* depends;
    const char* unmet;  ///< null: none
  } kCases[] = {
      {"", nullptr},
      {", ", nullptr},
      {"libc6", nullptr},
      {"libc6:any (>= 2.36) [amd64], mail-transport-agent", nullptr},
      {"libc6 (>= 2.37)", "libc6 (>= 2.37)"},
      {"libc6(>=2.37) | gone | mta (= 3)", nullptr},
      {"mail-transport-agent (>= 1)", "mail-transport-agent (>= 1)"},  // provided without a version
      {"libc6, gone, nothing", "gone"},
      {"libc", "libc"},
  };
  for (const auto& [depends, unmet] : kCases) {
    SCOPED_TRACE(depends);
    EXPECT_EQ(utils::unmetDependency(depends, installed, holds),
              unmet == nullptr ? std::nullopt : std::optional<std::string>(unmet));
  }
}

}  // namespace
