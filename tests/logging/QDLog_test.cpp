// The logger, its statement, and how values look in a record.

#include "logging/QDLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ios>
#include <new>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "logging/QDLogPath.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

template <typename... Parts>
std::string record(const Parts&... parts) {
  QDStreamLogger out;
  out.clear();
  (out << ... << parts) << '\0';
  return out.text();
}

TEST(QDStreamLogger, PrintsEachKindOfValue) {
  using S = QDStreamLogger;
  const void* const null = nullptr;
  const void* const address = reinterpret_cast<const void*>(0xBEEF);
  const unsigned char* const items[] = {bytes("a"), nullptr, bytes("c")};
  using List = QDLogTabl<const unsigned char*>;
  const std::string sixteen = "0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    ";
  const std::string data = "0123456789abcdef\x01\x7f~ ";
  const std::string four = "01 7F 7E 20 " + std::string(12 * 3 + 3, ' ') + "..~ ";
  const struct {
    std::string got;
    std::string expected;
  } kCases[] = {
      {record('a', static_cast<unsigned char>('b'), bytes("c"), std::string("d")), "abcd"},
      {record(static_cast<const char*>(nullptr), ""), "(null)"},
      {record(true, false), "truefalse"},
      {record(null, address, ' ', 255), "@0@0xbeef 255"},
      {record(static_cast<short>(-1), -2L, 18446744073709551615ULL), "-1-218446744073709551615"},
      {record(S::Hex, 255, S::Oct, 8, S::Dec, 9), "ff109"},
      {record(static_cast<S::Base>(7), 10), " < unknown base 7 > 10"},
      {record(S::Endl, static_cast<S::Spec>(3)), "\n < unknown spec 3 > "},
      {record(QDLogPath("/a b"), QDLogPath("")), "\"/a b\"\"(root)\""},
      {record(QDLogPath(static_cast<const char*>(nullptr))), "\"(null)\""},
      {record(List{items, 3, ", "}, List{items, 0, ", "}), "a, (null), c"},

      {record(QD_FILETYPE_DOOR, QD_FILETYPE_UNKNOWN), "QD_FILETYPE_DOORQD_FILETYPE_UNKNOWN"},
      {record(S::Hex, static_cast<QDFileType>(403)), "QD_FILETYPE_UNKNOWN_193"},
      {record(QD_OPENMODE_RDONLY, static_cast<QDOpenMode>(-1)),
       "QD_OPENMODE_RDONLYQD_OPENMODE_UNKNOWN_-1"},
      {record(QD_TUNABLE_TYPE_UNDEF, static_cast<QDTunableType>(5)),
       "QD_TUNABLE_TYPE_UNDEFQD_TUNABLE_TYPE_UNKNOWN_5"},

      {record(QDLogHStr(bytes("abcdefghij"), 4, 4)), "abcd...ghij"},
      {record(QDLogHStr(bytes("abcdefgh"), 4, 4)), "abcd...efgh"},
      {record(QDLogHStr(bytes("abcdefg"), 4, 4)), "\"abcdefg\""},
      {record(QDLogHStr(bytes("abc"), 0, 0)), "..."},
      {record(QDLogHStr(nullptr, 4, 4)), "\"<null>\""},
      {record(QDLogHStr(bytes("abc"), 0xFFFFFFFF, 1)), "\"abc\""},

      {record(QDLogBlob(data.data(), 0)), "UNDEF"},
      {record(QDLogBlob(nullptr, 5)), "UNDEF"},
      {record(QDLogBlob(data.data(), 16)), sixteen + "0123456789abcdef"},
      {record(QDLogBlob(data.data(), 4, 16)), "0000   " + four},
      {record(QDLogBlob(data.data(), 20)), "\n" + sixteen + "0123456789abcdef\n0010   " + four},
      {record(QDLogBlob("\x0A\xFF", 2, 0, QDLogBlob::kString)), "0x0aff"},
      {record(QDLogBlob("\x0A\xFF", 2, 0, 2)), ""},
      {record(S::Hex, QDLogBlob("\x0A\xFF", 1, 1), 255),
       "0000   FF " + std::string(15 * 3 + 3, ' ') + ".255"},
  };
  for (const auto& [got, expected] : kCases) EXPECT_EQ(got, expected);
}

