#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>

namespace tuf {

struct FreeHandle {
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }
  void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
  void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};

/// An object of OpenSSL's, which it frees; null where OpenSSL could not make it.
template <typename T>
using OpenSslPtr = std::unique_ptr<T, FreeHandle>;

}  // namespace tuf
