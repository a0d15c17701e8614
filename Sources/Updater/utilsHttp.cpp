#include <algorithm>
#include <string>

#include "Updater/HttpClient.h"
#include "tools/QDSys.h"

namespace utils {

int getContentLength(HttpClient::Headers& headers, unsigned long long& size) {
  auto header = headers.find("content-length");
  if (header == headers.end()) header = headers.find("Content-Length");
  if (header == headers.end()) return -1;
  size = std::stoull(header->second);
  return 0;
}

std::string decodeURL(const std::string& hex) {
  constexpr unsigned int kMaxDigits = 8192;
  unsigned char text[4097] = {};
  const auto* const digits = reinterpret_cast<const unsigned char*>(hex.c_str());
  const unsigned int count = std::min(QDSys::strlen(digits), kMaxDigits);
  QDSys::convertHexStrNullToBin(digits, count, text, sizeof text - 1);
  return reinterpret_cast<const char*>(text);
}

}  // namespace utils
