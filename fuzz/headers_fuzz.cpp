// Response headers, one line after the other, and the length read from them.

#include <algorithm>
#include <exception>

#include "FuzzTarget.h"
#include "Updater/net/HttpClient.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text = fuzzText(data, size);
  HttpClient::Headers headers;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    fuzzExpect(HttpClient::readHeadersCb(text.data() + begin, 1, end - begin, &headers) ==
               end - begin);
    begin = end;
  }
  fuzzExpect(headers.size() <= 1000);
  for (const auto& [name, value] : headers) {
    fuzzExpect(name.find(':') == std::string::npos && !name.starts_with(' ') &&
               !value.ends_with('\r'));
  }
  try {
    unsigned long long length = 0;
    utils::getContentLength(headers, length);
  } catch (const std::exception&) {
    // A length that is no number ends the update with this.
  }
  return 0;
}
