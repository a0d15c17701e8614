#include "osal/osal_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>

#include <cstddef>
#include <string>

#include "LogCapture.h"
#include "osal/osal_semaphore.h"

namespace {

using ::testing::ElementsAre;

constexpr auto kNoClass = static_cast<OSAL_QOS>(7);

TEST(OsalThread, NamesTheClasses) {
  constexpr struct {
    unsigned int qos;
    const char* name;
  } kCases[] = {
      {0, "unspecified"}, {1, "efficiency"}, {2, "performance"}, {3, "default"}, {4, ""}, {7, ""},
  };
  for (const auto& [qos, name] : kCases) {
    SCOPED_TRACE(qos);
    EXPECT_STREQ(osal_qosToString(static_cast<OSAL_QOS>(qos)), name);
  }
}

/// What a thread started by a test finds out about itself.
struct Visit {
  OSAL_Semaphore done;
  std::size_t stackSize = 0;
};

void* examineItself(void* arg) {
  Visit& visit = *static_cast<Visit*>(arg);
#if defined(__linux__)
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstacksize(&attributes, &visit.stackSize);
  pthread_attr_destroy(&attributes);
#else
  visit.stackSize = pthread_get_stacksize_np(pthread_self());
#endif
  visit.done.post();
  return nullptr;
}

/// The stack size that a thread gets, in bytes; 0 when it does not start.
std::size_t launchedStackSize(unsigned int asked) {
  Visit visit;
  visit.done.init(0);
  if (osal_launchThread(examineItself, asked, &visit, "visit", OSAL_QOS_DEFAULT) != 0) return 0;
  visit.done.wait();
  return visit.stackSize;
}

TEST(OsalThread, GivesAtLeastTheAskedStack) {
  for (const unsigned int asked : {1U << 20, (1U << 20) + 1, 64U << 20}) {
    EXPECT_GE(launchedStackSize(asked), asked);
  }
}

TEST(OsalThread, RefusesAStackThatIsTooSmall) {
  LogCapture log(QDLOG_OSAL, 3);
  EXPECT_EQ(launchedStackSize(1), 0U);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:EL2 Cannot set stack size thread attribute (22)"));
}

TEST(OsalThread, TellsTheClassAndTheNameOfWhatItStarts) {
  LogCapture log(QDLOG_OSAL, 5);
  Visit first;
  Visit second;
  first.done.init(0);
  second.done.init(0);
  EXPECT_EQ(osal_launchThread(examineItself, 0, &first, "scan", OSAL_QOS_EFFICIENCY), 0);
  EXPECT_EQ(osal_launchThread(examineItself, 0, &second, "any", kNoClass), 0);
  EXPECT_EQ(first.done.wait(), 0);
  EXPECT_EQ(second.done.wait(), 0);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:DBG Set QoS to efficiency for thread \"scan\"",
                                       "OSAL:DBG Set QoS to  for thread \"any\""));
}

}  // namespace
