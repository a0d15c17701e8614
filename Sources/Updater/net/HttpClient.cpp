#include "Updater/net/HttpClient.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "ground/osal_bytes.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"
#include "tools/QDSys.h"

namespace {

constexpr std::size_t kMaxHeaderNames = 1000;
constexpr std::size_t kMaxHeaderBytes = std::size_t{1} << 20;
constexpr long kReceiveBuffer = 512L * 1024;

/// libcurl hands over 16 KiB at most; file systems take larger pieces for much less.
constexpr std::size_t kWriteBuffer = std::size_t{32} * 1024;

struct CloseFile {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

/// The file being downloaded to, and how many bytes it may still take.
struct LimitedFile {
  std::FILE* file;
  unsigned long long left;
};

std::size_t writeLimitedCb(void* data, std::size_t size, std::size_t nmemb,
                           void* userdata) noexcept {
  auto& target = *static_cast<LimitedFile*>(userdata);
  if (size * nmemb > target.left) return 0;
  target.left -= size * nmemb;
  return HttpClient::readFileResponseCb(data, size, nmemb, target.file);
}

/// The headers being received, and whether those of the latest response are complete.
struct ReceivedHeaders {
  HttpClient::Headers& headers;
  bool ended = false;
};

std::size_t readHeaderCb(void* data, std::size_t size, std::size_t nmemb, void* userdata) noexcept {
  auto& received = *static_cast<ReceivedHeaders*>(userdata);
  const std::string_view line(static_cast<const char*>(data), size * nmemb);
  if (line.starts_with("HTTP/")) received.ended = false;
  if (line == "\r\n" || line == "\n") received.ended = true;
  return HttpClient::readHeadersCb(data, size, nmemb, &received.headers);
}

std::size_t discardCb(void*, std::size_t size, std::size_t nmemb, void*) noexcept {
  return size * nmemb;
}

/// A stream of its own for the open file.
FilePtr streamTo(int fd) {
  ScopedFd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  FilePtr file(copy ? ::fdopen(copy.get(), "wb") : nullptr);
  if (file != nullptr) static_cast<void>(copy.release());
  return file;
}

/// The most bytes that a download to the file may have so that a sixteenth of what is free stays
/// free for the others on this machine.
unsigned long long roomFor(std::FILE* file) {
  struct statvfs info {};
  if (::fstatvfs(::fileno(file), &info) != 0 || info.f_blocks == 0) {
    return std::numeric_limits<unsigned long long>::max();  // unknown
  }
  const unsigned long long free = static_cast<unsigned long long>(info.f_bfree) * info.f_frsize;
  return free - free / 16;
}

/// Sets options of a handle up to the first that fails: a request with some of them missing would
/// be a different one.
class Options {
 public:
  explicit Options(CURL* handle) : handle_(handle) {}
  template <class Value>
  void set(CURLoption option, Value value) {
    if (code_ == CURLE_OK) code_ = curl_easy_setopt(handle_, option, value);
  }
  [[nodiscard]] CURLcode code() const { return code_; }

 private:
  CURL* handle_;
  CURLcode code_ = CURLE_OK;
};

void allowOnlyHttp(Options& options) {
#if LIBCURL_VERSION_NUM >= 0x075500
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
#else
  constexpr long kProtocols = CURLPROTO_HTTP | CURLPROTO_HTTPS;
  options.set(CURLOPT_PROTOCOLS, kProtocols);
  options.set(CURLOPT_REDIR_PROTOCOLS, kProtocols);
#endif
}

std::size_t storedBytes(const HttpClient::Headers& headers) {
  std::size_t bytes = 0;
  for (const auto& [name, value] : headers) bytes += name.size() + value.size();
  return bytes;
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
  const std::size_t begin = text.find_first_not_of(kWhiteSpace);
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(kWhiteSpace) + 1 - begin));
}

/// Logs a transfer that failed. Returns -1.
int reportFailure(const std::string& url, CURLcode code) {
  QDLOG(ROOT, ERR,
        "Request " << url << " failed : [" << static_cast<int>(code) << "] -> "
                   << curl_easy_strerror(code));
  return -1;
}

}  // namespace

/// One request: sets its options, and at its end takes every pointer to a caller's object off the
/// handle, so that none outlives the object.
class HttpClient::Request {
 public:
  Request(HttpClient& client, const std::string& url, Headers& headers)
      : client_(client), options_(client.handle), received_{headers} {
    headers.clear();
    options_.set(CURLOPT_URL, url.c_str());
    options_.set(CURLOPT_HEADERFUNCTION, &readHeaderCb);
    options_.set(CURLOPT_HEADERDATA, &received_);
    if (client.watcher) watch(progress_);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    Options former(client_.handle);
    former.set(CURLOPT_WRITEFUNCTION, &discardCb);
    former.set(CURLOPT_WRITEDATA, nullptr);
    former.set(CURLOPT_HEADERFUNCTION, nullptr);
    former.set(CURLOPT_HEADERDATA, nullptr);
    former.set(CURLOPT_NOPROGRESS, 1L);
    former.set(CURLOPT_XFERINFOFUNCTION, nullptr);
    former.set(CURLOPT_XFERINFODATA, nullptr);
    if (former.code() != CURLE_OK) client_.cleanup();
  }

