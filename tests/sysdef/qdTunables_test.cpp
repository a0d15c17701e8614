#include "sysdef/qdTunables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "LogCapture.h"
#include "MaskAddresses.h"
#include "sysdef/qdTunableTypes.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

/// A table with a record of every kind, and its variables.
struct Table {
  bool flag = false;
  std::uint32_t mode = 7;
  std::uint32_t port = 9080;
  std::uint32_t wide = 5;
  std::uint64_t big = 6;
  qdtunable::STR server = "old";
  static constexpr unsigned int kCount = 8;
  const QDTunablesS records[kCount] = {
      {0, 99, QD_TUNABLE_TYPE_U32, &mode, "QD_SERVER_MODE"},
      {1, 65535, QD_TUNABLE_TYPE_U32, &port, "QD_HTTP_PORT"},
      {0, UINT64_MAX, QD_TUNABLE_TYPE_U32, &wide, "QD_WIDE"},
      {10, UINT64_MAX, QD_TUNABLE_TYPE_U64, &big, "QD_BIG"},
      {0, 0, QD_TUNABLE_TYPE_BOOL, &flag, "QD_FLAG"},
      {0, 0, QD_TUNABLE_TYPE_STR, &server, "QD_FESERVER"},
      {0, 0, QD_TUNABLE_TYPE_UNDEF, nullptr, "QD_UNDEF"},
      {0, 0, static_cast<QDTunableType>(9), nullptr, "QD_NINE"},
  };

  void update(const std::string& text) { QDTunables::tunablesUpdate(bytes(text), records, kCount); }
  /// Every variable, for comparing.
  [[nodiscard]] std::string state() const {
    return std::to_string(flag) + " " + std::to_string(mode) + " " + std::to_string(port) + " " +
           std::to_string(wide) + " " + std::to_string(big) + " " + server;
  }
};

const std::string kUntouched = Table().state();

/// What applying `text` logs at `level`.
Lines linesOf(const std::string& text, int level, Table& table) {
  LogCapture log(("PRFS:" + std::to_string(level) + ";EXCP:5;").c_str());
  table.update(text);
  return maskAddresses(log.lines());
}

// --- Lines ---------------------------------------------------------------------------------------

