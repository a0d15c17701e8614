#pragma once

#include <atomic>
#include <cstdint>

#include "ground/QDMarkers.h"

/// How far a thread has come that others follow: a number that only grows, until the end.
class osal_progress : private qd_no_duplic {
 public:
  void reach(std::uint64_t count) { set(count); }

  /// There will be no more.
  void end() { set(state_.load() | kEnded); }

  /// The same, and none of it is worth following any more.
  void abandon() { set(kEnded); }

  /// Begins anew, when nobody follows.
  void reset() { state_.store(0); }

  [[nodiscard]] std::uint64_t reached() const { return state_.load() & ~kEnded; }

  /// Waits until there is more than `count`, and returns how much; `count` or less at the end.
  [[nodiscard]] std::uint64_t waitBeyond(std::uint64_t count) const {
    for (;;) {
      const std::uint64_t state = state_.load();
      if ((state & ~kEnded) > count || (state & kEnded) != 0) return state & ~kEnded;
      state_.wait(state);
    }
  }

 private:
  static constexpr std::uint64_t kEnded = std::uint64_t{1} << 63;

  void set(std::uint64_t state) {
    state_.store(state);
    state_.notify_all();
  }

  std::atomic<std::uint64_t> state_{0};
};
