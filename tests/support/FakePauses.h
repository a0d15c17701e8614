#pragma once

#include <functional>
#include <vector>

/// Makes the pauses of this thread end at once and remembers them, for the object's life. For
/// programs linked with `qd_fake_pauses`, which redirects `nanosleep`.
class FakePauses {
 public:
  /// Pauses fail with EINVAL from the one after `good` pauses on.
  explicit FakePauses(int good = 1'000'000);
  FakePauses(const FakePauses&) = delete;
  FakePauses& operator=(const FakePauses&) = delete;
  ~FakePauses();

  /// What was asked for, in milliseconds.
  [[nodiscard]] const std::vector<long>& ms() const { return ms_; }

  /// Done in each pause.
  std::function<void()> meanwhile;

  /// Called in the place of `nanosleep`.
  int pause(long ms);

 private:
  int good_;
  std::vector<long> ms_;
};
