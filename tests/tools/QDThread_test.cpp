// Threads that nobody waits for.

#include "tools/QDThread.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "osal/osal_semaphore.h"

namespace {

struct Seen {
  OSAL_Semaphore start;
  OSAL_Semaphore done;
  int value = 0;
};

void launch(QDThread::Function fn, void* data, unsigned int size, void* ctx) {
  QDThread::launchThread(fn, 0, data, size, "t", QDThread::QD_QOS_DEFAULT, ctx);
}

TEST(QDThread, GetsACopyOfTheBlockOrTheBlockItself) {
  for (const bool copied : {false, true}) {
    Seen seen;
    seen.start.init(0);
    seen.done.init(0);
    int block = 1;
    const auto look = [](void* data, void* ctx) -> void* {
      Seen& s = *static_cast<Seen*>(ctx);
      s.start.wait();
      s.value = *static_cast<int*>(data);
      s.done.post();
      return nullptr;
    };
    launch(look, &block, copied ? sizeof block : 0, &seen);
    block = 2;
    seen.start.post();
    seen.done.wait();
    EXPECT_EQ(seen.value, copied ? 1 : 2);
  }
}

TEST(QDThread, AbsorbsWhatTheThreadThrowsAndLetsACancelledOneUnwind) {
  const LogCapture log(QDLOG_THRD, 9);
  launch([](void*, void*) -> void* { throw std::runtime_error("out"); }, nullptr, 0, nullptr);
  launch([](void*, void*) -> void* { throw 7; }, nullptr, 0, nullptr);
  OSAL_Semaphore unwound;
  unwound.init(0);
  const auto exit = [](void*, void* ctx) -> void* {
    const std::shared_ptr<OSAL_Semaphore> tells(static_cast<OSAL_Semaphore*>(ctx),
                                                [](OSAL_Semaphore* done) { done->post(); });
    pthread_exit(nullptr);
  };
  launch(exit, nullptr, 0, &unwound);
  EXPECT_EQ(unwound.timedwait(10'000), 1);
  for (int i = 0; i < 10'000 && log.lines().size() < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(log.lines(),
            std::vector<std::string>(2, "THRD:ERR Exception occured during thread execution"));
}

}  // namespace