/// A buffer that memory has no room for.
class NoRoom : public std::streambuf {
  int_type overflow(int_type) override { throw std::bad_alloc(); }
};

TEST(QDStreamLogger, WantOfMemoryIsAFailureThatThrowsNothingAndClearForgets) {
  QDStreamLogger out;
  std::streambuf* const own = out.std::ios::rdbuf();
  NoRoom noRoom;
  out.std::ios::rdbuf(&noRoom);
  out << "text" << 5 << static_cast<const void*>(&out) << QDLogBlob("x", 1) << QD_FILETYPE_REG;
  EXPECT_TRUE(out.fail());
  out.std::ios::rdbuf(own);
  out << std::string(1 << 20, 'x') << QDStreamLogger::Hex << '\0';
  out.shrink();
  EXPECT_LT(out.view().size(), 65536U);
  out.setstate(std::ios::failbit);
  out.clear();
  out << 255 << '\0';
  EXPECT_STREQ(out.text(), "ff") << "the base stays";
}

/// The modules whose level the configuration raised above or lowered below the default.
std::string levelsAfter(const char* config) {
  QDLog::getLogger()->setLevels(config);
  std::string changed;
  for (int module = 0; module < 53; ++module) {
    int level = 9;
    while (level > 0 && !QDLog::getLogger()->wants(static_cast<QDLogMType>(module), level)) --level;
    if (level != 2) changed += std::string(QDLOG_MODULES[module]) + std::to_string(level) + " ";
  }
  return changed;
}

TEST(QDLog, ReadsLevels) {
  constexpr struct {
    const char* config;
    const char* changed;
    const char* rest;  // that is complained about
  } kCases[] = {
      {" ROOT:5;", "", ""},
      {"\nROOT:5;", "", ""},
      {"3;ROOT:5;", "ROOT5 ", ""},
      {"3ROOT:5;", "", "3ROOT:5;"},
      {"3;4;ROOT:5;", "", "4;ROOT:5;"},
      {"ROOT:5;DBWR:3;\n", "ROOT5 DBWR3 ", ""},
      {"ROOT:5;\rDBWR:3;", "ROOT5 ", ""},
      {"HIST:9;MULT:0;", "MULT0 HIST9 ", ""},
      {"ROOT:5", "", "ROOT:5"},
      {"root:5;", "", "root:5;"},
      {"ZZZZ:7;", "", ""},
      {"ROOT:5;OSAL:x;", "ROOT5 ", "OSAL:x;"},
      {"ROO", "", "ROO"},
      {"", "", ""},
  };
  for (const auto& [config, changed, rest] : kCases) {
    SCOPED_TRACE(config);
    testing::internal::CaptureStderr();
    EXPECT_EQ(levelsAfter(config), changed);
    const std::string complaint = "QDLog::readConfig -> bad config ([...];" + std::string(rest);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), *rest == '\0' ? "" : complaint + ")\n");
  }
}

TEST(QDLog, WritesWhatTheLevelLetsThroughUpToItsNul) {
  const LogCapture log("ROOT:0;OSAL:8;");
  QDLOG(ROOT, NFY, "always, and a rather long record");
  QDLOG(ROOT, EL2, "below");
  QDLOG(OSAL, 8, "dump");
  QDLOG(OSAL, 9, "too fine");
  QDLOG(EXCP, ERR, "default" << '\0' << "cut");
  QDLOG(EXCP, WRN, "default hides");
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY always, and a rather long record", "OSAL:DGB dump",
                                       "EXCP:ERR default"));
}

