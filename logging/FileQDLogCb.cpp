#include "logging/FileQDLogCb.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>

#include "ground/osal_io.h"
#include "ground/osal_localtime.h"
#include "ground/osal_ownfile.h"

namespace {

constexpr unsigned long long kMaxFileSize = 0x500000;
constexpr unsigned long long kRetryRollAfter = 0x100000;
constexpr std::size_t kShortNameLength = 32;
constexpr std::size_t kExtensionLength = 4;

/// Size of the file; 0 for what has none, such as a terminal.
unsigned long long sizeOf(int fd) {
  const off_t end = ::lseek(fd, 0, SEEK_END);
  return end < 0 ? 0 : static_cast<unsigned long long>(end);
}

}  // namespace

const char* qdLogShortFileName(const char* file) {
  const char* shortName = nullptr;
  const char* end = file;
  for (; *end != '\0'; ++end) {
    if (*end == '/' || *end == '\\') shortName = end + 1;
  }
  if (shortName != nullptr) return shortName;
  const auto length = static_cast<std::size_t>(end - file);
  return length > kShortNameLength ? end - kShortNameLength : file;
}

std::string qdLogLine(const char* stamp, const char* module, const char* level, const char* file,
                      int line, const char* message) {
  std::string text;
  text.reserve(128 + std::strlen(message));
  text.append("[").append(stamp).append("] - ").append(module).append(":").append(level);
  text.append(" - [ (").append(qdLogShortFileName(file)).append(":").append(std::to_string(line));
  text.append(")] - ").append(message);
  return text;
}

const std::string& QDLogClock::now() {
  const std::time_t second = std::time(nullptr);
  const char* const zone = std::getenv("TZ");
  const bool sameZone = zone != nullptr ? _zone == zone : !_zone.has_value();
  if (second == _second && sameZone) return _text;
  char buffer[100];
  _text.assign(buffer, osal_formatLocalTime(second, "%Y-%m-%d %H:%M:%S", buffer, sizeof buffer));
  _zone = zone != nullptr ? std::optional<std::string>(zone) : std::nullopt;
  _second = second;
  return _text;
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
  const std::string text =
      '\n' + qdLogLine(_clock.now().c_str(), module, level, file, line, message) + '\n';
  const std::string_view whole = std::string_view(text).substr(1);
  if (_file && sizeOf(_file.get()) + whole.size() - 1 > _rollAbove) rollLogFiles();
  // After a line that a full disk cut off, the next one still starts at the left margin.
  if (_file) writeToFile(_torn ? text : whole);
  if (_echo) {
    std::fwrite(whole.data(), 1, whole.size(), stdout);
    std::fflush(stdout);
  }
} catch (const std::bad_alloc&) {
  QDLog::reportMissed(qdLogShortFileName(file), line);
}

void FileQDLogCb::writeToFile(std::string_view text) {
  const std::size_t written = osal_writeAll(_file.get(), text);
  if (written > 0) _torn = written < text.size();
}

void FileQDLogCb::rollLogFiles() {
  const bool renamed = std::rename(_path.c_str(), qdLogBackupName(_path).c_str()) == 0;
  _file = openFile();  // without memory for it the former one stays in use
  const unsigned long long size = _file ? sizeOf(_file.get()) : 0;
  _torn = _torn && size > 0;
  // A backup name that is taken for good must not cost a roll with every line.
  _rollAbove = renamed ? kMaxFileSize : std::max(kMaxFileSize, size + kRetryRollAfter);
}
