#include "Updater/outcome/StateFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "base/ground/target.h"
#include "ground/osal_io.h"
#include "ground/osal_ownfile.h"
#include "ground/osal_replacefile.h"

namespace fs = boost::filesystem;

namespace {

constexpr const char* kStatus = "status.json";
constexpr const char* kHistory = "history.jsonl";
constexpr const char* kOldHistory = "history.jsonl.1";
constexpr const char* kLock = "lock";
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr std::size_t kMostBytes = std::size_t{256} << 20;
constexpr std::size_t kMostLine = std::size_t{256} << 10;

/// Whatever the umask is: others are to read what is public.
int makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), kFolderMode) != 0) return errno == EEXIST ? 0 : errno;
  return ::chmod(path.c_str(), kFolderMode) == 0 ? 0 : errno;
}

/// As files are called while they are written: "status.json." and six characters.
bool isTemporaryName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot != std::string::npos && name.size() - dot == 7 &&
         name.substr(0, dot).ends_with(".json");
}

std::string readFile(const std::string& path, std::size_t limit) {
  const ScopedFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  std::string text;
  if (!fd || osal_readAll(fd.get(), text, limit) != 0) return {};
  return text;
}

}  // namespace

std::string stateFolderOf(const std::string& instance) {
  constexpr std::size_t kMostName = 200;
  if (instance.find('/') != std::string::npos || instance.size() > kMostName) return {};
  const std::string folder = std::string(targetStateFolder()) + "/update";
  return instance.empty() ? folder : folder + "." + instance;
}

std::string StateFolder::open(const std::string& path) {
  int error = makeFolder(fs::path(path).parent_path().string());
  if (error == 0) error = makeFolder(path);
  if (error == 0) {
    folder_.reset(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder_) error = errno;
  }
  if (error != 0) return path + ": " + std::strerror(error);
  if (osal_folderIsShared(path.c_str())) {
    folder_.reset();
    return path + ": others than root may write to it; chown root and chmod 755 it";
  }
  path_ = path;
  return {};
}

bool StateFolder::lock() {
  ScopedFd fd;
  if (osal_openOwnFileAt(folder_.get(), kLock, OwnFileUse::Append, 0600, fd) != 0) return true;
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
  lock_.reset(fd.release());
  return true;
}

std::string StateFolder::lockNote() const {
  constexpr std::size_t kMost = 64;
  char note[kMost];
  const ssize_t length = lock_ ? ::pread(lock_.get(), note, sizeof note, 0) : 0;
  return length > 0 ? std::string(note, static_cast<std::size_t>(length)) : std::string();
}

void StateFolder::setLockNote(const std::string& note) {
  if (!lock_ || ::ftruncate(lock_.get(), 0) != 0) return;
  osal_writeAll(lock_.get(), note);
}

int StateFolder::replace(const char* name, std::string_view content, bool durable) const noexcept
    try {
  return osal_replaceFile(pathOf(name).c_str(), content, kFileMode, durable);
} catch (...) {
  return ENOMEM;
}

int StateFolder::remove(const char* name) const noexcept {
  if (::unlinkat(folder_.get(), name, 0) != 0) return errno == ENOENT ? 0 : errno;
  return ::fsync(folder_.get()) == 0 ? 0 : errno;
}

int StateFolder::appendHistory(std::string_view line, std::uint64_t limit) const {
  const std::string path = pathOf(kHistory);
  struct stat info {};
  const bool exists = ::fstatat(folder_.get(), kHistory, &info, AT_SYMLINK_NOFOLLOW) == 0;
  if (exists && info.st_size > 0 &&
      static_cast<std::uint64_t>(info.st_size) + line.size() > limit) {
    if (std::rename(path.c_str(), pathOf(kOldHistory).c_str()) != 0) return errno;
  }
  ScopedFd fd;
  const int error = osal_openOwnFileAt(folder_.get(), kHistory, OwnFileUse::Append, kFileMode, fd);
  if (error != 0) return error;
  if (::fchmod(fd.get(), kFileMode) != 0 || ::fstat(fd.get(), &info) != 0) return errno;
  if (osal_writeAll(fd.get(), line) != line.size()) {
    const int failed = errno;
    (void)!::ftruncate(fd.get(), info.st_size);
    return failed;
  }
  return ::fsync(fd.get()) == 0 ? 0 : errno;
}

