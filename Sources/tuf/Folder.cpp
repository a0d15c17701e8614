#include "tuf/Folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "ground/osal_io.h"
#include "ground/osal_ownfile.h"
#include "tuf/Error.h"

namespace tuf {
namespace {

constexpr const char* kUnfinished = ".unfinished";

[[noreturn]] void fail(const std::string& what, const std::string& path, int error) {
  throw Error(ErrorKind::Storage,
              "Cannot " + what + ' ' + path + ": " + std::generic_category().message(error));
}

void lock(int folder, const std::string& path, const Waiting& waiting) {
  constexpr std::chrono::seconds kSilence{1};
  constexpr std::chrono::milliseconds kPause{20};
  const auto end = std::chrono::steady_clock::now() + kSilence;
  bool silent = static_cast<bool>(waiting);
  while (::flock(folder, silent ? LOCK_EX | LOCK_NB : LOCK_EX) != 0) {
    if (errno != EINTR && errno != EWOULDBLOCK) fail("lock", path, errno);
    if (!silent) continue;
    std::this_thread::sleep_for(kPause);
    if (std::chrono::steady_clock::now() < end) continue;
    waiting(path);
    silent = false;
  }
}

/// The file that is being written; unlinked unless it got its final name.
class Unfinished {
 public:
  Unfinished(int folder, const std::string& path) : folder_(folder), path_(path) {
    const int error = osal_openOwnFileAt(folder, kUnfinished, OwnFileUse::Overwrite, 0600, fd_);
    if (error != 0) fail("create a file in", path, error);
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  ~Unfinished() {
    if (!finished_) ::unlinkat(folder_, kUnfinished, 0);
  }

  void write(std::string_view bytes) const {
    if (osal_writeAll(fd_.get(), bytes) != bytes.size()) fail("write to", path_, errno);
  }

  void finish(const std::string& name) {
    if (::fchmod(fd_.get(), 0644) != 0 || ::fsync(fd_.get()) != 0 ||
        ::renameat(folder_, kUnfinished, folder_, name.c_str()) != 0) {
      fail("write " + name + " to", path_, errno);
    }
    finished_ = true;
    if (::fsync(folder_) != 0) fail("write " + name + " to", path_, errno);
  }

 private:
  int folder_;
  const std::string& path_;
  ScopedFd fd_;
  bool finished_ = false;
};

}  // namespace

Folder::Folder(const std::string& path, const Waiting& waiting) : path_(path) {
  std::error_code failure;
  std::filesystem::create_directories(path, failure);
  if (failure) fail("create", path, failure.value());
  folder_.reset(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_) fail("open", path, errno);
  lock(folder_.get(), path, waiting);
  ::unlinkat(folder_.get(), kUnfinished, 0);
}

bool Folder::read(const std::string& name,
                  const std::function<void(std::string_view)>& sink) const {
  const ScopedFd file(
      ::openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  std::array<char, std::size_t{64} * 1024> piece;
  while (true) {
    const ssize_t count = osal_readSome(file.get(), piece.data(), piece.size());
    if (count == 0) return true;
    if (count < 0) fail("read " + name + " in", path_, errno);
    sink({piece.data(), static_cast<std::size_t>(count)});
  }
}

std::optional<std::string> Folder::read(const std::string& name, std::uint64_t maxBytes) const {
  std::string content;
  struct stat info {};
  if (::fstatat(folder_.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    content.reserve(std::min(static_cast<std::uint64_t>(info.st_size), maxBytes));
  }
  bool fits = true;
  const bool there = read(name, [&](std::string_view piece) {
    fits = fits && piece.size() <= maxBytes - content.size();
    if (fits) content += piece;
  });
  if (!there || !fits) return std::nullopt;
  return content;
}

std::string Folder::obstacle(const std::string& name, std::uint64_t maxBytes) const {
  struct stat info {};
  if (::fstatat(folder_.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? "" : "cannot be found: " + std::generic_category().message(errno);
  }
  if (S_ISLNK(info.st_mode)) return "is a link";
  if (!S_ISREG(info.st_mode)) return "is no regular file";
  if (static_cast<std::uint64_t>(info.st_size) > maxBytes) {
    return "has more than " + std::to_string(maxBytes) + " bytes";
  }
  return "cannot be read";
}

void Folder::replace(
    const std::string& name,
    const std::function<void(const std::function<void(std::string_view)>&)>& fill) {
  Unfinished file(folder_.get(), path_);
  fill([&](std::string_view piece) { file.write(piece); });
  file.finish(name);
}

void Folder::write(const std::string& name, std::string_view content) {
  replace(name, [&](const auto& sink) { sink(content); });
}

void Folder::remove(const std::string& name) {
  if (::unlinkat(folder_.get(), name.c_str(), 0) != 0 && errno != ENOENT) {
    fail("remove " + name + " in", path_, errno);
  }
}

}  // namespace tuf
