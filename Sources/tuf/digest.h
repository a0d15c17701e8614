#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tuf/opensslHandle.h"

namespace tuf {

/// Hash values by the algorithm's name ("sha256", "sha512", others unknown to us), in hexadecimal
/// as the metadata states them.
using Hashes = std::map<std::string, std::string>;

/// Lower-case digits of the bytes, and the bytes of digits of either case. Where `digits` are not
/// pairs of digits there is no value.
[[nodiscard]] std::string toHex(std::string_view bytes);
[[nodiscard]] std::optional<std::string> fromHex(std::string_view digits);

/// Lower-case digits of the SHA-256 of the bytes.
[[nodiscard]] std::string sha256Hex(std::string_view bytes);

/// Holds bytes, while they arrive, against the length and the hashes that trusted metadata states.
class FileCheck {
 public:
  /// What is not stated is not checked; of the hashes, those of unknown algorithms. Throws Error,
  /// Mismatch, where hashes are stated, all of unknown algorithms.
  FileCheck(std::optional<std::uint64_t> length, const Hashes& hashes);

  void update(std::string_view bytes);

  /// Call once, after the last byte. Throws Error, Size or Mismatch, with `name` in the text.
  void finish(const std::string& name);

 private:
  struct Running {
    std::string algorithm;
    std::string expected;
    OpenSslPtr<EVP_MD_CTX> context;
  };

  std::optional<std::uint64_t> length_;
  std::uint64_t seen_ = 0;
  std::vector<Running> running_;
};

}  // namespace tuf
