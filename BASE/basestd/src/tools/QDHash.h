#pragma once

#include <openssl/evp.h>

#include <array>
#include <memory>

#include "ground/QDMarkers.h"

/// MD5 digests (RFC 1321), computed by OpenSSL: over a stream of updates, a block, a string or a
/// file.
///
/// A digest in binary has 16 bytes; in hexadecimal 32 upper-case digits and a NUL. Output buffers
/// are the caller's. Where OpenSSL is set up without MD5 there is no digest: in binary it is all
/// zeros, in hexadecimal the empty text, which no digest equals. An object is used by one thread at
/// a time.
class QDHashMD5 : private qd_no_duplic {
 public:
  QDHashMD5();
  virtual ~QDHashMD5() = default;

  /// Starts a new digest.
  void reset();

  /// Feeds `len` bytes. Throws when the digest is finished: `reset` comes first.
  void update(const void* data, unsigned int len);

  /// Feeds the decimal digits of `n`, the least significant first, and a NUL. Stored digests depend
  /// on that order.
  void updateWithNum(unsigned long long n);

  /// Feeds the string with its NUL.
  void updateWithStr(const unsigned char* s);

  /// Finish the digest, if it is not finished, and give it out, the same again when called again.
  /// `_ends` gives nothing out.
  void getBin(unsigned char* out16);
  void getHex(unsigned char* out33);
  void _ends();

  static void convertBinToHex(const unsigned char* bin16, unsigned char* out33);

  /// Takes the first 32 characters of `hex`, of either case. Returns false when they are not all
  /// digits or `hex` is shorter; what precedes the first bad pair is then in `bin16`.
  static bool convertHexToBin(const unsigned char* hex, unsigned char* bin16);

  /// The digest of `len` bytes, and the digest folded as by `hashToU64`.
  static void computeHash(const void* data, unsigned int len, unsigned char* out16,
                          unsigned long long* first, unsigned long long* second);

  /// Bytes 0 to 7 and 8 to 15 as big-endian numbers. Null: not wanted.
  static void hashToU64(const unsigned char* bin16, unsigned long long* first,
                        unsigned long long* second);

  /// The digest of a file's content. Reports nothing: what cannot be opened counts as empty, and a
  /// file that cannot be read further ends there.
  static void computeFileHexHash(const unsigned char* path, unsigned char* out33);

  /// The same of what the open file still holds.
  static void computeFileHexHash(int fd, unsigned char* out33);

  /// The digest of the string without its NUL. Returns the number of digits, 32; 0: no digest.
  static int hexHashForStr(const unsigned char* s, unsigned char* out33);

 private:
  struct FreeContext {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
  };

  void _init();

  std::array<unsigned char, 16> digest{};
  std::unique_ptr<EVP_MD_CTX, FreeContext> ctx;
  const EVP_MD* md;
  int state = 0;         // 1: accepts updates; 0: finished, or never opened
  bool refused = false;  // OpenSSL does not compute this digest: it may not go on
};
