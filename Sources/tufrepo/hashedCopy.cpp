#include "tufrepo/hashedCopy.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <future>
#include <initializer_list>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "ground/osal_io.h"
#include "ground/osal_progress.h"
#include "tuf/digest.h"

namespace tufrepo {
namespace {

constexpr std::size_t kPiece = std::size_t{256} << 10;

class Digest {
 public:
  explicit Digest(const EVP_MD* algorithm) : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), algorithm, nullptr) != 1) {
      throw std::bad_alloc();
    }
  }

  void update(std::string_view bytes) const {
    EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
  }

  [[nodiscard]] std::string hex() const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int size = 0;
    EVP_DigestFinal_ex(context_.get(), value.data(), &size);
    return tuf::toHex({reinterpret_cast<const char*>(value.data()), size});
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

std::string_view readPiece(int fd, std::vector<char>& buffer) {
  std::size_t size = 0;
  while (size < buffer.size()) {
    const ssize_t count = osal_readSome(fd, buffer.data() + size, buffer.size() - size);
    if (count < 0) throw std::system_error(errno, std::generic_category(), "read");
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  return {buffer.data(), size};
}

void writePiece(int fd, std::string_view piece, std::uint64_t at) {
  if (osal_writeAll(fd, piece) != piece.size()) {
    throw std::system_error(errno, std::generic_category(), "write");
  }
#if defined(__linux__)
  // The disk begins now, not when the copy is waited for.
  ::sync_file_range(fd, static_cast<off_t>(at), static_cast<off_t>(piece.size()),
                    SYNC_FILE_RANGE_WRITE);
#else
  (void)at;
#endif
}

/// Reads the copy while it is written, and to its end.
void follow(int fd, const osal_progress& written, std::initializer_list<const Digest*> digests) {
  std::vector<char> piece(kPiece);
  std::uint64_t done = 0;
  for (std::uint64_t size = 0; (size = written.waitBeyond(done)) > done;) {
    const ssize_t count = ::pread(fd, piece.data(), std::min<std::uint64_t>(size - done, kPiece),
                                  static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw std::system_error(errno, std::generic_category(), "read");
    for (const Digest* const digest : digests) {
      digest->update({piece.data(), static_cast<std::size_t>(count)});
    }
    done += static_cast<std::uint64_t>(count);
  }
}

void copy(int from, int to, osal_progress& written, const Digest& digest) {
  std::vector<char> buffer(kPiece);
  std::uint64_t length = 0;
  for (;;) {
    const std::string_view piece = readPiece(from, buffer);
    if (piece.empty()) return;
    writePiece(to, piece, length);
    written.reach(length += piece.size());
    digest.update(piece);
  }
}

/// Ends a progress, whatever happens.
class Ending {
 public:
  explicit Ending(osal_progress& progress) : progress_(progress) {}
  Ending(const Ending&) = delete;
  Ending& operator=(const Ending&) = delete;
  ~Ending() { progress_.end(); }

 private:
  osal_progress& progress_;
};

}  // namespace

CopiedFile copyHashed(int from, int to) {
  const Digest sha256(EVP_sha256());
  const Digest sha512(EVP_sha512());
  const Digest md5(EVP_md5());
  osal_progress written;
  // Two threads with about as much to do, so that two processors are enough.
  std::future<void> follower = std::async(std::launch::async, [&] {
    follow(to, written, {&sha512, &sha256});
  });
  {
    const Ending ending(written);
    copy(from, to, written, md5);
  }
  follower.get();
  return {written.reached(), sha256.hex(), sha512.hex(), md5.hex()};
}

}  // namespace tufrepo
