#pragma once

#include <functional>
#include <string>

/// Looks over the shoulder of this thread's openings, removals and readings of directory entries,
/// and of its locking of files, for the object's life. A hook is called before the call and returns
/// an errno value for the call to fail with, or 0 to let it happen. For programs linked with
/// `qd_entry_hooks`, which redirects `openat`, `unlinkat`, `readdir` and `flock`.
class EntryHooks {
 public:
  EntryHooks();
  EntryHooks(const EntryHooks&) = delete;
  EntryHooks& operator=(const EntryHooks&) = delete;
  ~EntryHooks();

  std::function<int(const std::string& name)> opening;
  std::function<int(const std::string& name)> removing;
  std::function<int()> reading;
  std::function<int()> locking;
};
