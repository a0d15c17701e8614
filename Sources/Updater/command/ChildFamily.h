#pragma once

#include <sys/types.h>

#include <vector>

namespace utils {

/// A program that is run, with whatever it starts, so that all of it can be ended. Made before the
/// program is started.
class ChildFamily {
 public:
  /// `adopts`: while this object lives, what loses its parent becomes this process's child (Linux,
  /// PR_SET_CHILD_SUBREAPER), and so belongs to the program's family whatever session it has. Else
  /// such a process of another session is out of reach.
  explicit ChildFamily(bool adopts) noexcept;
  ChildFamily(const ChildFamily&) = delete;
  ChildFamily& operator=(const ChildFamily&) = delete;
  ~ChildFamily();

  /// Kills the program `child`, its session and what else is known of its family, and waits for it.
  void end(pid_t child) const noexcept;

 private:
  const bool adopts_;
  std::vector<pid_t> others_;  ///< children that this process had before
};

}  // namespace utils
