#include "Updater/HttpClient.h"

#include <fcntl.h>

#include <boost/algorithm/string/trim.hpp>
#include <cstdio>
#include <memory>
#include <string_view>

#include "logging/QDLog.h"
#include "osal/osal_ownfile.h"

namespace {

constexpr std::size_t kMaxHeaderNames = 1000;
constexpr std::size_t kMaxHeaderBytes = std::size_t{1} << 20;
constexpr long kReceiveBuffer = 512L * 1024;

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

std::size_t discardCb(void*, std::size_t size, std::size_t nmemb, void*) noexcept {
  return size * nmemb;
}

FilePtr openForDownload(const std::string& path) {
  ScopedFd fd;
  if (osal_openFixedFile(path.c_str(), OwnFileUse::Overwrite, 0600, fd) != 0) return nullptr;
  FilePtr file(::fdopen(fd.get(), "wb"));
  if (file == nullptr) return nullptr;
  static_cast<void>(fd.release());
  return file;
}

bool allowOnlyHttp(CURL* handle) {
#if LIBCURL_VERSION_NUM >= 0x075500
  return curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") == CURLE_OK;
#else
  constexpr long kProtocols = CURLPROTO_HTTP | CURLPROTO_HTTPS;
  return curl_easy_setopt(handle, CURLOPT_PROTOCOLS, kProtocols) == CURLE_OK &&
         curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS, kProtocols) == CURLE_OK;
#endif
}

std::size_t storedBytes(const HttpClient::Headers& headers) {
  std::size_t bytes = 0;
  for (const auto& [name, value] : headers) bytes += name.size() + value.size();
  return bytes;
}

}  // namespace

/// Takes every pointer to a caller's object off the handle again, so that none outlives its
/// request.
class HttpClient::Request {
 public:
  explicit Request(CURL* handle) : handle_(handle) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &discardCb);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, nullptr);
    curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, nullptr);
    curl_easy_setopt(handle_, CURLOPT_HEADERDATA, nullptr);
    curl_easy_setopt(handle_, CURLOPT_NOPROGRESS, 1L);
    curl_easy_setopt(handle_, CURLOPT_XFERINFOFUNCTION, nullptr);
    curl_easy_setopt(handle_, CURLOPT_XFERINFODATA, nullptr);
  }

 private:
  CURL* handle_;
};

HttpClient::~HttpClient() { cleanup(); }

bool HttpClient::init() {
  if (initialized) return true;
  if (handle == nullptr) handle = curl_easy_init();
  if (handle == nullptr) return false;
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "Updater/1.0.0");
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 50L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_TCP_NODELAY, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 60L);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 1L);
  curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kReceiveBuffer);
  initialized = allowOnlyHttp(handle);
  return initialized;
}

void HttpClient::cleanup() {
  if (handle != nullptr) curl_easy_cleanup(handle);
  handle = nullptr;
  initialized = false;
}

bool HttpClient::begin(const std::string& url, Headers& headers) {
  if (!init()) return false;
  headers.clear();
  curl_easy_setopt(handle, CURLOPT_URL, (config + url).c_str());
  return true;
}

int HttpClient::get(const std::string& url, std::string& body, Headers& headers) {
  if (!begin(url, headers)) return -1;
  body.clear();
  const Request request(handle);
  curl_easy_setopt(handle, CURLOPT_NOBODY, 0L);
  curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &readResponsCb);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &readHeadersCb);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &headers);
  long status = 0;
  if (perform(url, "Faild to get  http status code [", status) != 0) return -1;
  return judge(url, status);
}

int HttpClient::head(const std::string& url, Headers& headers) {
  if (!begin(url, headers)) return -1;
  const Request request(handle);
  curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &discardCb);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &readHeadersCb);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &headers);
  long status = 0;
  if (perform(url, "Failed to get  http status code [", status) != 0) return -1;
  return judge(url, status);
}

int HttpClient::download(const std::string& url, const std::string& path, Headers& headers) {
  if (!begin(url, headers)) return -1;
  FilePtr file = openForDownload(path);
  if (file == nullptr) return -1;
  LimitedFile target{file.get(), downloadLimit};
  int lastPercent = 0;
  const Request request(handle);
  curl_easy_setopt(handle, CURLOPT_NOBODY, 0L);
  curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &writeLimitedCb);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &target);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &readHeadersCb);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &headers);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &progressCb);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &lastPercent);
  long status = 0;
  if (perform(url, "Faild to get  http status code [", status) != 0) return -1;
  file.reset();
  return judge(url, status);
}

int HttpClient::perform(const std::string& url, const char* statusFailure, long& status) {
  CURLcode code = curl_easy_perform(handle);
  if (code != CURLE_OK) {
    QDLOG(ROOT, ERR,
          "Request " << url << " failed : [" << static_cast<int>(code) << "] -> "
                     << curl_easy_strerror(code));
    return -1;
  }
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
  return status == 0 ? -1 : static_cast<int>(status);  // no status is no answer, and never success
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
    const std::string line(static_cast<const char*>(data), count);
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) return count;
    Headers& headers = *static_cast<Headers*>(userdata);
    if (headers.size() >= kMaxHeaderNames || storedBytes(headers) + count > kMaxHeaderBytes) {
      return count;
    }
    headers[boost::trim_copy(line.substr(0, colon))] = boost::trim_copy(line.substr(colon + 1));
  } catch (...) {
    // A header that memory has no room for is a header that was not sent.
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
