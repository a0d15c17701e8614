#include "tuf/delegation.h"

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <cstdio>

namespace tuf {
namespace {

/// The size of the UTF-8 character that the text, which is not empty, begins with.
std::size_t characterSize(std::string_view text) {
  const auto next =
      std::find_if(text.begin() + 1, text.end(), [](char c) { return (c & 0xC0) != 0x80; });
  return static_cast<std::size_t>(next - text.begin());
}

bool isTrustedWith(const Delegation& delegation, const std::string& path, const std::string& hash) {
  const auto& patterns = delegation.patterns;
  const auto& prefixes = delegation.hashPrefixes;
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const auto& pattern) { return matchesPattern(pattern, path); }) ||
         std::any_of(prefixes.begin(), prefixes.end(), [&](const auto& prefix) {
           return hash.starts_with(boost::algorithm::to_lower_copy(prefix));
         });
}

/// The role whose number is the hash's first bits, written with as many digits as the last one's.
Delegation binFor(const SuccinctRoles& roles, const std::string& hash) {
  const unsigned long number = std::stoul(hash.substr(0, 8), nullptr, 16) >> (32 - roles.bits);
  char digits[17];
  std::snprintf(digits, sizeof digits, "%0*lx", static_cast<int>((roles.bits + 3) / 4), number);
  return {roles.namePrefix + '-' + digits, roles.keys, {}, {}, false};
}

}  // namespace

bool matchesPattern(std::string_view pattern, std::string_view path) {
  std::string_view patternAtStar;  // behind the last star, and how far that one reaches so far
  std::string_view pathAtStar;
  bool star = false;
  while (!path.empty()) {
    if (pattern.starts_with('*')) {
      pattern.remove_prefix(1);
      patternAtStar = pattern;
      pathAtStar = path;
      star = true;
    } else if (pattern.starts_with('?') && path.front() != '/') {
      pattern.remove_prefix(1);
      path.remove_prefix(characterSize(path));
    } else if (!pattern.empty() && pattern.front() != '?' && pattern.front() == path.front()) {
      pattern.remove_prefix(1);
      path.remove_prefix(1);
    } else if (star && pathAtStar.front() != '/') {
      pathAtStar.remove_prefix(characterSize(pathAtStar));
      pattern = patternAtStar;
      path = pathAtStar;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*') == std::string_view::npos;
}

std::vector<Delegation> delegationsFor(const Targets& role, const std::string& path) {
  const std::string hash = sha256Hex(path);
  std::vector<Delegation> matching;
  if (role.succinct) matching.push_back(binFor(*role.succinct, hash));
  std::copy_if(role.delegations.begin(), role.delegations.end(), std::back_inserter(matching),
               [&](const Delegation& delegation) { return isTrustedWith(delegation, path, hash); });
  return matching;
}

}  // namespace tuf
