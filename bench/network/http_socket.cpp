// What the machine gives at best: HTTP on a bare socket.
//   http_socket download PORT PATH FILE
//   http_socket get PORT COUNT PATH...     all paths in turn, COUNT times, over one connection

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

#include "BareHttp.h"

namespace {

void download(const char* port, const char* path, const char* file) {
  BareHttp http(port);
  const int fd = ::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  need(fd >= 0, file);
  http.body(http.request("GET", path), [fd](const char* data, std::size_t size) {
    need(::write(fd, data, size) == static_cast<ssize_t>(size), "write");
  });
}

void get(const char* port, int count, char** paths) {
  BareHttp http(port);
  for (int i = 0; i < count; ++i) {
    for (char** path = paths; *path != nullptr; ++path) http.get(*path);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  if (std::string_view(argv[1]) == "download") {
    download(argv[2], argv[3], argv[4]);
  } else {
    get(argv[2], std::atoi(argv[3]), argv + 4);
  }
}
