#include "logging/QDLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "LogCapture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// The modules whose level the configuration raised above or lowered below the default.
std::string levelsAfter(const char* config) {
  QDLog::getLogger()->setLevels(config);
  std::string changed;
  for (int module = 0; module < 53; ++module) {
    int level = 9;
    while (level > 0 && !QDLog::getLogger()->wants(static_cast<QDLogMType>(module), level)) --level;
    if (level != 2) changed += std::string(QDLOG_MODULES[module]) + std::to_string(level) + " ";
  }
  QDLog::getLogger()->setLevels("");
  return changed;
}

TEST(QDLog, ReadsLevels) {
  constexpr struct {
    const char* config;
    const char* changed;
    const char* error;
  } kCases[] = {
      {"", "", ""},
      {" ROOT:5;", "", ""},
      {"\nROOT:5;", "", ""},
      {"ROOT:5;", "ROOT5 ", ""},
      {"3;ROOT:5;", "ROOT5 ", ""},
      {"ROOT:5;DBWR:3;\n", "ROOT5 DBWR3 ", ""},
      {"ROOT:5;\rDBWR:3;", "ROOT5 ", ""},
      {"HIST:9;MULT:0;", "MULT0 HIST9 ", ""},
      {"ROOT:5", "", "QDLog::readConfig -> bad config ([...];ROOT:5)\n"},
      {"root:5;", "", "QDLog::readConfig -> bad config ([...];root:5;)\n"},
      {"ZZZZ:7;", "", ""},
      {"ROOT:5;OSAL:x;", "ROOT5 ", "QDLog::readConfig -> bad config ([...];OSAL:x;)\n"},
      {"ROO", "", "QDLog::readConfig -> bad config ([...];ROO)\n"},
      {"3;4;ROOT:5;", "", "QDLog::readConfig -> bad config ([...];4;ROOT:5;)\n"},
  };
  for (const auto& [config, changed, error] : kCases) {
    SCOPED_TRACE(config);
    testing::internal::CaptureStderr();
    EXPECT_EQ(levelsAfter(config), changed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), error);
  }
}

TEST(QDLog, WritesWhatTheLevelLetsThrough) {
  LogCapture log("ROOT:0;OSAL:8;");
  QDLOG(ROOT, NFY, "always");
  QDLOG(ROOT, EL2, "below");
  QDLOG(OSAL, 8, "dump");
  QDLOG(OSAL, 9, "too fine");
  QDLOG(EXCP, ERR, "default");
  QDLOG(EXCP, WRN, "default hides");
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY always", "OSAL:DGB dump", "EXCP:ERR default"));
}

TEST(QDLog, StatementIsHygienicAndLazy) {
  LogCapture log("OSAL:3;");
  const bool INFO = true;
  const std::string string = "local";
  int evaluated = 0;
  if (INFO)
    QDLOG(OSAL, INFO ? WRN : ERR, string << ", " << ++evaluated);
  else
    QDLOG(OSAL, ERR, "never");
  QDLOG(OSAL, DBG, "off " << ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:WRN local, 1"));
}

TEST(QDLog, ARecordDoesNotShowAnEarlierLongerOne) {
  LogCapture log("");
  QDLOG(ROOT, NFY, "a rather long record");
  QDLOG(ROOT, NFY, "short");
  QDLOG(ROOT, NFY, "cut" << '\0' << "here");
  EXPECT_THAT(log.lines(),
              ElementsAre("ROOT:NFY a rather long record", "ROOT:NFY short", "ROOT:NFY cut"));
}

class Broken : public QDStreamLoggerImpl {
 public:
  void print(std::ostringstream& out) const override { out.setstate(std::ios::badbit); }
};

void logBroken() {
  QDLOG(ROOT, NFY, "x" << QDStreamLoggerAdapter(std::make_unique<Broken>().get()));
}

TEST(QDLog, AStreamFailureIsReportedOnStandardErrorOnly) {
  LogCapture log("");
  testing::internal::CaptureStderr();
  logBroken();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex("Log error \\(missed\\): logBroken \\(line [0-9]+\\)\n"));
  QDLOG(ROOT, NFY, "the lock is free");
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY the lock is free"));
}

int logsItself() {
  QDLOG(ROOT, NFY, "inner");
  return 1;
}

TEST(QDLog, ANestedStatementIsRefusedInsteadOfHanging) {
  LogCapture log("");
  testing::internal::CaptureStderr();
  QDLOG(ROOT, NFY, "outer " << logsItself());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex("Log error \\(missed\\): logsItself \\(line [0-9]+\\)\n"));
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY outer 1"));
}

int throwsInside() { throw std::runtime_error("inside"); }

TEST(QDLog, OtherExceptionsReachTheCallerWithLockAndFormatsReleased) {
  LogCapture log("");
  EXPECT_THROW(QDLOG(ROOT, NFY, QDStreamLogger::Hex << throwsInside()), std::runtime_error);
  QDLOG(ROOT, NFY, "after " << 255);
  EXPECT_THAT(log.lines(), ElementsAre("ROOT:NFY after 255"));
}

TEST(QDLog, WithoutASinkNothingIsEvaluated) {
  LogCapture log("");
  QDLogCb* const sink = QDLog::getLogger()->logCb();
  QDLog::getLogger()->setLogCb(nullptr);
  QDLOG(ROOT, NFY, throwsInside());
  QDLog::getLogger()->setLogCb(sink);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(QDLogDefCb, WritesOneLineToStandardOutput) {
  QDLog::QDLogDefCb console;
  testing::internal::CaptureStdout();
  console.log(0x1f, 0x2e, "OSAL", "ERR", "/src/osal/file.cpp", 12, "", "text");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "0x1f,0x2e - OSAL:ERR [ /src/osal/file.cpp:12 ] - text\n");
}

TEST(QDSingletonMutex, IsReadyDuringTheProcess) { EXPECT_TRUE(QDSingletonMutex::ready); }

}  // namespace
