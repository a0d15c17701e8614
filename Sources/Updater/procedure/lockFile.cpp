#include "Updater/procedure/lockFile.h"

#include <boost/algorithm/string/trim.hpp>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <ctime>
#include <exception>

#include "Updater/terms/utilsPlatform.h"
#include "ground/osal_io.h"
#include "ground/osal_localtime.h"
#include "ground/osal_ownfile.h"
#include "ground/osal_replacefile.h"

namespace {

constexpr long long kHeldForMs = 3600000;
constexpr std::size_t kMaxLine = std::size_t{64} * 1024;

std::string readFirstLine(const std::string& path) {
  ScopedFd fd;
  if (osal_openOwnFile(path.c_str(), OwnFileUse::Read, 0, fd) != 0) return {};
  std::string text;
  osal_readAll(fd.get(), text, kMaxLine);
  return text.substr(0, text.find('\n'));
}

}  // namespace

std::string placeOfLock() {
  return utils::joinPath(boost::filesystem::temp_directory_path().string(), "upgrade_ovt.lock");
}

long long lockTimeNow() {
  using std::chrono::duration_cast, std::chrono::milliseconds, std::chrono::system_clock;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::optional<long long> findLock(const std::string& path) try {
  return readLock(path);
} catch (const std::exception&) {
  return std::nullopt;
}

bool lockHoldsBeside(std::optional<long long> lockTime, const std::string& former, long long now) {
  return lockTime && *lockTime <= now && lockHolds(*lockTime, now) &&
         std::to_string(*lockTime) != former;
}

bool lockHolds(long long lockTime, long long now) { return lockTime >= now - kHeldForMs; }

std::string lockTimeText(long long lockTime) {
  const auto seconds = static_cast<std::time_t>(lockTime / 1000);
  char text[100];
  return {text, osal_formatLocalTime(seconds, "%d-%m-%Y %H:%M:%S", text, sizeof text)};
}

long long readLock(const std::string& path) {
  return std::stoll(boost::trim_copy(readFirstLine(path)));
}

bool writeLock(const std::string& path, long long now) {
  // A run that is killed, or a full disk, must not leave an empty lock: it would hold for ever.
  return osal_replaceFile(path.c_str(), std::to_string(now) + "\n", 0644, true) == 0;
}
