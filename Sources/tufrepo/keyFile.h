#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tuf/signer.h"

// Keys as files: PKCS#8 PEM for private ones, SubjectPublicKeyInfo PEM for public ones. What fails
// throws std::runtime_error with a plain sentence.

namespace tufrepo {

/// Asked for the passphrase of the encrypted key in `file`, only where there is one.
using AskPassphrase = std::function<std::string(const std::string& file)>;

/// The private key; encrypted (scrypt, AES-256) unless the passphrase is empty.
[[nodiscard]] std::string privatePem(const tuf::PrivateKey& key, const std::string& passphrase);
[[nodiscard]] std::string publicPem(const tuf::PrivateKey& key);

/// Reads the private key in `file`, which nobody but its owner may be able to read.
[[nodiscard]] tuf::PrivateKey readPrivateKey(const std::string& file, const AskPassphrase& ask);
[[nodiscard]] tuf::Key readPublicKey(const std::string& file);

/// Whether the text holds a private key.
[[nodiscard]] bool hasPrivateKey(std::string_view text);

}  // namespace tufrepo
