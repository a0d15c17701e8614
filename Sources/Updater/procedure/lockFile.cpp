#include "Updater/procedure/lockFile.h"

#include <unistd.h>

#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "ground/osal_ownfile.h"

namespace {

constexpr long long kHeldForMs = 3600000;
constexpr std::size_t kMaxLine = std::size_t{64} * 1024;

std::string readFirstLine(const std::string& path) {
  ScopedFd fd;
  if (osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0, fd) != 0) return {};
  std::string text(kMaxLine, '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = ::read(fd.get(), text.data() + length, text.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text.substr(0, text.find('\n'));
}

bool writeWhole(const std::string& path, const std::string& text) {
  ScopedFd fd;
  if (osal_openOwnFile(path.c_str(), OwnFileUse::Overwrite, 0644, fd) != 0) return false;
  const ssize_t count = ::write(fd.get(), text.data(), text.size());
  // Without the sync a power cut could keep the new name and lose the content.
  return count == static_cast<ssize_t>(text.size()) && ::fsync(fd.get()) == 0 &&
         ::close(fd.release()) == 0;
}

}  // namespace

bool lockHolds(long long lockTime, long long now) { return lockTime >= now - kHeldForMs; }

std::string lockTimeText(long long lockTime) {
  const auto seconds = static_cast<std::time_t>(lockTime / 1000);
  std::tm local{};
  ::tzset();  // localtime_r itself need not look at the time zone setting
  if (::localtime_r(&seconds, &local) == nullptr) return {};
  char text[100];
  return {text, std::strftime(text, sizeof text, "%d-%m-%Y %H:%M:%S", &local)};
}

long long readLock(const std::string& path) {
  return std::stoll(boost::trim_copy(readFirstLine(path)));
}

bool writeLock(const std::string& path, long long now) {
  // A run that is killed, or a full disk, must not leave an empty lock: it would hold for ever.
  const std::string prepared = path + "." + std::to_string(::getpid());
  if (writeWhole(prepared, std::to_string(now) + "\n") &&
      std::rename(prepared.c_str(), path.c_str()) == 0) {
    return true;
  }
  ::unlink(prepared.c_str());
  return false;
}
