#include "fetch/Transfer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace fetch {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// So much of an error's body is received, for the sake of the connection.
constexpr std::uint64_t kMaxDropped = std::uint64_t{64} << 10;
constexpr std::size_t kMaxHeaderBytes = std::size_t{256} << 10;

std::string trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlank);
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(kBlank) + 1 - begin));
}

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

/// One answer on its way.
struct Answer {
  CURL* handle;
  const Request& request;
  const Transfer::Begin& begin;
  const Transfer::Sink& sink;
  const Options& options;
  Result result{};
  std::optional<Clock::time_point> began{};
  std::uint64_t dropped = 0;
  std::size_t headerBytes = 0;
  bool headersEnded = false;
  bool begun = false;
  std::exception_ptr thrown{};

  /// False ends the transfer.
  bool take(std::string_view bytes) {
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &result.status);
    const bool isPart = result.status == 206 && request.from > 0;
    if (result.status != 200 && !isPart) return (dropped += bytes.size()) <= kMaxDropped;
    if (!begun && begin && !begin(result)) return false;
    begun = true;
    result.tooLarge = bytes.size() > request.maxBytes - result.bytes;
    if (result.tooLarge) return false;
    sink(bytes);
    result.bytes += bytes.size();
    return options.rate == 0 || keepToRate();
  }

  /// Waits until so many bytes may have come. libcurl's own limit lets a burst of a second through
  /// every three.
  bool keepToRate() {
    constexpr milliseconds kTick{100};
    if (!began) began = Clock::now();
    const std::chrono::duration<double> takes(static_cast<double>(result.bytes) /
                                              static_cast<double>(options.rate));
    const auto due = *began + std::chrono::duration_cast<Clock::duration>(takes);
    for (auto now = Clock::now(); now < due; now = Clock::now()) {
      if (options.deadline && now >= *options.deadline) return true;  // libcurl ends it
      if (options.watcher && !options.watcher(result.bytes, 0)) return false;
      std::this_thread::sleep_for(std::min<Clock::duration>(due - now, kTick));
    }
    return true;
  }

  void takeHeader(std::string_view line) {
    if (line.starts_with("HTTP/")) {  // of a response that another one may follow
      result.headers.clear();
      headerBytes = 0;
      headersEnded = false;
    }
    if (line == "\r\n" || line == "\n") headersEnded = true;
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || (headerBytes += line.size()) > kMaxHeaderBytes) return;
    result.headers[lowerCase(trimmed(line.substr(0, colon)))] = trimmed(line.substr(colon + 1));
  }
};

/// No exception may pass through libcurl.
std::size_t receive(char* data, std::size_t, std::size_t size, void* user) noexcept {
  Answer& answer = *static_cast<Answer*>(user);
  try {
    if (answer.take({data, size})) return size;
  } catch (...) {
    answer.thrown = std::current_exception();
  }
  return CURL_WRITEFUNC_ERROR;
}

std::size_t receiveHeader(char* data, std::size_t, std::size_t size, void* user) noexcept {
  Answer& answer = *static_cast<Answer*>(user);
  try {
    answer.takeHeader({data, size});
    return size;
  } catch (...) {
    answer.thrown = std::current_exception();
  }
  return CURL_WRITEFUNC_ERROR;
}

int watch(void* user, curl_off_t expected, curl_off_t bytes, curl_off_t, curl_off_t) noexcept {
  const Options& options = *static_cast<const Options*>(user);
  return options.watcher(static_cast<std::uint64_t>(bytes), static_cast<std::uint64_t>(expected))
             ? 0
             : 1;
}

struct FreeList {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

void setProtocols(CURL* handle) {
#if LIBCURL_VERSION_NUM >= 0x075500
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
#else
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS, CURLPROTO_HTTP | CURLPROTO_HTTPS);
#endif
}

/// A server whose name was verified does not lead to one of which nobody knows who it is.
void setRedirects(CURL* handle, bool verified) {
#if LIBCURL_VERSION_NUM >= 0x075500
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, verified ? "https" : "http,https");
#else
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS,
                   verified ? CURLPROTO_HTTPS : CURLPROTO_HTTP | CURLPROTO_HTTPS);