TEST(QDLog, StatementIsHygienicAndLazy) {
  const LogCapture log("OSAL:3;");
  const bool INFO = true;
  const std::string string = "local";
  int evaluated = 0;
  if (INFO)
    QDLOG(OSAL, INFO ? WRN : ERR, string << ", " << ++evaluated);
  else
    QDLOG(OSAL, ERR, "never");
  QDLOG(OSAL, DBG, "off " << ++evaluated);
  QDLogCb* const sink = QDLog::getLogger()->logCb();
  QDLog::getLogger()->setLogCb(nullptr);
  QDLOG(ROOT, NFY, "no sink " << ++evaluated);
  QDLog::getLogger()->setLogCb(sink);
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:WRN local, 1"));
}

class Broken : public QDStreamLoggerImpl {
 public:
  explicit Broken(bool throws) : throws_(throws) {}
  void print(std::ostringstream& out) const override {
    if (throws_) throw std::ios_base::failure("print");
    out.setstate(std::ios::badbit);
  }

 private:
  bool throws_;
};

int logsItself() {
  QDLOG(ROOT, NFY, "inner");
  return 1;
}

void logNested() { QDLOG(ROOT, NFY, "outer " << logsItself()); }
void logBroken() {
  const Broken broken(false);
  QDLOG(ROOT, NFY, "x" << QDStreamLoggerAdapter(&broken) << "y");
}
void logFailure() {
  const Broken broken(true);
  QDLOG(ROOT, NFY, "x" << QDStreamLoggerAdapter(&broken));
}

TEST(QDLog, AStatementThatIsMissedIsToldOnStandardErrorAndHangsNothing) {
  constexpr struct {
    void (*statement)();
    const char* function;
    const char* written;
  } kCases[] = {{logNested, "logsItself", "ROOT:NFY outer 1"},
                {logBroken, "logBroken", nullptr},
                {logFailure, "logFailure", nullptr}};
  for (const auto& [statement, function, written] : kCases) {
    LogCapture log("");
    testing::internal::CaptureStderr();
    statement();
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        MatchesRegex("Log error \\(missed\\): " + std::string(function) + " \\(line [0-9]+\\)\n"));
    EXPECT_EQ(log.lines(),
              written == nullptr ? std::vector<std::string>{} : std::vector<std::string>{written});
    log.clear();
    QDLOG(ROOT, NFY, "the lock is free");
    EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY the lock is free"));
  }
}

int throwsInside() { throw std::bad_alloc(); }

TEST(QDLog, WhatTheExpressionThrowsReachesTheCallerWithLockAndFormatsReleased) {
  const LogCapture log("");
  EXPECT_THROW(QDLOG(ROOT, NFY, QDStreamLogger::Hex << throwsInside()), std::bad_alloc);
  QDLOG(ROOT, NFY, "after " << 255);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY after 255"));
}

TEST(QDLog, ServesThreadsOneRecordAfterTheOther) {
  const LogCapture log("");
  const auto write = [](char c) {
    for (int i = 0; i < 200; ++i) QDLOG(ROOT, NFY, std::string(50, c) << std::string(50, c));
  };
  std::thread levels([] {
    for (int i = 0; i < 200; ++i) QDLog::getLogger()->setLevels("OSAL:5;");
  });
  std::thread other(write, 'b');
  write('a');
  other.join();
  levels.join();
  EXPECT_EQ(log.lines().size(), 400U);
  EXPECT_THAT(log.lines(), testing::Each(MatchesRegex("ROOT:NFY (a{100}|b{100})")));
}

TEST(QDLogDefCb, WritesOneLineToStandardOutput) {
  QDLog::QDLogDefCb console;
  testing::internal::CaptureStdout();
  console.log(0x1f, 0x2e, "OSAL", "ERR", "/src/osal/file.cpp", 12, "", "text");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "0x1f,0x2e - OSAL:ERR [ /src/osal/file.cpp:12 ] - text\n");
}

}  // namespace
