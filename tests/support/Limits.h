#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <functional>
#include <stdexcept>

/// Allows so few descriptors, for the object's life.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t most) {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    const rlimit limit{most, former_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &former_); }

 private:
  rlimit former_{};
};

/// Lets no file grow beyond so many bytes, for the object's life.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    ::getrlimit(RLIMIT_FSIZE, &former_);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{size, former_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &former_);
    ::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  rlimit former_{};
};

/// Runs `body` on a thread of its own with a stack of 64 KiB, to its end.
inline void runOnSmallStack(std::function<void()> body) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr std::size_t kStack = 256 * 1024;  // its checks take a lot for themselves
#else
  constexpr std::size_t kStack = 64 * 1024;
#endif
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStack);
  const auto run = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, run, &body);
  pthread_attr_destroy(&attributes);
  if (error != 0) throw std::runtime_error("pthread_create");
  pthread_join(thread, nullptr);
}
