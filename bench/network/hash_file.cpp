// hash_file FILE: reads it once, through SHA-256 and SHA-512.

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <vector>

int main(int argc, char** argv) {
  const int fd = argc == 2 ? ::open(argv[1], O_RDONLY) : -1;
  if (fd < 0) return 2;
  const std::array<const EVP_MD*, 2> kinds = {EVP_sha256(), EVP_sha512()};
  std::array<EVP_MD_CTX*, 2> digests = {EVP_MD_CTX_new(), EVP_MD_CTX_new()};
  for (std::size_t i = 0; i < kinds.size(); ++i) EVP_DigestInit_ex(digests[i], kinds[i], nullptr);
  std::vector<unsigned char> block(65536);
  ssize_t count = 0;
  while ((count = ::read(fd, block.data(), block.size())) > 0) {
    for (EVP_MD_CTX* const digest : digests) {
      EVP_DigestUpdate(digest, block.data(), static_cast<std::size_t>(count));
    }
  }
  for (EVP_MD_CTX* const digest : digests) {
    if (EVP_DigestFinal_ex(digest, block.data(), nullptr) != 1) return 1;
  }
  return count == 0 ? 0 : 1;
}
