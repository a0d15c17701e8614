#pragma once

#include <chrono>
#include <string>

#include "Updater/prepare/rehearsal.h"
#include "Updater/terms/utilsPlatform.h"
#include "ground/osal_scoped.h"

/// The lock that keeps two package managers from working at the same time. dpkg's is taken as apt
/// takes it, and handed on to the dpkg that this process starts by the environment: nobody slips in
/// between. rpm's can't be handed on, so it is only waited for. Other package managers have none.
class PackageManagerLock {
 public:
  enum class Result { Free, Busy, Cancelled };

  PackageManagerLock() = default;
  PackageManagerLock(const PackageManagerLock&) = delete;
  PackageManagerLock& operator=(const PackageManagerLock&) = delete;
  ~PackageManagerLock() { release(); }

  /// Waits at most so long until the package manager of the kind `distrib` is free, and takes its
  /// lock where it can be held. Logs who holds it. Free also where there is no lock to be found.
  Result acquire(utils::AgentDistrib distrib, std::chrono::seconds limit,
                 const utils::StopWish& cancelled);

  /// Gives the lock back.
  void release() noexcept;

  /// Who held it when it was waited for last: "apt-get (4711) holds /var/lib/dpkg/lock-frontend".
  [[nodiscard]] const std::string& holder() const { return holder_; }

 private:
  bool tryOnce(bool hold);

  ScopedFd fd_;
  std::string path_;
  std::string holder_;
  bool held_ = false;
};
