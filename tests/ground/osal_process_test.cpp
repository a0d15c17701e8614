#include "ground/osal_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "ground/osal_mutex.h"

namespace {

/// Whether the process's number is the system's, and this thread's number another than `parent`.
bool hasIdsOfItsOwn(unsigned long long parent) {
  unsigned int pid = 0;
  unsigned long long thread = 0;
  osal_getThreadID(&thread);
  return osal_getPid(&pid) == 0 && pid == static_cast<unsigned int>(::getpid()) && thread != parent;
}

TEST(OsalProcess, ThreadsAndForkedChildrenHaveIdsAndNamesOfTheirOwn) {
  unsigned long long parent = 0;
  osal_getThreadID(&parent);
#if defined(__linux__)
  EXPECT_EQ(parent, static_cast<unsigned long long>(::getpid()));  // this is the first thread
#endif
  EXPECT_TRUE(hasIdsOfItsOwn(0));
  EXPECT_EXIT(::_exit(hasIdsOfItsOwn(parent) ? 0 : 1), testing::ExitedWithCode(0), "");
  std::thread([parent] {
    EXPECT_TRUE(hasIdsOfItsOwn(parent));
    char name[64] = {};
    osal_setThreadName("fifteen_letters_and_more");
    osal_setThreadName("");
    EXPECT_EQ(osal_getThreadName(name, sizeof name), 0);
    EXPECT_EQ(std::string(name).substr(0, 15), "fifteen_letters");
  }).join();
}

TEST(OSAL_Mutex, IsUsableBetweenInitAndDestroy) {
  OSAL_Mutex mutex;
  EXPECT_EQ(mutex.lockMutex(), -1);
  EXPECT_EQ(mutex.unlockMutex(), -1);
  EXPECT_EQ(mutex.destroyMutex(), 0);
  EXPECT_EQ(mutex.initMutex("name"), 0);
  EXPECT_EQ(mutex.initMutex("name"), -1);
  EXPECT_EQ(mutex.destroyMutex(), 0);
}

}  // namespace
