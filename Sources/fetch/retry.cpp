#include "fetch/retry.h"

#include <algorithm>
#include <thread>

namespace fetch {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

std::string reasonOf(const Result& result) {
  return result.error == CURLE_OK ? "the server answers " + std::to_string(result.status)
                                  : result.message;
}

bool isTransient(const Result& result) {
  switch (result.error) {
    case CURLE_OK:
      return result.status == 408 || result.status == 429 || result.status >= 500;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_PARTIAL_FILE:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return true;
    default:
      return false;
  }
}

std::optional<milliseconds> pauseAfter(unsigned int failures,
                                       std::optional<std::chrono::seconds> wanted, double random,
                                       milliseconds left) {
  constexpr milliseconds kFirst{1000};
  constexpr unsigned int kDoublings = 6;  // to about a minute
  const milliseconds longest = kFirst * (1 << std::min(failures - 1, kDoublings));
  const auto part = [random](milliseconds whole) {
    return duration_cast<milliseconds>(duration<double, std::milli>(whole) * random);
  };
  milliseconds pause = longest / 2 + part(longest / 2);
  // Never sooner than the server wants, and not all at the same moment.
  if (wanted) pause = std::max<milliseconds>(pause, *wanted + part(kFirst));
  return pause < left ? std::optional(pause) : std::nullopt;
}

bool mayGoOn(milliseconds taken, milliseconds left, std::uint64_t come, std::uint64_t missing) {
  using Real = duration<double>;
  return taken <= left ||
         static_cast<double>(come) * Real(left) >= static_cast<double>(missing) * Real(taken);
}

bool pauseFor(milliseconds time, const std::function<bool()>& goesOn) {
  constexpr milliseconds kTick{100};
  const auto until = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < until) {
    if (goesOn && !goesOn()) return false;
    std::this_thread::sleep_for(kTick);
  }
  return true;
}

}  // namespace fetch