  template <class Value>
  void set(CURLoption option, Value value) {
    options_.set(option, value);
  }
  /// Has the progress logged: this is a download.
  void logProgress() {
    progress_.isDownload = true;
    watch(progress_);
  }
  /// Does nothing when an option was refused. A connection that ends within the headers has given
  /// no answer, whatever status they began with.
  CURLcode perform() {
    if (options_.code() != CURLE_OK) return options_.code();
    const CURLcode code = curl_easy_perform(client_.handle);
    return code == CURLE_OK && !received_.ended ? CURLE_PARTIAL_FILE : code;
  }

 private:
  /// How far the transfer is, for those who want to know.
  struct Progress {
    const Watcher& watcher;
    bool isDownload = false;
    int lastPercent = 0;
  };

  void watch(Progress& progress) {
    options_.set(CURLOPT_NOPROGRESS, 0L);
    options_.set(CURLOPT_XFERINFOFUNCTION, &watchCb);
    options_.set(CURLOPT_XFERINFODATA, &progress);
  }

  static int watchCb(void* userdata, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal,
                     curl_off_t ulnow) noexcept {
    auto& progress = *static_cast<Progress*>(userdata);
    if (progress.isDownload) progressCb(&progress.lastPercent, dltotal, dlnow, ultotal, ulnow);
    const auto bytes = progress.isDownload ? static_cast<unsigned long long>(dlnow) : 0;
    return !progress.watcher || progress.watcher(bytes) ? 0 : 1;
  }

  HttpClient& client_;
  Options options_;
  ReceivedHeaders received_;
  Progress progress_{client_.watcher};
};

HttpClient::~HttpClient() { cleanup(); }

bool HttpClient::init() {
  if (initialized) return true;
  if (handle == nullptr) handle = curl_easy_init();
  if (handle == nullptr) return false;
  Options options(handle);
  options.set(CURLOPT_SSL_VERIFYPEER, 0L);
  options.set(CURLOPT_SSL_VERIFYHOST, 0L);
  options.set(CURLOPT_TCP_KEEPALIVE, 1L);
  options.set(CURLOPT_USERAGENT, "Updater/1.0.0");
  options.set(CURLOPT_FOLLOWLOCATION, 1L);
  options.set(CURLOPT_MAXREDIRS, 50L);
  options.set(CURLOPT_NOSIGNAL, 1L);
  options.set(CURLOPT_TCP_NODELAY, 1L);
  options.set(CURLOPT_CONNECTTIMEOUT, 60L);
  options.set(CURLOPT_NOPROGRESS, 1L);
  options.set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
  allowOnlyHttp(options);
  initialized = options.code() == CURLE_OK;
  return initialized;
}

void HttpClient::cleanup() {
  if (transport != nullptr) transport->close();
  if (handle != nullptr) curl_easy_cleanup(handle);
  handle = nullptr;
  initialized = false;
}

int HttpClient::get(const std::string& url, std::string& body, Headers& headers) {
  if (transport != nullptr) return transport->get(config + url, body, headers);
  if (!init()) return -1;
  body.clear();
  Request request(*this, config + url, headers);
  request.set(CURLOPT_NOBODY, 0L);
  request.set(CURLOPT_HTTPGET, 1L);
  request.set(CURLOPT_WRITEFUNCTION, &readResponsCb);
  request.set(CURLOPT_WRITEDATA, &body);
  long status = 0;
  if (perform(request, url, "Faild to get  http status code [", status) != 0) return -1;
  return judge(url, status);
}

int HttpClient::head(const std::string& url, Headers& headers) {
  if (transport != nullptr) return transport->head(config + url, headers);
  if (!init()) return -1;
  Request request(*this, config + url, headers);
  request.set(CURLOPT_NOBODY, 1L);
  request.set(CURLOPT_WRITEFUNCTION, &discardCb);
  long status = 0;
  if (perform(request, url, "Failed to get  http status code [", status) != 0) return -1;
  return judge(url, status);
}

int HttpClient::download(const std::string& url, const std::string& path, Headers& headers) {
  if (!init()) return -1;
  headers.clear();
  ScopedFd fd;
  if (osal_openFixedFile(path.c_str(), OwnFileUse::Overwrite, 0600, fd) != 0) return -1;
  return receive(url, fd.get(), headers);
}

