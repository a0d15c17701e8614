#include "tufrepo/hashedCopy.h"

#include <fcntl.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <future>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "ground/osal_io.h"
#include "tuf/digest.h"

namespace tufrepo {
namespace {

/// Large enough that handing a piece to the threads costs nothing beside its digests.
constexpr std::size_t kPiece = std::size_t{4} << 20;

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

}  // namespace

CopiedFile copyHashed(int from, int to) {
  const Digest sha256(EVP_sha256());
  const Digest sha512(EVP_sha512());
  const Digest md5(EVP_md5());
  const std::array<const Digest*, 3> kinds = {&sha512, &md5, &sha256};
  std::vector<char> current(kPiece);
  std::vector<char> following(kPiece);
  CopiedFile file;
  std::string_view piece = readPiece(from, current);
  while (!piece.empty()) {
    // The futures wait in their destructors, so the piece outlives its readers.
    std::array<std::future<void>, 3> digests;
    for (std::size_t i = 0; i < digests.size(); ++i) {
      digests[i] = std::async(std::launch::async, [&, i] { kinds[i]->update(piece); });
    }
    writePiece(to, piece, file.length);
    file.length += piece.size();
    const std::string_view next = readPiece(from, following);
    for (const std::future<void>& digest : digests) digest.wait();
    piece = next;
    std::swap(current, following);
  }
  file.sha256 = sha256.hex();
  file.sha512 = sha512.hex();
  file.md5 = md5.hex();
  return file;
}

}  // namespace tufrepo
