#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "LogCapture.h"
#include "MaskAddresses.h"
#include "PosixFaults.h"
#include "sysdef/qdTunablesBaseValues.h"
#include "tools/QDException.h"
#include "tools/QDThread.h"

namespace {

using ::testing::ElementsAre;

void* nothing(void*, void*) { return nullptr; }

TEST(QDThread, TakesTheStackSizeOrTheTunableOne) {
  constexpr struct {
    unsigned int stackSize;
    std::uint32_t tunable;
    std::size_t asked;
  } kCases[] = {{0, 1U << 20, 1U << 20}, {0, 3U << 20, 3U << 20}, {2U << 20, 3U << 20, 2U << 20}};
  const std::uint32_t former = BASE_DEFAULT_THREAD_STACK;
  for (const auto& [stackSize, tunable, asked] : kCases) {
    BASE_DEFAULT_THREAD_STACK = tunable;
    QDThread::launchThread(nothing, stackSize, nullptr, 0, "t", QDThread::QD_QOS_DEFAULT, nullptr);
    EXPECT_EQ(takeAskedStackSize(), asked);
  }
  BASE_DEFAULT_THREAD_STACK = former;
}

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
