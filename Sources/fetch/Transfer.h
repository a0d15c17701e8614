#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
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

  bool verify = true;      ///< the server's certificate and its name
  std::string ca;          ///< authorities' certificates, a PEM file; empty: the system's
  std::string clientCert;  ///< PEM files for servers that ask for them; empty: none
  std::string clientKey;
  std::optional<std::string> proxy;    ///< as libcurl's; unset: the environment's; empty: none
  std::optional<std::string> noProxy;  ///< as libcurl's; unset: the environment's
  std::uint64_t rate = 0;              ///< the most bytes a second; 0: no limit
  std::string userAgent;
  long receiveBuffer = 0;  ///< bytes; 0: libcurl's own choice

  /// Called now and then during every request, also while nothing comes, with the bytes of the body
  /// that came so far and those expected, 0 where nobody knows. False ends the request. It must not
  /// throw.
  std::function<bool(std::uint64_t bytes, std::uint64_t expected)> watcher;
};

/// Names in lower case, both sides trimmed; the last value of a name.
using Headers = std::map<std::string, std::string>;

/// One question to a server.
struct Request {
  std::string url{};
  bool headOnly = false;
  std::uint64_t from = 0;  ///< the first byte that is wanted; above 0 a part is asked for
  std::string ifRange{};   ///< the part is wanted only of the file with this validator
  std::uint64_t maxBytes = std::numeric_limits<std::uint64_t>::max();  ///< of the body
};

/// How a request ended.
struct Result {
  long status = 0;            ///< of the last response; 0 where none came
  CURLcode error = CURLE_OK;  ///< anything else: there is no complete body
  std::string message{};      ///< a plain sentence about `error`
  bool tooLarge = false;      ///< the body has more bytes than allowed; `error` is set, too
  std::uint64_t bytes = 0;    ///< that went to the sink
  Headers headers{};          ///< of the last response
  std::optional<std::chrono::seconds> retryAfter{};  ///< when the server wants to be asked again
};

/// Gets files from servers of http and https: one connection that is kept for the next request.
/// Logs nothing. One thread at a time.
class Transfer {
 public:
  using Sink = std::function<void(std::string_view bytes)>;

  explicit Transfer(const Options& options = {});

  /// Asks for `url` as it stands; dots and escapes stay. Redirects are followed, from a server that
  /// was verified to https only. The body goes to
  /// `sink` where the status is 200 and is dropped otherwise. A body with more than `maxBytes` ends
  /// the request; the sink has got no more than those. What the sink throws ends the request and
  /// reaches the caller.
  Result get(const std::string& url, std::uint64_t maxBytes, const Sink& sink);

  /// Asked with status and headers before the first byte of a body goes to the sink; false ends the
  /// request.
  using Begin = std::function<bool(const Result& head)>;

  /// The same with all that a request can have. Where a part is asked for, the body of a status 206
  /// goes to the sink as well. `begin` may be empty.
  Result perform(const Request& request, const Begin& begin, const Sink& sink);

 private:
  struct FreeHandle {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
  };

  void applyOptions();
  [[nodiscard]] std::chrono::milliseconds timeLeft() const;

  Options options_;
  std::unique_ptr<CURL, FreeHandle> handle_;
};

}  // namespace fetch
