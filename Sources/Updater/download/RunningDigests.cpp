#include "Updater/download/RunningDigests.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "ground/osal_hex.h"

namespace {

constexpr std::size_t kBlock = std::size_t{32} << 10;

}  // namespace

RunningDigests::RunningDigests(int fd, Kinds kinds)
    : fd_(fd),
      md5_(kinds.md5 ? EVP_md5() : nullptr),
      sha256_(kinds.sha256 ? EVP_sha256() : nullptr),
      block_(kBlock) {}

RunningDigests::~RunningDigests() { stop(false); }

void RunningDigests::restart() {
  stop(false);
  md5_.reset();
  sha256_.reset();
  available_ = 0;
  done_ = 0;
}

void RunningDigests::extend(std::uint64_t size) {
  {
    const std::lock_guard lock(mutex_);
    available_ = size;
  }
  changed_.notify_one();
  if (!worker_.valid()) start();
}

void RunningDigests::finish() {
  stop(true);
  readTo(available_);  // where there was no worker
}

void RunningDigests::start() try {
  ends_ = false;
  worker_ = std::async(std::launch::async, [this] { run(); });
} catch (const std::system_error&) {
  // Without another thread the digests are computed in the end.
}

/// `whole`: what is there by now is read before.
void RunningDigests::stop(bool whole) {
  if (!worker_.valid()) return;
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
    if (!whole) available_ = 0;
  }
  changed_.notify_one();
  worker_.get();
}

void RunningDigests::run() {
  for (;;) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ends_ || available_ > done_; });
    const std::uint64_t size = std::min(available_, done_ + block_.size());
    if (size <= done_) return;
    lock.unlock();
    readTo(size);
  }
}

void RunningDigests::readTo(std::uint64_t size) {
  while (done_ < size) {
    const std::size_t wanted = std::min<std::uint64_t>(size - done_, block_.size());
    const ssize_t count = ::pread(fd_, block_.data(), wanted, static_cast<off_t>(done_));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      md5_.fail();
      sha256_.fail();
      done_ = size;
      return;
    }
    const std::string_view bytes(block_.data(), static_cast<std::size_t>(count));
    md5_.update(bytes);
    sha256_.update(bytes);
    done_ += bytes.size();
  }
}

void RunningDigests::Digest::reset() {
  runs_ = kind_ != nullptr && context_ != nullptr &&
          EVP_DigestInit_ex(context_.get(), kind_, nullptr) == 1;
}

void RunningDigests::Digest::update(std::string_view bytes) {
  runs_ = runs_ && EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1;
}

std::string RunningDigests::Digest::take() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int size = 0;
  if (!runs_ || EVP_DigestFinal_ex(context_.get(), bytes.data(), &size) != 1) return {};
  runs_ = false;
  std::string digits(std::size_t{2} * size, '0');
  osal_writeHex(bytes.data(), size, true, digits.data());
  return digits;
}
