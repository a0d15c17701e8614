#pragma once

#include "fetch/Transfer.h"
#include "tuf/Fetcher.h"

/// Reaches repositories over http and https.
class CurlFetcher final : public tuf::Fetcher {
 public:
  explicit CurlFetcher(const fetch::Options& options) : transfer_(options) {}

  int fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) override;

  /// How the last request ended.
  [[nodiscard]] const fetch::Result& last() const { return last_; }

 private:
  fetch::Transfer transfer_;
  fetch::Result last_;
};
