#include "tufnet/CurlFetcher.h"

#include "tuf/Error.h"

int CurlFetcher::fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) {
  const fetch::Result result = transfer_.get(url, maxBytes, sink);
  if (result.tooLarge) {
    throw tuf::Error(tuf::ErrorKind::Size,
                     url + " has more than " + std::to_string(maxBytes) + " bytes");
  }
  if (result.error != CURLE_OK) {
    throw tuf::Error(tuf::ErrorKind::Network, "Cannot get " + url + ": " + result.message);
  }
  return static_cast<int>(result.status);
}
