#include "Updater/command/ChildFamily.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdlib>

#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace utils {

namespace {

void setAdopting([[maybe_unused]] bool adopts) noexcept {
#if defined(__linux__)
  ::prctl(PR_SET_CHILD_SUBREAPER, adopts ? 1UL : 0UL, 0UL, 0UL, 0UL);
#endif
}

/// This process's own, as proc(5) lists them by the thread that they belong to; none elsewhere.
std::vector<pid_t> children() {
  std::vector<pid_t> found;
  boost::system::error_code failed;
  for (boost::filesystem::directory_iterator thread("/proc/self/task", failed), end;
       !failed && thread != end; thread.increment(failed)) {
    boost::filesystem::ifstream list(thread->path() / "children");
    for (pid_t child = 0; list >> child;) found.push_back(child);
  }
  return found;
}

void killAndWait(pid_t child) noexcept {
  ::kill(child, SIGKILL);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

/// Such as what a `timeout` in a script runs: it left the process group, but not the session.
void endSession([[maybe_unused]] pid_t leader) noexcept try {
#if defined(__linux__)
  boost::system::error_code failed;
  for (boost::filesystem::directory_iterator entry("/proc", failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const pid_t process = std::atoi(entry->path().filename().c_str());
    if (process > 0 && ::getsid(process) == leader) ::kill(process, SIGKILL);
  }
#endif
} catch (...) {
  // No memory. The process group is the most of it.
}

}  // namespace

ChildFamily::ChildFamily(bool adopts) noexcept : adopts_(adopts) {
  if (!adopts_) return;
  try {
    others_ = children();
    setAdopting(true);
  } catch (...) {
    // No memory.
  }
}

ChildFamily::~ChildFamily() {
  if (adopts_) setAdopting(false);
}

void ChildFamily::end(pid_t child) const noexcept try {
  endSession(child);
  ::kill(-child, SIGKILL);
  killAndWait(child);
  // Whoever is killed leaves children of its own behind.
  for (bool found = adopts_; found;) {
    found = false;
    for (const pid_t orphan : children()) {
      if (std::ranges::find(others_, orphan) != others_.end()) continue;
      killAndWait(orphan);
      found = true;
    }
  }
} catch (...) {
  // No memory. What is left is out of reach.
}

}  // namespace utils
