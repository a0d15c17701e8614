// Two threads on one processor that hand a token to and fro: the cost of a round trip.

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "measure.h"
#include "osal/osal_threads.h"

namespace {

constexpr int kRoundTrips = 10000;

/// Every variant has `give`, and `take`, which waits for it.
struct ProjectSemaphore {
  OSAL_Semaphore semaphore;
  ProjectSemaphore() { semaphore.init(0); }
  void give() { semaphore.post(); }
  void take() { semaphore.wait(); }
};

struct ProjectEvent {
  OSAL_Event event;
  ProjectEvent() { event.initEvent(); }
  ~ProjectEvent() { event.destroyEvent(); }
  void give() { event.notify(); }
  void take() { event.waitForNotification(10000); }
};

struct PosixSemaphore {
  sem_t semaphore{};
  PosixSemaphore() { ::sem_init(&semaphore, 0, 0); }
  ~PosixSemaphore() { ::sem_destroy(&semaphore); }
  void give() { ::sem_post(&semaphore); }
  void take() { ::sem_wait(&semaphore); }
};

struct Condition {
  std::mutex mutex;
  std::condition_variable condition;
  bool given = false;
  void give() {
    const std::lock_guard lock(mutex);
    given = true;
    condition.notify_one();
  }
};

struct PlainCondition : Condition {
  void take() {
    std::unique_lock lock(mutex);
    condition.wait(lock, [&] { return given; });
    given = false;
  }
};

// An event's wait has a time-out, so have those beside it.

timespec deadline() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  time.tv_sec += 10;
  return time;
}

struct TimedPosixSemaphore : PosixSemaphore {
  void take() {
    const timespec until = deadline();
    ::sem_timedwait(&semaphore, &until);
  }
};

struct TimedCondition : Condition {
  void take() {
    std::unique_lock lock(mutex);
    condition.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(10),
                         [&] { return given; });
    given = false;
  }
};

struct Futex {
  std::atomic<int> given{0};
  void give() {
    given.store(1);
    ::syscall(SYS_futex, &given, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
  }
  void take() {
    while (given.exchange(0) == 0) {
      ::syscall(SYS_futex, &given, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
  }
};

/// The threads that are started from here on stay on the processor of this one.
void stayOnOneProcessor() {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(::sched_getcpu(), &set);
  ::pthread_setaffinity_np(::pthread_self(), sizeof set, &set);
}

template <typename Signal>
void pingPong(benchmark::State& state) {
  std::thread([&] {
    stayOnOneProcessor();
    for (auto _ : state) {
      Signal ping;
      Signal pong;
      const double start = measure::processorTime();
      std::thread other([&] {
        for (int count = 0; count < kRoundTrips; ++count) {
          ping.take();
          pong.give();
        }
      });
      for (int count = 0; count < kRoundTrips; ++count) {
        ping.give();
        pong.take();
      }
      other.join();
      state.SetIterationTime(measure::processorTime() - start);
    }
  }).join();
}

void ofRoundTrips(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(pingPong<ProjectSemaphore>)->Name("semaphore/project")->Apply(ofRoundTrips);
BENCHMARK(pingPong<PosixSemaphore>)->Name("semaphore/peer sem_t")->Apply(ofRoundTrips);
BENCHMARK(pingPong<PlainCondition>)
    ->Name("semaphore/peer mutex and condition variable")
    ->Apply(ofRoundTrips);
BENCHMARK(pingPong<Futex>)->Name("semaphore/limit futex")->Apply(ofRoundTrips);

BENCHMARK(pingPong<ProjectEvent>)->Name("event/project")->Apply(ofRoundTrips);
BENCHMARK(pingPong<TimedPosixSemaphore>)->Name("event/peer sem_t")->Apply(ofRoundTrips);
BENCHMARK(pingPong<TimedCondition>)
    ->Name("event/peer mutex and condition variable")
    ->Apply(ofRoundTrips);
BENCHMARK(pingPong<Futex>)->Name("event/limit futex")->Apply(ofRoundTrips);

}  // namespace
