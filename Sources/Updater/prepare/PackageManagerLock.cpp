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

struct flock wholeFile() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
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
  struct flock lock = wholeFile();
  if (hold && ::fcntl(fd_.get(), F_SETLK, &lock) == 0) {
    ::setenv(kHandedOn, "true", 1);
    held_ = true;
    return true;
  }
  // Where the system keeps no locks there is nobody to wait for.
  if (hold && errno != EAGAIN && errno != EACCES) return true;
  lock = wholeFile();
  if (::fcntl(fd_.get(), F_GETLK, &lock) != 0) return true;
  if (lock.l_type == F_UNLCK) return !hold;
  holder_ = programOf(lock.l_pid) + " (" + std::to_string(lock.l_pid) + ") holds " + path_;
  return false;
}

void PackageManagerLock::release() noexcept {
  if (held_) ::unsetenv(kHandedOn);
  held_ = false;
  fd_.reset();
}
