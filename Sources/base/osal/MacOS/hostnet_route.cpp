#include <fcntl.h>
#include <net/route.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "osal/osal_hostnet.h"

int hostnet_openRoute(unsigned int timeoutMs, ScopedFd& socket) {
  ScopedFd opened(::socket(PF_ROUTE, SOCK_RAW, 0));
  if (!opened) return errno;
  struct timeval timeout {};
  timeout.tv_sec = static_cast<time_t>(timeoutMs / 1000);
  timeout.tv_usec = static_cast<suseconds_t>(timeoutMs % 1000 * 1000);
  if (::fcntl(opened.get(), F_SETFD, FD_CLOEXEC) != 0 ||
      ::setsockopt(opened.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
    return errno;
  }
  socket = std::move(opened);
  return 0;
}

int hostnet_writeRoute(int socket, const void* request, std::size_t length) {
  const ssize_t written = ::write(socket, request, length);
  if (written < 0) return errno;
  return static_cast<std::size_t>(written) == length ? 0 : EMSGSIZE;
}

int hostnet_readRoute(int socket, void* message, std::size_t size, std::size_t* length) {
  const ssize_t got = ::read(socket, message, size);
  if (got < 0) return errno;
  *length = static_cast<std::size_t>(got);
  return 0;
}
