#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace fetch {

/// What holds for every request of a Transfer.
struct Options {
  std::chrono::seconds connectTimeout{60};

  /// A request that brings fewer bytes a second than this for that long has failed.
  long slowBytes = 1;
  std::chrono::seconds slowTime{60};

  /// What every request has at most, and when the last one must have ended.
  std::optional<std::chrono::seconds> timeout;
  std::optional<std::chrono::steady_clock::time_point> deadline;

  long maxRedirects = 10;
};

/// How a request ended.
struct Result {
  long status = 0;            ///< of the last response; 0 where none came
  CURLcode error = CURLE_OK;  ///< anything else: there is no complete body
  std::string message;        ///< a plain sentence about `error`
  bool tooLarge = false;      ///< the body has more bytes than allowed; `error` is set, too
  std::uint64_t bytes = 0;    ///< that went to the sink
};

/// Gets files from servers of http and https: one connection that is kept for the next request.
/// Logs nothing. Certificates and the environment's proxies are libcurl's matter. One thread at a
/// time.
class Transfer {
 public:
  using Sink = std::function<void(std::string_view bytes)>;

  explicit Transfer(const Options& options = {});

  /// Asks for `url` as it stands; dots and escapes stay. Redirects are followed. The body goes to
  /// `sink` where the status is 200 and is dropped otherwise. A body with more than `maxBytes` ends
  /// the request; the sink has got no more than those. What the sink throws ends the request and
  /// reaches the caller.
  Result get(const std::string& url, std::uint64_t maxBytes, const Sink& sink);

 private:
  struct FreeHandle {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
  };

  [[nodiscard]] std::chrono::milliseconds timeLeft() const;

  Options options_;
  std::unique_ptr<CURL, FreeHandle> handle_;
};

}  // namespace fetch
