#include "tools/QDHash.h"

#include <fcntl.h>

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <cstddef>
#include <vector>

#include "ground/osal_bytes.h"
#include "ground/osal_io.h"
#include "ground/osal_scoped.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

constexpr unsigned int kDigestSize = 16;
constexpr unsigned int kHexSize = 2 * kDigestSize;

/// Large enough that the calls cost nothing, small enough to be in the cache when it is hashed.
constexpr std::size_t kReadSize = std::size_t{128} * 1024;

/// Whether OpenSSL found the memory to set itself up; else it does not refuse a digest but crashes.
bool libraryIsUp() {
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
  return OSSL_LIB_CTX_get0_global_default() != nullptr;
#else
  return true;
#endif
}

}  // namespace

QDHashMD5::QDHashMD5() : ctx(EVP_MD_CTX_new()), md(EVP_get_digestbyname("MD5")) { _init(); }

void QDHashMD5::_init() {
  state = 0;
  refused = md == nullptr;
  if (refused) return;
  refused = ctx == nullptr || !libraryIsUp() || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1;
  state = 1;
}

void QDHashMD5::reset() { _init(); }

void QDHashMD5::update(const void* data, unsigned int len) {
  if (state != 1) QD_THROW_ERROR("Cannot update, bad state");
  if (!refused) refused = EVP_DigestUpdate(ctx.get(), data, len) != 1;
}

void QDHashMD5::updateWithNum(unsigned long long n) {
  std::array<char, 21> text;
  unsigned int length = 0;
  do {
    text[length++] = static_cast<char>('0' + n % 10);
    n /= 10;
  } while (n != 0);
  text[length++] = '\0';
  update(text.data(), length);
}

void QDHashMD5::updateWithStr(const unsigned char* s) { update(s, QDSys::strlen(s) + 1); }

void QDHashMD5::_ends() {
  if (state != 1) return;
  digest.fill(0);
  if (!refused) refused = EVP_DigestFinal_ex(ctx.get(), digest.data(), nullptr) != 1;
  state = 0;
}

void QDHashMD5::getBin(unsigned char* out16) {
  _ends();
  QDSys::memcpy(out16, digest.data(), kDigestSize);
}

void QDHashMD5::getHex(unsigned char* out33) {
  _ends();
  if (refused) {
    std::fill_n(out33, kHexSize + 1, '\0');
  } else {
    convertBinToHex(digest.data(), out33);
  }
}

void QDHashMD5::convertBinToHex(const unsigned char* bin16, unsigned char* out33) {
  QDSys::convertBinToHex(bin16, kDigestSize, out33, kHexSize, false);
  out33[kHexSize] = 0;
}

bool QDHashMD5::convertHexToBin(const unsigned char* hex, unsigned char* bin16) {
  return QDSys::convertHexToBin(hex, kHexSize, bin16, kDigestSize) == static_cast<int>(kDigestSize);
}

void QDHashMD5::computeHash(const void* data, unsigned int len, unsigned char* out16,
                            unsigned long long* first, unsigned long long* second) {
  QDHashMD5 hash;
  hash.update(data, len);
  hash.getBin(out16);
  hashToU64(out16, first, second);
}

void QDHashMD5::hashToU64(const unsigned char* bin16, unsigned long long* first,
                          unsigned long long* second) {
  if (first != nullptr) *first = boost::endian::load_big_u64(bin16);
  if (second != nullptr) *second = boost::endian::load_big_u64(bin16 + 8);
}

void QDHashMD5::computeFileHexHash(const unsigned char* path, unsigned char* out33) {
  const ScopedFd file(::open(osal_chars(path), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  computeFileHexHash(file.get(), out33);
}

void QDHashMD5::computeFileHexHash(int fd, unsigned char* out33) {
  QDHashMD5 hash;
  std::vector<unsigned char> block(kReadSize);
  ssize_t count = 0;
  while ((count = osal_readSome(fd, block.data(), block.size())) > 0) {
    hash.update(block.data(), static_cast<unsigned int>(count));
  }
  hash.getHex(out33);
}

int QDHashMD5::hexHashForStr(const unsigned char* s, unsigned char* out33) {
  QDHashMD5 hash;
  hash.update(s, QDSys::strlen(s));
  hash.getHex(out33);
  return hash.refused ? 0 : static_cast<int>(kHexSize);
}
