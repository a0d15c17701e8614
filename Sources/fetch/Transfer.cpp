#include "fetch/Transfer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <new>

namespace fetch {
namespace {

using std::chrono::milliseconds;

/// So much of an error's body is received, for the sake of the connection.
constexpr std::uint64_t kMaxDropped = std::uint64_t{64} << 10;

/// One body on its way.
struct Body {
  CURL* handle;
  const Transfer::Sink& sink;
  std::uint64_t maxBytes;
  Result result{};
  std::uint64_t dropped = 0;
  std::exception_ptr thrown{};

  /// False ends the transfer.
  bool take(std::string_view bytes) {
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &result.status);
    if (result.status != 200) return (dropped += bytes.size()) <= kMaxDropped;
    result.tooLarge = bytes.size() > maxBytes - result.bytes;
    if (result.tooLarge) return false;
    sink(bytes);
    result.bytes += bytes.size();
    return true;
  }
};

/// No exception may pass through libcurl.
std::size_t receive(char* data, std::size_t, std::size_t size, void* user) noexcept {
  Body& body = *static_cast<Body*>(user);
  try {
    if (body.take({data, size})) return size;
  } catch (...) {
    body.thrown = std::current_exception();
  }
  return CURL_WRITEFUNC_ERROR;
}

long clamped(milliseconds time) {
  return static_cast<long>(std::clamp<milliseconds::rep>(time.count(), 1, 86'400'000));
}

}  // namespace

Transfer::Transfer(const Options& options) : options_(options), handle_(curl_easy_init()) {
  if (!handle_) throw std::bad_alloc();
  CURL* const handle = handle_.get();
#if LIBCURL_VERSION_NUM >= 0x075500
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
#else
  constexpr long kProtocols = CURLPROTO_HTTP | CURLPROTO_HTTPS;
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS, kProtocols);
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS, kProtocols);
#endif
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle, CURLOPT_MAXREDIRS, options_.maxRedirects);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, options_.slowBytes);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options_.slowTime.count()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &receive);
}

Result Transfer::get(const std::string& url, std::uint64_t maxBytes, const Sink& sink) {
  CURL* const handle = handle_.get();
  Body body{handle, sink, maxBytes};
  std::array<char, CURL_ERROR_SIZE> message{};
  const milliseconds left = timeLeft();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, message.data());
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, clamped(left));
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                   clamped(std::min<milliseconds>(left, options_.connectTimeout)));
  Result& result = body.result;
  result.error = left.count() > 0 ? curl_easy_perform(handle) : CURLE_OPERATION_TIMEDOUT;
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
  if (body.thrown) std::rethrow_exception(body.thrown);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &result.status);
  if (body.dropped > kMaxDropped) result.error = CURLE_OK;
  if (result.error != CURLE_OK) {
    result.message = message[0] != 0 ? message.data() : curl_easy_strerror(result.error);
  }
  return result;
}

milliseconds Transfer::timeLeft() const {
  using std::chrono::steady_clock;
  milliseconds left = options_.timeout.value_or(std::chrono::hours(24));
  if (options_.deadline) {
    left = std::min(
        left, std::chrono::duration_cast<milliseconds>(*options_.deadline - steady_clock::now()));
  }
  return left;
}

}  // namespace fetch
