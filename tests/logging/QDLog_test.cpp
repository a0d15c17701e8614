// The logger, its statement, and how values look in a record.

#include "logging/QDLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "LogCapture.h"
#include "logging/QDLogPath.h"

namespace {

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
  const std::string sixteen = "0000   30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66    ";
  const std::string data = "0123456789abcdef\x01\x7f~ ";
  const std::string four = "01 7F 7E 20 " + std::string(12 * 3 + 3, ' ') + "..~ ";
  const std::pair<std::string, std::string> kCases[] = {
      {record('a', bytes("c"), static_cast<const char*>(nullptr)), "ac(null)"},
      {record(true, reinterpret_cast<const void*>(0xBEEF), ' ', 255), "true@0xbeef 255"},
      {record(QDLogPath("/a b"), QDLogPath("")), "\"/a b\"\"(root)\""},
      {record(S::Hex, static_cast<QDFileType>(403)), "QD_FILETYPE_UNKNOWN_193"},
      {record(QDLogHStr(bytes("abcdefgh"), 4, 4)), "abcd...efgh"},
      {record(QDLogHStr(bytes("abcdefg"), 4, 4)), "\"abcdefg\""},
      {record(QDLogBlob(data.data(), 0)), "UNDEF"},
      {record(QDLogBlob(data.data(), 20)), "\n" + sixteen + "0123456789abcdef\n0010   " + four},
  };
  for (const auto& [got, expected] : kCases) EXPECT_EQ(got, expected);
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
      {"3;ROOT:5;", "ROOT5 ", ""},        {"3;4;ROOT:5;", "", "4;ROOT:5;"},
      {"ROOT:5;\rDBWR:3;", "ROOT5 ", ""}, {"HIST:9;MULT:0;", "MULT0 HIST9 ", ""},
      {"ROOT:5", "", "ROOT:5"},           {"ROOT:5;OSAL:x;", "ROOT5 ", "OSAL:x;"},
  };
  for (const auto& [config, changed, rest] : kCases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(levelsAfter(config), changed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              *rest == '\0' ? "" : record("QDLog::readConfig -> bad config ([...];", rest, ")\n"));
  }
}

int logsItself() {
  QDLOG(ROOT, NFY, "inner");
  return 1;
}

/// A value whose print breaks the stream.
class Broken : public QDStreamLoggerImpl {
  void print(std::ostringstream& out) const override { out.setstate(std::ios::badbit); }
};

int throwsInside() { throw std::bad_alloc(); }

TEST(QDLog, StatementIsHygienicLazyAndHarmless) {
  LogCapture log("OSAL:3;");
  const bool INFO = true;
  const std::string string = "local";
  const Broken broken;
  int evaluated = 0;
  testing::internal::CaptureStderr();
  if (INFO)
    QDLOG(OSAL, INFO ? WRN : ERR, string << ", " << ++evaluated << '\0' << "cut");
  else
    QDLOG(OSAL, ERR, "never");
  QDLOG(OSAL, DBG, "off " << ++evaluated);
  QDLOG(OSAL, ERR, "outer " << logsItself());
  QDLOG(OSAL, ERR, "x" << QDStreamLoggerAdapter(&broken) << "y");
  EXPECT_THROW(QDLOG(OSAL, ERR, QDStreamLogger::Hex << throwsInside()), std::bad_alloc);
  QDLOG(OSAL, ERR, "lock and formats are free " << 255);
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(log(), "WRN local, 1 | ERR outer 1 | ERR lock and formats are free 255");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex("Log error \\(missed\\): logsItself \\(line [0-9]+\\)\n"
                           "Log error \\(missed\\): TestBody \\(line [0-9]+\\)\n"));
}

TEST(QDLog, ServesThreadsOneRecordAfterTheOther) {
  const LogCapture log("");
  const auto write = [](char c) {
    for (int i = 0; i < 200; ++i) QDLOG(ROOT, NFY, std::string(50, c) << std::string(50, c));
  };
  std::thread other(write, 'b');
  write('a');
  other.join();
  EXPECT_EQ(log.lines().size(), 400U);
  EXPECT_THAT(log.lines(), testing::Each(MatchesRegex("ROOT:NFY (a{100}|b{100})")));
}

}  // namespace
