#include "logging/FileQDLogCb.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <new>
#include <string_view>

#include "ground/osal_io.h"
#include "ground/osal_localtime.h"
#include "ground/osal_ownfile.h"

using namespace std::string_view_literals;

namespace {

constexpr unsigned long long kMaxFileSize = 0x500000;
constexpr unsigned long long kRetryRollAfter = 0x100000;
constexpr unsigned long long kTrustedBytes = 0x10000;
constexpr long long kTrustedMs = 100;
constexpr std::size_t kKeptCapacity = std::size_t{64} * 1024;
constexpr std::size_t kShortNameLength = 32;
constexpr std::size_t kExtensionLength = 4;

/// Milliseconds that never run backwards, read from the cheapest clock that there is.
long long coarseMs() {
#if defined(CLOCK_MONOTONIC_COARSE)
  constexpr clockid_t kClock = CLOCK_MONOTONIC_COARSE;
#else
  constexpr clockid_t kClock = CLOCK_MONOTONIC;
#endif
  timespec now{};
  ::clock_gettime(kClock, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/// Size of the file; 0 for what has none, such as a terminal.
unsigned long long sizeOf(int fd) {
  const off_t end = ::lseek(fd, 0, SEEK_END);
  return end < 0 ? 0 : static_cast<unsigned long long>(end);
}

/// The part of a source file's name that a line shows: its end.
std::string_view shortFileName(std::string_view file) {
  const auto isSlash = [](char c) { return c == '/' || c == '\\'; };
  const auto slash = std::find_if(file.rbegin(), file.rend(), isSlash);
  if (slash != file.rend()) return {slash.base(), file.end()};
  return file.substr(file.size() - std::min(file.size(), kShortNameLength));
}

/// Makes `text` of all the parts. To append them one by one takes half as long as writing them.
template <std::same_as<std::string_view>... Parts>
void join(std::string& text, Parts... parts) {
  text.resize((parts.size() + ...));
  char* at = text.data();
  ((at += parts.copy(at, parts.size())), ...);
}

}  // namespace

std::string_view QDLogClock::now() {
  const std::time_t second = std::time(nullptr);
  const char* const zone = std::getenv("TZ");
  const bool sameZone = zone != nullptr ? zone_ == zone : !zone_.has_value();
  if (second == second_ && sameZone) return text_;
  char buffer[100];
  text_.assign(buffer, osal_formatLocalTime(second, "%Y-%m-%d %H:%M:%S", buffer, sizeof buffer));
  zone_ = zone != nullptr ? std::optional<std::string>(zone) : std::nullopt;
  second_ = second;
  return text_;
}

bool QDLogSize::isOld() const {
  return added_ >= kTrustedBytes || coarseMs() - setAt_ >= kTrustedMs;
}

void QDLogSize::set(unsigned long long bytes) {
  bytes_ = bytes;
  added_ = 0;
  setAt_ = coarseMs();
}

void QDLogSize::add(unsigned long long bytes) {
  bytes_ += bytes;
  added_ += bytes;
}

std::string qdLogBackupName(const std::string& path) {
  const std::size_t cut = path.size() < kExtensionLength ? 0 : kExtensionLength;
  return path.substr(0, path.size() - cut) + ".bak";
}

FileQDLogCb::FileQDLogCb(const std::string& path, bool echo, bool shared)
    : _path(path), _echo(echo), _shared(shared), _rollAbove(kMaxFileSize) {
  _file = openFile();
}

ScopedFd FileQDLogCb::openFile() const {
  ScopedFd file;
  if (_shared) {
    osal_openOwnFile(_path.c_str(), OwnFileUse::Log, 0600, file);
  } else {
    osal_openFixedFile(_path.c_str(), OwnFileUse::Log, 0666, file);
  }
  return file;
}

void FileQDLogCb::log(unsigned int /*pid*/, unsigned long long /*threadId*/, const char* module,
                      const char* level, const char* file, int line, const char* /*func*/,
                      const char* message) try {
  char digits[16];
  const std::string_view number(digits, std::to_chars(digits, std::end(digits), line).ptr);
  join(_text, "\n["sv, _clock.now(), "] - "sv, std::string_view(module), ":"sv,
       std::string_view(level), " - [ ("sv, shortFileName(file), ":"sv, number, ")] - "sv,
       std::string_view(message), "\n"sv);
  const std::string_view whole = std::string_view(_text).substr(1);
  if (_file && exceedsLimit(whole.size() - 1)) rollLogFiles();
  // After an incomplete line, which a full disk leaves, the next one still starts a line.
  if (_file) writeToFile(_torn ? _text : whole);
  if (_echo) {
    std::fwrite(whole.data(), 1, whole.size(), stdout);
    std::fflush(stdout);
  }
  if (_text.capacity() > kKeptCapacity) std::string().swap(_text);
} catch (const std::bad_alloc&) {
  QDLog::reportMissed(shortFileName(file).data(), line);
}

bool FileQDLogCb::exceedsLimit(std::size_t length) {
  if (_size.isOld()) _size.set(sizeOf(_file.get()));
  if (_size.bytes() + length <= _rollAbove) return false;
  _size.set(sizeOf(_file.get()));  // others may have emptied the file
  return _size.bytes() + length > _rollAbove;
}

void FileQDLogCb::writeToFile(std::string_view text) {
  const std::size_t written = osal_writeAll(_file.get(), text);
  if (written > 0) _torn = written < text.size();
  _size.add(written);
}

void FileQDLogCb::rollLogFiles() {
  const bool renamed = std::rename(_path.c_str(), qdLogBackupName(_path).c_str()) == 0;
  _file = openFile();  // the former one stays in use when there is no memory for it
  _size.set(_file ? sizeOf(_file.get()) : 0);
  _torn = _torn && _size.bytes() > 0;
  // Where the backup name cannot be replaced, not every line should try to roll.
  _rollAbove = renamed ? kMaxFileSize : std::max(kMaxFileSize, _size.bytes() + kRetryRollAfter);
}
