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

RunningDigests::~RunningDigests() {
  written_.abandon();
  stop();
}

void RunningDigests::restart() {
  written_.abandon();
  stop();
  written_.reset();
  md5_.reset();
  sha256_.reset();
  done_ = 0;
}

void RunningDigests::extend(std::uint64_t size) try {
  written_.reach(size);
  if (!worker_.valid()) worker_ = std::async(std::launch::async, [this] { run(); });
} catch (const std::system_error&) {
  // Without another thread they are computed in the end.
}

void RunningDigests::finish() {
  written_.end();
  stop();
  readTo(written_.reached());  // what no worker has read
}

void RunningDigests::stop() {
  if (worker_.valid()) worker_.get();
}

void RunningDigests::run() {
  for (std::uint64_t size = 0; (size = written_.waitBeyond(done_)) > done_;) {
    readTo(std::min(size, done_ + block_.size()));
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
