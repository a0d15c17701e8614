#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tuf {

/// Receives a body piece by piece. An exception from it ends the transfer and reaches the caller.
using Sink = std::function<void(std::string_view bytes)>;

/// How the client reaches the repository.
class Fetcher {
 public:
  Fetcher() = default;
  Fetcher(const Fetcher&) = delete;
  Fetcher& operator=(const Fetcher&) = delete;
  virtual ~Fetcher() = default;

  /// Asks for `url` once, as it stands, and hands the body of an answer of status 200 to `sink`.
  /// Returns the status of the answer. Throws Error: Network where there is no complete answer
  /// within the fetcher's time, Size where the body has more than `maxBytes`, of which `sink` gets
  /// no more than those.
  virtual int fetch(const std::string& url, std::uint64_t maxBytes, const Sink& sink) = 0;
};

}  // namespace tuf
