#pragma once

#include <string>
#include <string_view>

#include "tuf/canonicalJson.h"
#include "tuf/opensslHandle.h"

namespace tuf {

using KeyPtr = OpenSslPtr<EVP_PKEY>;

/// A public key as metadata lists it. One of an unknown type or with a faulty value may be listed;
/// nothing it signs is valid.
struct Key {
  std::string type;       ///< "ed25519", "ecdsa" (older: "ecdsa-sha2-nistp256"), "rsa"
  std::string scheme;     ///< "ed25519", "ecdsa-sha2-nistp256", "rsassa-pss-sha256"
  std::string publicKey;  ///< 64 hexadecimal digits for Ed25519, otherwise PEM

  bool operator==(const Key&) const = default;
};

/// Throws Error, Malformed, where `keytype`, `scheme` or `keyval.public` is no text. Key types that
/// are unknown here may describe their keys otherwise than by `public`, which then stays empty.
[[nodiscard]] Key keyFromJson(const Json& json);

/// The members that `keyFromJson` reads.
[[nodiscard]] Json toJson(const Key& key);

/// What names the key in metadata that we write: the SHA-256 of its canonical form. Metadata of
/// others may name its keys as it likes.
[[nodiscard]] std::string keyId(const Key& key);

/// The key for OpenSSL, or null where type, scheme and value do not fit each other, an RSA key is
/// shorter than 2048 bits, or an elliptic curve is not P-256.
[[nodiscard]] KeyPtr loadKey(const Key& key);

/// Whether `signature` (bytes, DER for ECDSA) is the key's for `message`.
[[nodiscard]] bool isSignature(EVP_PKEY* key, std::string_view message, std::string_view signature);

}  // namespace tuf
