#include "tufnet/CurlFetcher.h"

#include "fetch/address.h"
#include "tuf/Error.h"

int CurlFetcher::fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) {
  last_ = {};
  last_ = transfer_.get(url, maxBytes, sink);
  if (last_.tooLarge) {
    throw tuf::Error(tuf::ErrorKind::Size, withoutPassword(url) + " has more than " +
                                               std::to_string(maxBytes) + " bytes");
  }
  if (last_.error != CURLE_OK) {
    throw tuf::Error(tuf::ErrorKind::Network,
                     "Cannot get " + withoutPassword(url) + ": " + last_.message);
  }
  return static_cast<int>(last_.status);
}
