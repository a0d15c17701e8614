#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "LogCapture.h"
#include "MaskAddresses.h"
#include "PosixFaults.h"
#include "tools/QDException.h"
#include "tools/QDThread.h"

namespace {

using ::testing::ElementsAre;

void* nothing(void*, void*) { return nullptr; }

TEST(QDThreadFaults, AreLoggedAndThrown) {
  constexpr struct {
    const char* function;
    const char* line;
  } kCases[] = {
      {"operator new", "EXCP:ERR NET: launchThread: Memory allocation error"},
      {"operator new[]", "EXCP:ERR NET: launchThread: Memory allocation error"},
      {"pthread_create", "EXCP:ERR NET: launchThread: Cannot launch thread"},
  };
  for (const auto& [function, line] : kCases) {
    SCOPED_TRACE(function);
    LogCapture log("OSAL:0;EXCP:5;");
    const PosixFault fault(function, EAGAIN);
    int block = 1;
    try {
      QDThread::launchThread(nothing, 0, &block, sizeof block, "t", QDThread::QD_QOS_DEFAULT,
                             nullptr);
      ADD_FAILURE() << "launched";
    } catch (const QDException& e) {
      EXPECT_EQ(e.code(), 1);
    }
    EXPECT_THAT(maskAddresses(log.lines()), ElementsAre(line, "EXCP:ERR ECT - @"));
  }
}

}  // namespace
