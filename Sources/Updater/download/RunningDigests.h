#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

/// The MD5 digest of bytes that come in pieces, and the SHA-256 one, which costs half as much
/// again, where it is wanted.
class RunningDigests {
 public:
  explicit RunningDigests(bool withSha256);

  void reset();
  void update(std::string_view bytes);

  /// End the digest: lower-case hexadecimal characters; empty where OpenSSL refuses it, or it was
  /// not wanted, or when called again before `reset`.
  std::string md5();
  std::string sha256();

 private:
  class Digest {
   public:
    /// `kind`: null for none.
    explicit Digest(const EVP_MD* kind) : kind_(kind), context_(EVP_MD_CTX_new()) { reset(); }
    void reset();
    void update(std::string_view bytes);
    std::string finish();

   private:
    struct Free {
      void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    const EVP_MD* kind_;
    std::unique_ptr<EVP_MD_CTX, Free> context_;
    bool runs_ = false;
  };

  Digest md5_;
  Digest sha256_;
};
