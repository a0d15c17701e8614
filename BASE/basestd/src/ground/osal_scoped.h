#pragma once

#include <unistd.h>

#include <utility>

/// Owns one descriptor and closes it exactly once; empty when the value is -1.
/// Where a failing close must be reported, call `release()` and close by hand.
class ScopedFd {
 public:
  explicit ScopedFd(int fd = -1) noexcept : fd_(fd) {}
  ScopedFd(ScopedFd&& other) noexcept : fd_(other.release()) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~ScopedFd() { reset(); }

  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

  /// Hands the descriptor to the caller, who closes it from then on.
  [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

  /// Closes what is owned and takes `fd` over.
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};
