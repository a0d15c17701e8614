#include "Updater/download/PartialFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <system_error>
#include <vector>

#include "Updater/command/utilsShell.h"
#include "Updater/download/contentRange.h"
#include "ground/osal_io.h"
#include "ground/osal_ownfile.h"
#include "ground/osal_replacefile.h"

namespace fs = boost::filesystem;

namespace {

constexpr std::size_t kWriteBuffer = std::size_t{32} << 10;
constexpr std::size_t kMostNote = std::size_t{16} << 10;

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category()); }

void removeOthers(const fs::path& kept, const fs::path& note) {
  boost::system::error_code failed;
  std::vector<fs::path> others;
  for (fs::directory_iterator entry(kept.parent_path(), failed), end; !failed && entry != end;
       entry.increment(failed)) {
    if (entry->path() != kept && entry->path() != note) others.push_back(entry->path());
  }
  for (const fs::path& other : others) ::unlink(other.c_str());
}

/// Whether one and the same file should lie at both addresses: it is named by its SHA-256.
bool isSameFile(const std::string& url, const std::string& other) {
  constexpr std::size_t kDigits = 64;
  const std::string name = url.substr(url.rfind('/') + 1);
  return name.find_first_not_of("0123456789abcdef") == kDigits && name[kDigits] == '.' &&
         name == other.substr(other.rfind('/') + 1);
}

}  // namespace

std::string openPartialFolder(const std::string& state) {
  const std::string path = state + "/partial";
  return osal_makeOwnFolder(path.c_str()) == 0 && utils::shellWord(path) == path ? path
                                                                                 : std::string();
}

void emptyPartialFolder(const std::string& folder) { removeOthers(folder + "/", {}); }

PartialFile::PartialFile(int fd, std::string path, bool kept, RunningDigests::Kinds digests)
    : fd_(fd), path_(std::move(path)), kept_(kept), digests_(fd, digests) {
  buffer_.reserve(kWriteBuffer);
  if (kept_) removeOthers(path_, notePath());
}

void PartialFile::resume(const std::string& url) {
  url_ = url;
  std::string note;
  ScopedFd fd;
  if (kept_ && osal_openOwnFile(notePath().c_str(), OwnFileUse::Read, 0600, fd) == 0) {
    osal_readAll(fd.get(), note, kMostNote);
  }
  const std::size_t end = note.find('\n');
  if (end == std::string::npos) return restart();
  const std::string from = note.substr(0, end);
  if (from == url) validator_ = note.substr(end + 1, note.find('\n', end + 1) - end - 1);
  const off_t size = ::lseek(fd_, 0, SEEK_END);
  takenUp_ = size > 0 && (from == url ? !validator_.empty() : isSameFile(url, from));
  if (!takenUp_) return restart();
  size_ = static_cast<std::uint64_t>(size);
  digests_.restart();
  digests_.extend(size_);
}

void PartialFile::restart() {
  digests_.restart();
  if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) fail();
  buffer_.clear();
  size_ = 0;
  validator_.clear();
  takenUp_ = false;
}

bool PartialFile::begin(const fetch::Result& head) {
  if (head.status == 206) {
    const auto header = head.headers.find("content-range");
    const auto range =
        header == head.headers.end() ? std::nullopt : parseContentRange(header->second);
    const std::string validator = validatorOf(head.headers);
    const bool same = validator_.empty() || validator.empty() || validator == validator_;
    if (!range || range->first != size_ || !same) {
      restart();
      return false;
    }
    if (!validator_.empty()) return true;
  } else {
    restart();
  }
  validator_ = validatorOf(head.headers);
  note();
  return true;
}

void PartialFile::note() const {
  if (!kept_) return;
  const int error =
      osal_replaceFile(notePath().c_str(), url_ + "\n" + validator_ + "\n", 0600, false);
  if (error != 0) throw std::system_error(error, std::generic_category());
}

void PartialFile::write(std::string_view bytes) {
  buffer_ += bytes;
  size_ += bytes.size();
  if (buffer_.size() >= kWriteBuffer) flush();
}

void PartialFile::flush() {
  if (buffer_.empty()) return;
  if (osal_writeAll(fd_, buffer_) != buffer_.size()) fail();
  buffer_.clear();
  digests_.extend(size_);
}

RunningDigests& PartialFile::digests() {
  digests_.finish();
  return digests_;
}