int HttpClient::download(const std::string& url, int fd, Headers& headers,
                         const std::string& path) {
  if (transport != nullptr) {
    return transport->download(config + url, fd, path, downloadLimit, headers);
  }
  if (!init()) return -1;
  headers.clear();
  if (::ftruncate(fd, 0) != 0 || ::lseek(fd, 0, SEEK_SET) != 0) return -1;
  return receive(url, fd, headers);
}

int HttpClient::receive(const std::string& url, int fd, Headers& headers) {
  std::array<char, kWriteBuffer> buffer;  // outlives the file, which uses it
  FilePtr file = streamTo(fd);
  if (file == nullptr) return -1;
  std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  LimitedFile target{file.get(), std::min(downloadLimit, roomFor(file.get()))};
  Request request(*this, config + url, headers);
  request.set(CURLOPT_NOBODY, 0L);
  request.set(CURLOPT_HTTPGET, 1L);
  request.set(CURLOPT_WRITEFUNCTION, &writeLimitedCb);
  request.set(CURLOPT_WRITEDATA, &target);
  request.logProgress();
  long status = 0;
  if (perform(request, url, "Faild to get  http status code [", status) != 0) return -1;
  if (std::fflush(file.get()) != 0) return reportFailure(url, CURLE_WRITE_ERROR);
  file.reset();
  return judge(url, status);
}

int HttpClient::perform(Request& request, const std::string& url, const char* statusFailure,
                        long& status) {
  CURLcode code = request.perform();
  if (code != CURLE_OK) return reportFailure(url, code);
  code = curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  if (code != CURLE_OK) {
    QDLOG(ROOT, ERR,
          statusFailure << static_cast<int>(code) << "] -> " << curl_easy_strerror(code));
    return -1;
  }
  return 0;
}

int HttpClient::judge(const std::string& url, long status) {
  if (status == 200) return 0;
  QDLOG(ROOT, ERR, "Request " << url << " failed : [" << status << "]");
  return status == 0 ? -1 : static_cast<int>(status);  // without a status there was no answer
}

std::size_t HttpClient::readResponsCb(void* data, std::size_t size, std::size_t nmemb,
                                      void* userdata) noexcept {
  try {
    std::string& body = *static_cast<std::string*>(userdata);
    const std::size_t count = size * nmemb;
    if (count > kMaxBody - body.size()) return 0;
    body.append(static_cast<const char*>(data), count);
    return count;
  } catch (...) {
    return 0;
  }
}

std::size_t HttpClient::readFileResponseCb(void* data, std::size_t size, std::size_t nmemb,
                                           void* userdata) noexcept {
  return std::fwrite(data, size, nmemb, static_cast<std::FILE*>(userdata));
}

std::size_t HttpClient::readHeadersCb(void* data, std::size_t size, std::size_t nmemb,
                                      void* userdata) noexcept {
  const std::size_t count = size * nmemb;
  try {
    const std::string_view line(static_cast<const char*>(data), count);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return count;
    Headers& headers = *static_cast<Headers*>(userdata);
    if (headers.size() >= kMaxHeaderNames || storedBytes(headers) + count > kMaxHeaderBytes) {
      return count;
    }
    headers[trimmed(line.substr(0, colon))] = trimmed(line.substr(colon + 1));
  } catch (...) {
    // A header for which there is no memory counts as not sent.
  }
  return count;
}

int HttpClient::progressCb(void* userdata, curl_off_t dltotal, curl_off_t dlnow,
                           curl_off_t /*ultotal*/, curl_off_t /*ulnow*/) noexcept {
  if (dltotal == 0) return 0;
  const int percent = static_cast<int>(dlnow * 100 / dltotal);
  int& lastPercent = *static_cast<int*>(userdata);
  if (percent > lastPercent && percent % 10 == 0) {
    try {
      QDLOG(ROOT, NFY, "Loading " << percent << "%");
    } catch (...) {
      // A line that can't be logged must not end the transfer.
    }
  }
  lastPercent = percent;
  return 0;
}

namespace utils {

int getContentLength(HttpClient::Headers& headers, unsigned long long& size) {
  auto header = headers.find("content-length");
  if (header == headers.end()) header = headers.find("Content-Length");
  if (header == headers.end()) return -1;
  size = std::stoull(header->second);
  return 0;
}

std::string decodeURL(const std::string& hex) {
  constexpr unsigned int kMaxDigits = 8192;
  unsigned char text[4097] = {};
  const auto* const digits = osal_bytes(hex);
  const unsigned int count = std::min(QDSys::strlen(digits), kMaxDigits);
  QDSys::convertHexStrNullToBin(digits, count, text, sizeof text - 1);
  return osal_chars(text);
}

}  // namespace utils
