#include "tuf/address.h"

#include <boost/algorithm/string/predicate.hpp>
#include <cstdint>

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
  return percentEncode(role) + ".json";
}

std::string targetFile(std::string_view path) {
  // "." and ".." are folders, and hidden names may be those of unfinished files.
  if (path.starts_with('.')) return escaped('.') + percentEncode(path.substr(1));
  return percentEncode(path);
}

}  // namespace tuf
