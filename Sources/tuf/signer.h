#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tuf/canonicalJson.h"
#include "tuf/key.h"

namespace tuf {

/// A key that signs. Copies are the same key.
class PrivateKey {
 public:
  /// New keys; ECDSA is on the curve P-256. Throw Error, Storage, where the system has no
  /// randomness.
  [[nodiscard]] static PrivateKey generateEd25519();
  [[nodiscard]] static PrivateKey generateEcdsa();

  /// Takes over an Ed25519, a P-256 or an RSA key of at least 2048 bits. Throws Error, Malformed,
  /// for others.
  explicit PrivateKey(KeyPtr key);

  [[nodiscard]] const Key& publicKey() const { return public_; }
  [[nodiscard]] const std::string& id() const { return id_; }
  [[nodiscard]] EVP_PKEY* get() const { return key_.get(); }

  /// The signature, bytes; DER for ECDSA.
  [[nodiscard]] std::string sign(std::string_view message) const;

 private:
  std::shared_ptr<EVP_PKEY> key_;
  Key public_;
  std::string id_;
};

/// A metadata file of this content (the member `signed`), signed by each of the keys.
[[nodiscard]] std::string sign(const Json& content, const std::vector<PrivateKey>& keys);

}  // namespace tuf
