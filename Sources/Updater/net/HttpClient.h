#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <utility>

/// Somebody else who sends the requests, with HttpClient's results.
class HttpTransport {
 public:
  using Headers = std::map<std::string, std::string>;

  virtual ~HttpTransport() = default;
  virtual int get(const std::string& url, std::string& body, Headers& headers) = 0;
  virtual int head(const std::string& url, Headers& headers) = 0;
  /// Into the open file `fd`, which lies at `path`; more than `limit` bytes are a failure.
  virtual int download(const std::string& url, int fd, const std::string& path,
                       unsigned long long limit, Headers& headers) = 0;
  /// Whether what fails for a moment only is asked again; so it is at the beginning.
  virtual void setPatient(bool patient) = 0;
  /// Whether downloads leave time for somebody who comes after; at the beginning they do not.
  virtual void setSharing(bool sharing) = 0;
  /// Whether the latest download went on with what an earlier one had brought.
  [[nodiscard]] virtual bool wasResumed() const = 0;
  /// The digests of what was downloaded last, computed as it came.
  [[nodiscard]] virtual std::string md5() const = 0;
  [[nodiscard]] virtual std::string sha256() const = 0;
  /// Whether the latest download failed since more than `limit` bytes came.
  [[nodiscard]] virtual bool wasTooLong() const = 0;
  /// Closes the connections.
  virtual void close() = 0;
};

/// The updater's network component: one libcurl easy handle, created by the first request and
/// reused, with its connection, by every other. One thread at a time.
///
/// Every request returns 0 for HTTP status 200, -1 for a local or transport failure, and otherwise
/// the HTTP status. Failures are logged where they happen (ERR, module ROOT); none throws. Only
/// http and https are spoken, redirects included; certificates are not verified.
class HttpClient {
 public:
  using Headers = std::map<std::string, std::string>;

  /// A body that is fetched into memory may have this many bytes.
  static constexpr std::size_t kMaxBody = std::size_t{8} << 20;

  HttpClient() = default;
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;
  virtual ~HttpClient();

  /// Creates and configures the handle once. Returns false when there is none.
  bool init();

  /// Releases the handle; the next request starts afresh.
  void cleanup();

  /// `prefix` is put in front of every URL that is requested; messages name the URL without it.
  void setConfig(const std::string& prefix) { config = prefix; }

  /// A download of more bytes than this fails like any other transfer; so does one that would leave
  /// less than a sixteenth of the disk's free space.
  void setDownloadLimit(unsigned long long bytes) { downloadLimit = bytes; }

  /// Called now and then during every request, also while nothing comes, with the bytes of the
  /// download that came so far; 0 for what is not a download. When it returns false the request
  /// ends as a failed transfer. It must not throw. Empty: nobody is asked.
  using Watcher = std::function<bool(unsigned long long bytes)>;
  void setWatcher(Watcher newWatcher) { watcher = std::move(newWatcher); }

  /// From now on `other`, which stays the caller's, sends the requests; null: this object does.
  void setTransport(HttpTransport* other) { transport = other; }

  /// Whether another's hand asks again for what fails for a moment only.
  void setPatient(bool patient) {
    if (transport != nullptr) transport->setPatient(patient);
  }

  /// Whether downloads by another's hand leave time for somebody who comes after.
  void setSharing(bool sharing) {
    if (transport != nullptr) transport->setSharing(sharing);
  }

  /// Whether the latest download by another's hand went on with what an earlier one had brought.
  [[nodiscard]] bool downloadWasResumed() const { return transport && transport->wasResumed(); }

  /// The digests of the latest download by another's hand; empty: they are not known here.
  [[nodiscard]] std::string md5OfDownload() const { return transport ? transport->md5() : ""; }
  [[nodiscard]] std::string sha256OfDownload() const {
    return transport ? transport->sha256() : "";
  }
  /// Whether it failed since it was longer than `setDownloadLimit` lets it be.
  [[nodiscard]] bool downloadWasTooLong() const { return transport && transport->wasTooLong(); }

  /// GET into memory. `headers` receives the response's headers, name as sent, both sides trimmed;
  /// the last value of a name wins, across redirects too.
  int get(const std::string& url, std::string& body, Headers& headers);

  /// HEAD: the headers only.
  int head(const std::string& url, Headers& headers);

  /// GET into the file `path`, created or emptied; every tenth percent is logged. A file that can't
  /// be opened is -1 without a message and without a request. What arrived before a failure stays.
  int download(const std::string& url, const std::string& path, Headers& headers);

  /// The same into the open file `fd`, which is emptied and stays the caller's and open. Only
  /// another transport needs its path.
  int download(const std::string& url, int fd, Headers& headers, const std::string& path = {});

  // The functions that libcurl calls. `userdata` is a std::string, a FILE, a Headers map and an
  // int, in this order.
  static std::size_t readResponsCb(void* data, std::size_t size, std::size_t nmemb,
                                   void* userdata) noexcept;
  static std::size_t readFileResponseCb(void* data, std::size_t size, std::size_t nmemb,
                                        void* userdata) noexcept;
  static std::size_t readHeadersCb(void* data, std::size_t size, std::size_t nmemb,
                                   void* userdata) noexcept;
  static int progressCb(void* userdata, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal,
                        curl_off_t ulnow) noexcept;

 protected:
  CURL* handle = nullptr;
  std::string config;
  bool initialized = false;
  unsigned long long downloadLimit = std::numeric_limits<unsigned long long>::max();
  Watcher watcher;
  HttpTransport* transport = nullptr;

 private:
  class Request;

  int receive(const std::string& url, int fd, Headers& headers);
  int perform(Request& request, const std::string& url, const char* statusFailure, long& status);
  static int judge(const std::string& url, long status);
};

namespace utils {

/// The content length among response headers: looks for "content-length", then "Content-Length".
/// Returns 0 with `size` set, or -1 when there is neither. Throws what std::stoull throws for a
/// value that is no number.
int getContentLength(HttpClient::Headers& headers, unsigned long long& size);

/// The text whose bytes `hex` spells, two digits each, up to the first pair that is none and up to
/// the first NUL. Throws QDException when the text has 4,096 bytes or more.
std::string decodeURL(const std::string& hex);

}  // namespace utils
