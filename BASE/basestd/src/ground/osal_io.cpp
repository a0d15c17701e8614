#include "ground/osal_io.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

ssize_t osal_readSome(int fd, void* buf, std::size_t size) {
  ssize_t count = 0;
  do {
    count = ::read(fd, buf, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

int osal_readAll(int fd, std::string& text, std::size_t limit) {
  std::array<char, 4096> piece;
  while (limit > 0) {
    const ssize_t count = osal_readSome(fd, piece.data(), std::min(piece.size(), limit));
    if (count < 0) return errno;
    if (count == 0) break;
    text.append(piece.data(), static_cast<std::size_t>(count));
    limit -= static_cast<std::size_t>(count);
  }
  return 0;
}

std::size_t osal_writeAll(int fd, std::string_view text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) errno = EIO;  // what a device must not answer, and would for ever
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}
