#include "sysdef/qdTunables.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "FolderTest.h"
#include "ground/qdTunableTypes.h"

namespace {

/// A table with a record of every kind, and its variables.
struct Table {
  bool flag = false;
  std::uint32_t mode = 7;
  std::uint32_t port = 9080;
  std::uint64_t big = 16;
  qdtunable::STR server = "old";
  static constexpr unsigned int kCount = 5;
  const QDTunablesS records[kCount] = {
      {0, UINT64_MAX, QD_TUNABLE_TYPE_U32, &mode, "QD_SERVER_MODE"},
      {1, 65535, QD_TUNABLE_TYPE_U32, &port, "QD_HTTP_PORT"},
      {10, UINT64_MAX, QD_TUNABLE_TYPE_U64, &big, "QD_BIG"},
      {0, 0, QD_TUNABLE_TYPE_BOOL, &flag, "QD_FLAG"},
      {0, 0, QD_TUNABLE_TYPE_STR, &server, "QD_FESERVER"}};

  [[nodiscard]] std::string values() const {
    return text(mode, ' ', port, ' ', big, ' ', flag, ' ', server);
  }
};

constexpr const char* kUsual = "7 9080 16 0 old";

/// What applying `pairs` logs at `level` with "T:" for "Tunables -", and the values after it.
std::pair<std::string, std::string> outcome(const std::string& pairs, int level) {
  LogCapture said("PRFS:" + std::to_string(level) + ";EXCP:5;");
  said.rename("Tunables -", "T:");
  Table table;
  QDTunables::tunablesUpdate(bytes(pairs), table.records, Table::kCount);
  return {said(), table.values()};
}

TEST(QDTunables, ReadsAPairFromEachLineAndAppliesIt) {
  const std::string found = "DBG T: value found for key = ";
  const std::string badName = "ERR T: bad read name -> skip line : ";
  const std::string str = "INF T: \"QD_FESERVER\" -> Value (STR) updated to : ";
  const std::string low =
      R"(WRN T: "QD_HTTP_PORT" -> Value too low for min = 1 (0) ; set to min value | )";
  const std::string high = R"(WRN T: "QD_HTTP_PORT" -> Value too big for max = 65535 (4294967297) )"
                           "; set to max value | ";
  const std::string port = "INF T: \"QD_HTTP_PORT\" -> Value (U32) updated to : ";
  const std::string noFlag = R"(ERR T: "QD_FLAG" -> Value (BOOL) cannot be updated (bad value) : )";
  const std::string longest(8192, 'v');
  const std::string longestKey(64, 'K');
  const struct {
    std::string pairs;
    std::string said;
    std::string values = kUsual;
    int level = 4;
  } kCases[] = {
      {"KEY=1\r\n\r\n\n", found + R"("KEY" -> "1")", kUsual, 5},
      {"  KEY  =  a b  ", found + R"("KEY" -> "a b  ")", kUsual, 5},
      {longestKey + "=1", found + '"' + longestKey + R"(" -> "1")", kUsual, 5},
      {"  //\n", "INF T: // comment found -> skip line"},
      {"qd_http_port=1", badName + "UNDEF"},
      {"KEY", R"(ERR T: cannot find '=' ('0x0') for key = "KEY" -> skip line)"},
      {"QD_HTTP_PORT=0", low + port + "1", "7 1 16 0 old"},
      {"QD_HTTP_PORT=4294967297", high + port + "65535", "7 65535 16 0 old"},
      {"QD_SERVER_MODE=4294967296",
       R"(ERR T: "QD_SERVER_MODE" -> Value too big for u32 (4294967296) ; set to max u32 | )"
       R"(INF T: "QD_SERVER_MODE" -> Value (U32) updated to : 4294967295)",
       "4294967295 9080 16 0 old"},
      // One digit more fits as long as the number before it is below 2^60.
      {"QD_BIG=11529215046068469760",
       R"(ERR T: "QD_BIG" -> Value too big for u64 ("11529215046068469760") ; truncate to )"
       R"(1152921504606846976 | INF T: "QD_BIG" -> Value (U64) updated to : 1152921504606846976)",
       "7 9080 1152921504606846976 0 old"},
      {"QD_FESERVER=" + longest, str + "\"" + longest + "\"", "7 9080 16 0 " + longest},
      // In table order; the first occurrence of a key counts, and unknown keys do not.
      {"QD_FLAG=maybe\nQD_UNKNOWN=1\nQD_HTTP_POR=2\nQD_HTTP_PORT=1\nQD_HTTP_PORT=2\nQD_FLAG=true",
       port + "1 | " + noFlag + "\"maybe\"", "7 1 16 0 old"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.pairs.substr(0, 80));
    EXPECT_EQ(outcome(c.pairs, c.level), std::pair(c.said, c.values));
  }
  EXPECT_TRUE(outcome("K" + longestKey + "=1", 5).first.starts_with(badName + "\n0000   4B"));
  const auto [said, values] = outcome("QD_FESERVER=" + longest + "v\nQD_FLAG=true", 3);
  EXPECT_TRUE(said.starts_with("ERR T: read value too long -> skip line : \n0000   76 76"));
  EXPECT_EQ(values, "7 9080 16 1 old") << "the next line counts";
}

}  // namespace
