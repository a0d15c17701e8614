#include "fetch/address.h"

#include <boost/algorithm/string/replace.hpp>
#include <cstddef>

std::string withoutPassword(const std::string& address) {
  const std::size_t scheme = address.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t end = address.find_first_of("/?#", begin);
  const std::size_t at = address.substr(0, end).rfind('@');
  if (at == std::string::npos || at < begin) return address;
  return address.substr(0, begin) + address.substr(at + 1);
}

std::string withoutPassword(const std::string& text, const std::string& address) {
  if (address.empty()) return text;
  return boost::replace_all_copy(text, address, withoutPassword(address));
}
