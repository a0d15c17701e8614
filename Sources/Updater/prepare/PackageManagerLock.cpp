#include "Updater/prepare/PackageManagerLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "logging/QDLog.h"

using std::chrono::duration_cast;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kDpkgLock = "/var/lib/dpkg/lock-frontend";
constexpr const char* kDpkgInnerLock = "/var/lib/dpkg/lock";
constexpr const char* kHandedOn = "DPKG_FRONTEND_LOCKED";
constexpr std::chrono::milliseconds kTick{100};
constexpr seconds kReminder{60};

std::string lockPath(utils::AgentDistrib distrib) {
  if (distrib == utils::DistribDeb) return kDpkgLock;
  if (distrib != utils::DistribRpm) return {};
  const auto answer = utils::ask({"rpm", "--eval", "%{_rpmlock_path}"}, false);
  if (answer.status == 0 && !answer.lines.empty() && answer.lines.back().starts_with('/')) {
    return answer.lines.back();
  }
  return "/var/lib/rpm/.rpm.lock";
}

std::string programOf(pid_t pid) {
  std::string name;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
  return name.empty() ? "a process" : name;
}

struct flock wholeFile(short type = F_WRLCK) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

/// Who else holds a lock on the file at `path`, as a sentence; empty when nobody does.
std::string holderOf(int fd, const std::string& path) {
  struct flock lock = wholeFile();
  if (::fcntl(fd, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return {};
  return programOf(lock.l_pid) + " (" + std::to_string(lock.l_pid) + ") holds " + path;
}

/// A dpkg whose front end died works on, and holds the inner lock alone.
std::string orphanedDpkg() {
  const ScopedFd fd(::open(kDpkgInnerLock, O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  return fd ? holderOf(fd.get(), kDpkgInnerLock) : std::string();
}

}  // namespace

PackageManagerLock::Result PackageManagerLock::acquire(utils::AgentDistrib distrib, seconds limit,
                                                       const utils::StopWish& cancelled) {
  if (held_) return Result::Free;
  const bool hold = distrib == utils::DistribDeb;
  path_ = lockPath(distrib);
  if (path_.empty()) return Result::Free;
  fd_.reset(::open(path_.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | (hold ? O_CREAT : 0), 0640));
  if (!fd_) {
    const int error = errno;
    if (hold) QDLOG(ROOT, WRN, "Cannot open " << path_ << " : " << std::strerror(error));
    return Result::Free;  // the package manager itself will say what it misses
  }
  const auto begin = Clock::now();
  auto told = begin;
  std::string toldOf;
  while (!tryOnce(hold)) {
    const auto now = Clock::now();
    if (holder_ != toldOf || now - told >= kReminder) {
      QDLOG(ROOT, NFY, "Waiting for the package manager : " << holder_);
      toldOf = holder_;
      told = now;
    }
    if (cancelled && cancelled()) return Result::Cancelled;
    if (now - begin >= limit) return Result::Busy;
    std::this_thread::sleep_for(kTick);
  }
  if (!toldOf.empty()) {
    const auto waited = duration_cast<seconds>(Clock::now() - begin).count();
    QDLOG(ROOT, NFY, "The package manager is free after " << waited << " s");
  }
  return Result::Free;
}

bool PackageManagerLock::tryOnce(bool hold) {
  const struct flock lock = wholeFile();
  if (!hold) {
    const std::string holder = holderOf(fd_.get(), path_);
    if (!holder.empty()) holder_ = holder;
    return holder.empty();
  }
  if (::fcntl(fd_.get(), F_SETLK, &lock) != 0) {
    // Where the system keeps no locks there is nobody to wait for.
    if (errno != EAGAIN && errno != EACCES) return true;
    const std::string holder = holderOf(fd_.get(), path_);
    if (!holder.empty()) holder_ = holder;
    return false;
  }
  const std::string orphan = orphanedDpkg();
  if (!orphan.empty()) {
    holder_ = orphan;
    const struct flock unlock = wholeFile(F_UNLCK);
    ::fcntl(fd_.get(), F_SETLK, &unlock);
    return false;
  }
  ::setenv(kHandedOn, "true", 1);
  held_ = true;
  return true;
}

void PackageManagerLock::release() noexcept {
  if (held_) ::unsetenv(kHandedOn);
  held_ = false;
  fd_.reset();
}
