#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <thread>

#include "osal/osal_host.h"

namespace {

int niceOf(long thread) { return ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread)); }

/// Sets the lowest priority while there is a second thread, and exits with 0 when both have it.
[[noreturn]] void lowerBothThreads() {
  std::promise<long> started;
  std::promise<void> end;
  std::thread other([&] {
    started.set_value(::syscall(SYS_gettid));
    end.get_future().wait();
  });
  const long id = started.get_future().get();
  const bool set = host_setNice(19) == 0 && niceOf(0) == 19 && niceOf(id) == 19;
  end.set_value();
  other.join();
  std::_Exit(set ? 0 : 1);
}

TEST(HostMachine, PriorityIsTheWholeProcesss) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(lowerBothThreads(), testing::ExitedWithCode(0), "");
}

}  // namespace
