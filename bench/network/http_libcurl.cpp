// The smallest libcurl programs: a 512 KiB buffer and write().
//   http_libcurl download SERVER PATH FILE
//   http_libcurl get SERVER COUNT PATH...     all paths in turn, COUNT times, over one connection

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::size_t writeFile(char* data, std::size_t size, std::size_t count, void* fd) {
  const ssize_t written = ::write(*static_cast<int*>(fd), data, size * count);
  return written < 0 ? 0 : static_cast<std::size_t>(written);
}

std::size_t append(char* data, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

CURLcode fetch(CURL* handle, const std::string& url) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  return curl_easy_perform(handle);
}

CURLcode download(CURL* handle, const std::string& url, const char* file) {
  int fd = ::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return CURLE_WRITE_ERROR;
  curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 512L * 1024);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &writeFile);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &fd);
  return fetch(handle, url);
}

CURLcode get(CURL* handle, const std::string& server, int count, char** paths) {
  std::string body;
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  for (int i = 0; i < count; ++i) {
    for (char** path = paths; *path != nullptr; ++path) {
      body.clear();
      if (const CURLcode code = fetch(handle, server + *path); code != CURLE_OK) return code;
    }
  }
  return CURLE_OK;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  CURL* const handle = curl_easy_init();
  curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  const CURLcode code = std::string_view(argv[1]) == "download"
                            ? download(handle, std::string(argv[2]) + argv[3], argv[4])
                            : get(handle, argv[2], std::atoi(argv[3]), argv + 4);
  curl_easy_cleanup(handle);
  return code == CURLE_OK ? 0 : 1;
}