void StateFolder::tidy() const {
  boost::system::error_code failed;
  for (fs::directory_iterator entry(path_, failed), end; entry != end; entry.increment(failed)) {
    if (isTemporaryName(entry->path().filename().string())) ::unlink(entry->path().c_str());
  }
  ScopedFd fd;
  struct stat info {};
  if (::fstatat(folder_.get(), kHistory, &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (osal_openOwnFileAt(folder_.get(), kHistory, OwnFileUse::Append, kFileMode, fd) != 0) return;
  std::string tail(kMostLine, '\0');
  const off_t begin = std::max<off_t>(0, info.st_size - static_cast<off_t>(tail.size()));
  const ssize_t length = ::pread(fd.get(), tail.data(), tail.size(), begin);
  if (length <= 0) return;
  tail.resize(static_cast<std::size_t>(length));
  const std::size_t whole = tail.find_last_of('\n') + 1;  // 0 where there is no whole line
  if (whole < tail.size()) (void)!::ftruncate(fd.get(), begin + static_cast<off_t>(whole));
}

std::optional<RunRecord> StateFolder::latestInHistory() const {
  for (const char* const name : {kHistory, kOldHistory}) {
    std::string text = readFile(pathOf(name), kMostBytes);
    if (text.empty()) continue;
    if (text.ends_with('\n')) text.pop_back();
    return parseRecord(std::string_view(text).substr(text.rfind('\n') + 1));
  }
  return std::nullopt;
}

std::time_t StateFolder::lastSuccess() const {
  for (const char* const name : {kHistory, kOldHistory}) {
    const std::string text = readFile(pathOf(name), kMostBytes);
    const std::size_t success = text.rfind("\"status\":0,");
    if (success == std::string::npos) continue;
    const std::size_t begin = text.rfind('\n', success) + 1;  // 0 for the first line
    const auto record = parseRecord(text.substr(begin, text.find('\n', success) - begin));
    if (record) return record->ended;
  }
  return 0;
}

std::optional<bool> stateFolderIsLocked(const std::string& path) {
  struct stat info {};
  if (::stat((path + "/" + kLock).c_str(), &info) != 0) return false;
#if defined(__linux__)
  // One line a lock: "1: FLOCK  ADVISORY  WRITE 4711 08:01:1234 0 EOF". Trying the lock itself
  // could keep a run from it that starts at this moment.
  std::ifstream locks("/proc/locks");
  if (!locks) return std::nullopt;
  const std::string inode = ":" + std::to_string(info.st_ino) + " ";
  for (std::string line; std::getline(locks, line);) {
    if (line.find("FLOCK") != std::string::npos && line.find(inode) != std::string::npos)
      return true;
  }
  return false;
#else
  return std::nullopt;
#endif
}

std::string readStateFile(const std::string& path, const char* name) {
  return readFile(path + "/" + name, kMostBytes);
}

std::vector<RunRecord> readHistory(const std::string& path) {
  std::vector<RunRecord> records;
  for (const char* const name : {kOldHistory, kHistory}) {
    const std::string text = readFile(path + "/" + name, kMostBytes);
    std::string_view rest = text;
    for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos;) {
      if (auto record = parseRecord(rest.substr(0, end))) records.push_back(std::move(*record));
      rest.remove_prefix(end + 1);
    }
  }
  return records;
}

std::optional<RunRecord> readStatus(const std::string& path) {
  return parseRecord(readFile(path + "/" + kStatus, kMostBytes));
}