#endif
}

long clamped(milliseconds time) {
  return static_cast<long>(std::clamp<milliseconds::rep>(time.count(), 1, 86'400'000));
}

}  // namespace

Transfer::Transfer(const Options& options) : options_(options), handle_(curl_easy_init()) {
  if (!handle_) throw std::bad_alloc();
  CURL* const handle = handle_.get();
  setProtocols(handle);
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle, CURLOPT_MAXREDIRS, options_.maxRedirects);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, options_.slowBytes);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options_.slowTime.count()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &receive);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &receiveHeader);
  applyOptions();
}

void Transfer::applyOptions() {
  CURL* const handle = handle_.get();
  const auto setText = [handle](CURLoption option, const std::string& text) {
    if (!text.empty()) curl_easy_setopt(handle, option, text.c_str());
  };
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, options_.verify ? 1L : 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, options_.verify ? 2L : 0L);
  if (!options_.ca.empty()) {
    curl_easy_setopt(handle, CURLOPT_CAINFO, options_.ca.c_str());
    curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);  // these alone
  }
  setText(CURLOPT_SSLCERT, options_.clientCert);
  setText(CURLOPT_SSLKEY, options_.clientKey);
  setText(CURLOPT_USERAGENT, options_.userAgent);
  if (options_.proxy) curl_easy_setopt(handle, CURLOPT_PROXY, options_.proxy->c_str());
  if (options_.noProxy) curl_easy_setopt(handle, CURLOPT_NOPROXY, options_.noProxy->c_str());
  if (options_.receiveBuffer > 0) {
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, options_.receiveBuffer);
  }
  if (options_.watcher) {
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &watch);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &options_);
  }
}

Result Transfer::get(const std::string& url, std::uint64_t maxBytes, const Sink& sink) {
  return perform({.url = url, .maxBytes = maxBytes}, {}, sink);
}

Result Transfer::perform(const Request& request, const Begin& begin, const Sink& sink) {
  CURL* const handle = handle_.get();
  Answer answer{handle, request, begin, sink, options_};
  std::array<char, CURL_ERROR_SIZE> message{};
  const milliseconds left = timeLeft();
  const std::string range = std::to_string(request.from) + "-";
  const std::string condition = "If-Range: " + request.ifRange;
  const HeaderList extra(request.ifRange.empty() ? nullptr
                                                 : curl_slist_append(nullptr, condition.c_str()));
  curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
  setRedirects(handle, options_.verify && request.url.starts_with("https:"));
  curl_easy_setopt(handle, CURLOPT_NOBODY, request.headOnly ? 1L : 0L);
  if (!request.headOnly) curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
  curl_easy_setopt(handle, CURLOPT_RANGE, request.from > 0 ? range.c_str() : nullptr);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, extra.get());
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answer);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &answer);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, message.data());
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, clamped(left));
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                   clamped(std::min<milliseconds>(left, options_.connectTimeout)));
  Result& result = answer.result;
  result.error = left.count() > 0 ? curl_easy_perform(handle) : CURLE_OPERATION_TIMEDOUT;
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
  if (answer.thrown) std::rethrow_exception(answer.thrown);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &result.status);
  curl_off_t wait = 0;
  curl_easy_getinfo(handle, CURLINFO_RETRY_AFTER, &wait);
  if (wait > 0) result.retryAfter = std::chrono::seconds(std::min<curl_off_t>(wait, 1'000'000));
  if (answer.dropped > kMaxDropped) result.error = CURLE_OK;
  // A connection that ends within the headers has given no answer, whatever they began with.
  if (result.error == CURLE_OK && !answer.headersEnded) result.error = CURLE_PARTIAL_FILE;
  if (result.error != CURLE_OK) {
    result.message = message[0] != 0 ? message.data() : curl_easy_strerror(result.error);
    if (result.tooLarge) result.message = "the answer is longer than it may be";
  }
  return std::move(result);
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
