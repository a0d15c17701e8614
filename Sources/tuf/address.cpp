#include "tuf/address.h"

#include <boost/algorithm/string/predicate.hpp>
#include <cstdint>

#include "tuf/digest.h"

namespace tuf {
namespace {

std::string escaped(char c) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<std::uint8_t>(c);
  return {'%', kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string encode(std::string_view text, std::string_view alsoPlain) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string encoded;
  for (const char c : text) {
    const bool plain =
        kPlain.find(c) != std::string_view::npos || alsoPlain.find(c) != std::string_view::npos;
    encoded += plain ? std::string(1, c) : escaped(c);
  }
  return encoded;
}

/// File systems take names of 255 bytes. What is cut off is told apart by the digest; no encoded
/// name holds two "%" side by side.
std::string shortened(std::string name) {
  constexpr std::size_t kMost = 240;
  constexpr std::size_t kDigest = 64;
  if (name.size() <= kMost) return name;
  return name.substr(0, kMost - kDigest - 2) + "%%" + sha256Hex(name);
}

}  // namespace

std::string percentEncode(std::string_view text) { return encode(text, ""); }

std::string encodePath(std::string_view path) { return encode(path, "/"); }

std::string roleFile(std::string_view role) {
  // On a file system that ignores case, another role must not become one of the four.
  for (const char* const top : {"root", "timestamp", "snapshot", "targets"}) {
    if (role != top && boost::algorithm::iequals(role, top)) {
      return escaped(role.front()) + percentEncode(role.substr(1)) + ".json";
    }
  }
  return shortened(percentEncode(role)) + ".json";
}

std::string targetFile(std::string_view path) {
  // "." and ".." are folders, and hidden names may be those of unfinished files.
  if (path.starts_with('.')) return shortened(escaped('.') + percentEncode(path.substr(1)));
  return shortened(percentEncode(path));
}

}  // namespace tuf