TEST(QDTunablesLines, ReadsPairs) {
  const struct {
    std::string text;
    std::string line;  // what is found, at level 5
  } kCases[] = {
      {"KEY=1", R"("KEY" -> "1")"},
      {"KEY=1\n", R"("KEY" -> "1")"},
      {"KEY=1\r", R"("KEY" -> "1")"},
      {"KEY=1\r\n\r\n\n", R"("KEY" -> "1")"},
      {"  KEY  =  a b  ", R"("KEY" -> "a b  ")"},
      {"KEY=", R"("KEY" -> "")"},
      {"KEY=   \n", R"("KEY" -> "")"},
      {"KEY==1=", R"("KEY" -> "=1=")"},
      {"KEY=1 // no comment", R"("KEY" -> "1 // no comment")"},
      {"KEY=\t1\t", "\"KEY\" -> \"\t1\t\""},
      {"_0Z=\xC3\xA9", "\"_0Z\" -> \"\xC3\xA9\""},
      {std::string(64, 'K') + "=1", "\"" + std::string(64, 'K') + "\" -> \"1\""},
      {"KEY=" + std::string(8192, 'v'), "\"KEY\" -> \"" + std::string(8192, 'v') + "\""},
  };
  for (const auto& [text, line] : kCases) {
    SCOPED_TRACE(text.substr(0, 80));
    Table table;
    EXPECT_THAT(linesOf(text, 5, table),
                ElementsAre("PRFS:DBG Tunables - value found for key = " + line));
  }
}

TEST(QDTunablesLines, SkipsWhatIsNoPair) {
  const std::string badName = "PRFS:ERR Tunables - bad read name -> skip line : ";
  const std::string noEquals = "PRFS:ERR Tunables - cannot find '=' ('0x";
  const struct {
    std::string text;
    Lines lines;  // at level 4
  } kCases[] = {
      {"", {}},
      {"// comment", {"PRFS:INF Tunables - // comment found -> skip line"}},
      {"  //\n\n//", Lines(2, "PRFS:INF Tunables - // comment found -> skip line")},
      {"#comment", {badName + "UNDEF"}},
      {"/ comment", {badName + "UNDEF"}},
      {"qd_http_port=1", {badName + "UNDEF"}},
      {"=1", {badName + "UNDEF"}},
      {"\tKEY=1", {badName + "UNDEF"}},
      {"   ", {badName + "UNDEF"}},
      {"   \n", {badName + "UNDEF"}},
      {"\nKEY=1", {badName + "UNDEF"}},
      {std::string(65, 'K') + "=1",
       {badName + "\n0000   4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B    KKKKKKKKKKKKKKKK"
                  "\n0010   4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B    KKKKKKKKKKKKKKKK"
                  "\n0020   4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B    KKKKKKKKKKKKKKKK"
                  "\n0030   4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B 4B    KKKKKKKKKKKKKKKK"
                  "\n0040   4B                                                 K"}},
      {"KEY: 1", {noEquals + "3a') for key = \"KEY\" -> skip line"}},
      {"KEY", {noEquals + "0') for key = \"KEY\" -> skip line"}},
      {"KEY  \n=1", {noEquals + "a') for key = \"KEY\" -> skip line", badName + "UNDEF"}},
      {"KEY\r\n", {noEquals + "d') for key = \"KEY\" -> skip line"}},
      {"KEY\t=1", {noEquals + "9') for key = \"KEY\" -> skip line"}},
      {"KEYe=1", {noEquals + "65') for key = \"KEY\" -> skip line"}},
      {"KEY\xFF=1", {noEquals + "ff') for key = \"KEY\" -> skip line"}},
  };
  for (const auto& [text, lines] : kCases) {
    SCOPED_TRACE(text);
    Table table;
    EXPECT_THAT(linesOf(text, 4, table), ElementsAreArray(lines));
    EXPECT_EQ(table.state(), kUntouched);
  }
}

TEST(QDTunablesLines, RefusesAValueThatIsTooLong) {
  Table table;
  for (const std::size_t length : {8193U, 8194U, 20'000U}) {
    SCOPED_TRACE(length);
    const Lines lines =
        linesOf("QD_FESERVER=" + std::string(length, 'v') + "\nQD_FLAG=true", 3, table);
    ASSERT_EQ(lines.size(), 1U);
    const std::string& line = lines[0];
    EXPECT_TRUE(
        line.starts_with("PRFS:ERR Tunables - read value too long -> skip line : \n0000   76 76"));
    EXPECT_TRUE(line.ends_with("\n2000   76                                                 v"));
    EXPECT_TRUE(table.flag) << "the next line counts";
    EXPECT_STREQ(table.server, "old");
    table.flag = false;
  }
}

TEST(QDTunablesLines, ANulEndsTheText) {
  Table table;
  table.update(std::string("QD_HTTP_PORT=80\0QD_FLAG=true\n", 29));
  EXPECT_EQ(table.port, 80U);
  EXPECT_FALSE(table.flag);
}

TEST(QDTunablesLines, TheFirstOccurrenceOfAKeyCounts) {
  Table table;
  EXPECT_THAT(linesOf("QD_HTTP_PORT=1\nQD_FLAG=maybe\nQD_HTTP_PORT=2\nQD_FLAG=true", 5, table),
              ElementsAre(R"(PRFS:DBG Tunables - value found for key = "QD_HTTP_PORT" -> "1")",
                          R"(PRFS:DBG Tunables - value found for key = "QD_FLAG" -> "maybe")",
                          R"(PRFS:DBG Tunables - value found for key = "QD_HTTP_PORT" -> "2")",
                          R"(PRFS:DBG Tunables - value found for key = "QD_FLAG" -> "true")",
                          R"(PRFS:INF Tunables - "QD_HTTP_PORT" -> Value (U32) updated to : 1)",
                          R"(PRFS:ERR Tunables - "QD_FLAG" -> Value (BOOL) cannot be updated (bad )"
                          R"(value) : "maybe")"));
  EXPECT_EQ(table.port, 1U);
  EXPECT_FALSE(table.flag);
}

TEST(QDTunablesLines, AppliesInTableOrderAndIgnoresUnknownKeys) {
  Table table;
  EXPECT_THAT(linesOf("QD_FLAG=true\nQD_UNKNOWN=1\nQD_HTTP_POR=2\nQD_HTTP_PORT=2\nQD_SERVER_MODE=3",
                      4, table),
              ElementsAre(R"(PRFS:INF Tunables - "QD_SERVER_MODE" -> Value (U32) updated to : 3)",
                          R"(PRFS:INF Tunables - "QD_HTTP_PORT" -> Value (U32) updated to : 2)",
                          R"(PRFS:INF Tunables - "QD_FLAG" -> Value (BOOL) updated to true)"));
}

TEST(QDTunablesLines, EveryLineEndGivesTheSame) {
  const std::string_view text =
      "// first\n\nQD_SERVER_MODE=3\nbad\nQD_FESERVER= a \n \nQD_BIG=11\nQD_FLAG";
  Table expected;
  const Lines lines = linesOf(std::string(text), 5, expected);
  ASSERT_EQ(expected.state(), "0 3 9080 5 11 a ");
  for (const char* lineEnd : {"\r", "\r\n", "\n\r", "\r\r\n"}) {
    std::string other;
    for (const char c : text) c == '\n' ? other += lineEnd : other += c;
    Table table;
    Lines otherLines = linesOf(other, 5, table);
    EXPECT_EQ(table.state(), expected.state());
    EXPECT_EQ(otherLines, lines);
  }
}

// --- Values --------------------------------------------------------------------------------------

struct ValueCase {
  std::string value;
  std::uint64_t expected;
  Lines lines;  // without what they all start with
};

/// Applies each value to `key`; `variable` tells what came of it.
void expectValues(const std::string& key, std::uint64_t (*variable)(const Table&),
                  const std::vector<ValueCase>& cases) {
  for (const auto& [value, expected, lines] : cases) {
    SCOPED_TRACE(key + "=" + value);
    Lines full;
    for (const std::string& line : lines) {
      full.push_back("PRFS:" + line.substr(0, 3) + " Tunables - \"" + key + "\" -> " +
                     line.substr(4));
    }
    Table table;
    EXPECT_EQ(linesOf(key + "=" + value, 4, table), full);
    EXPECT_EQ(variable(table), expected);
  }
}

TEST(QDTunablesValues, U32) {
  const std::string low0 = "WRN Value too low for min = 1 (0) ; set to min value";
  const std::string set1 = "INF Value (U32) updated to : 1";
  expectValues("QD_HTTP_PORT", [](const Table& t) -> std::uint64_t { return t.port; },
               {
                   {"8080", 8080, {"INF Value (U32) updated to : 8080"}},
                   {"8080 # note", 8080, {"INF Value (U32) updated to : 8080"}},
                   {"12abc", 12, {"INF Value (U32) updated to : 12"}},
                   {"0012", 12, {"INF Value (U32) updated to : 12"}},
                   {"1", 1, {set1}},
                   {"0", 1, {low0, set1}},
                   {"", 1, {low0, set1}},
                   {"abc", 1, {low0, set1}},
                   {"+5", 1, {low0, set1}},
                   {"-5", 1, {low0, set1}},
                   {"65535", 65535, {"INF Value (U32) updated to : 65535"}},
                   {"65536",
                    65535,
                    {"WRN Value too big for max = 65535 (65536) ; set to max value",
                     "INF Value (U32) updated to : 65535"}},
                   {"4294967297",
                    65535,
                    {"WRN Value too big for max = 65535 (4294967297) ; set to max value",
                     "INF Value (U32) updated to : 65535"}},
               });
  expectValues("QD_SERVER_MODE", [](const Table& t) -> std::uint64_t { return t.mode; },
               {
                   {"3", 3, {"INF Value (U32) updated to : 3"}},
                   {"99", 99, {"INF Value (U32) updated to : 99"}},
                   {"300",
                    99,
                    {"WRN Value too big for max = 99 (300) ; set to max value",
                     "INF Value (U32) updated to : 99"}},
               });
  expectValues("QD_WIDE", [](const Table& t) -> std::uint64_t { return t.wide; },
               {
                   {"4294967295", 4294967295, {"INF Value (U32) updated to : 4294967295"}},
                   {"4294967296",
                    4294967295,
                    {"ERR Value too big for u32 (4294967296) ; set to max u32",
                     "INF Value (U32) updated to : 4294967295"}},
               });
}

TEST(QDTunablesValues, U64) {
  expectValues("QD_BIG", [](const Table& t) -> std::uint64_t { return t.big; },
               {
                   {"10", 10, {"INF Value (U64) updated to : 10"}},
                   {"9",
                    10,
                    {"WRN Value too low for min = 10 (9) ; set to min value",
                     "INF Value (U64) updated to : 10"}},
                   {"1152921504606846975",
                    1152921504606846975,
                    {"INF Value (U64) updated to : 1152921504606846975"}},
                   // One digit more fits as long as the number before it is below 2^60.
                   {"11529215046068469759",
                    11529215046068469759U,
                    {"INF Value (U64) updated to : 11529215046068469759"}},
                   {"1152921504606846976",
                    1152921504606846976,
                    {"INF Value (U64) updated to : 1152921504606846976"}},
                   {"11529215046068469760",
                    1152921504606846976,
                    {"ERR Value too big for u64 (\"11529215046068469760\") ; truncate to "
                     "1152921504606846976",
                     "INF Value (U64) updated to : 1152921504606846976"}},
                   {"18446744073709551615 B",
                    1844674407370955161,
                    {"ERR Value too big for u64 (\"18446744073709551615 B\") ; truncate to "
                     "1844674407370955161",
                     "INF Value (U64) updated to : 1844674407370955161"}},
               });
}

TEST(QDTunablesValues, Bool) {
  const auto flag = [](const Table& t) -> std::uint64_t { return t.flag ? 1 : 0; };
  const auto refused = [](const std::string& value) {
    return ValueCase{
        value, 0, {"ERR Value (BOOL) cannot be updated (bad value) : \"" + value + "\""}};
  };
  expectValues("QD_FLAG", flag,
               {{"true", 1, {"INF Value (BOOL) updated to true"}},
                {"false", 0, {"INF Value (BOOL) updated to false"}},
                refused("True"),
                refused("true "),
                refused("1"),
                refused("")});
  LogCapture log("PRFS:0;");
  Table table;
  table.flag = true;
  table.update("QD_FLAG=no");
  EXPECT_TRUE(table.flag);
}

TEST(QDTunablesValues, Str) {
  const std::string longest(8192, 'v');
  for (const std::string& value : {std::string("a b  "), std::string(), longest}) {
    Table table;
    EXPECT_THAT(linesOf("QD_FESERVER=  " + value, 4, table),
                ElementsAre("PRFS:INF Tunables - \"QD_FESERVER\" -> Value (STR) updated to : \"" +
                            value + "\""));
    EXPECT_EQ(table.server, value);
  }
}

TEST(QDTunablesValues, ReportsAStrThatCannotBeCopied) {
  const QDTunablesS record{0, 0, QD_TUNABLE_TYPE_STR, nullptr, "QD_NOWHERE"};
  LogCapture log("PRFS:4;EXCP:5;");
  QDTunables::tunablesUpdate(bytes("QD_NOWHERE=x"), &record, 1);
  EXPECT_THAT(maskAddresses(log.lines()),
              ElementsAre("EXCP:ERR NET: strncpy: First arg is NULL", "EXCP:ERR ECSP - @",
                          "PRFS:ERR Tunables - \"QD_NOWHERE\" -> Error updating with string "
                          "(inconsistant truncated value) : \"x\""));
}

TEST(QDTunablesValues, OtherTypesAreNotManaged) {
  Table table;
  EXPECT_THAT(linesOf("QD_NINE=1\nQD_UNDEF=1", 4, table),
              ElementsAre("PRFS:ERR Tunables - unmanaged type = QD_TUNABLE_TYPE_UNDEF",
                          "PRFS:ERR Tunables - unmanaged type = QD_TUNABLE_TYPE_UNKNOWN_9"));
  EXPECT_EQ(table.state(), kUntouched);
}

TEST(QDTunablesValues, AnEmptyTableTakesNothing) {
  LogCapture log("PRFS:4;");
  QDTunables::tunablesUpdate(bytes("KEY=1"), nullptr, 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
