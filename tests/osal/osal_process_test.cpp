#include "osal/osal_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace {

TEST(OsalProcess, TellsProcessAndThread) {
  unsigned int pid = 0;
  EXPECT_EQ(osal_getPid(&pid), 0);
  EXPECT_EQ(pid, static_cast<unsigned int>(::getpid()));

  unsigned long long own = 0;
  unsigned long long again = 0;
  unsigned long long other = 0;
  EXPECT_EQ(osal_getThreadID(&own), 0);
  EXPECT_EQ(osal_getThreadID(&again), 0);
  std::thread([&] { osal_getThreadID(&other); }).join();
  EXPECT_NE(own, 0U);
  EXPECT_EQ(own, again);
  EXPECT_NE(own, other);

  EXPECT_EQ(osal_getPid(nullptr), 0);
  EXPECT_EQ(osal_getThreadID(nullptr), 0);
}

#if defined(__linux__)
TEST(OsalProcess, TheFirstThreadHasTheIdOfTheProcess) {
  unsigned long long id = 0;
  osal_getThreadID(&id);
  EXPECT_EQ(id, static_cast<unsigned long long>(::getpid()));
}
#endif

TEST(OsalProcess, NamesTheCallingThread) {
  std::thread([] {
    char name[64] = {};
    osal_setThreadName("worker");
    EXPECT_EQ(osal_getThreadName(name, sizeof name), 0);
    EXPECT_STREQ(name, "worker");
    for (const char* ignored : {static_cast<const char*>(nullptr), ""}) {
      osal_setThreadName(ignored);
      osal_getThreadName(name, sizeof name);
      EXPECT_STREQ(name, "worker");
    }
#if defined(__linux__)
    osal_setThreadName("fifteen_letters_and_more");
    osal_getThreadName(name, sizeof name);
    EXPECT_STREQ(name, "fifteen_letters");
    EXPECT_EQ(osal_getThreadName(name, 3), ERANGE);
#endif
  }).join();
}

}  // namespace
