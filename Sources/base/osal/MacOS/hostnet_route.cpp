#include <fcntl.h>
#include <net/route.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "osal/osal_deadline.h"
#include "osal/osal_hostnet.h"

int hostnet_openRoute(ScopedFd& socket) {
  ScopedFd opened(::socket(PF_ROUTE, SOCK_RAW, 0));
  if (!opened || ::fcntl(opened.get(), F_SETFD, FD_CLOEXEC) != 0) return errno;
  socket = std::move(opened);
  return 0;
}

int hostnet_writeRoute(int socket, const void* request, std::size_t length) {
  const ssize_t written = ::write(socket, request, length);
  if (written < 0) return errno;
  return static_cast<std::size_t>(written) == length ? 0 : EMSGSIZE;
}

int hostnet_readRoute(int socket, std::chrono::steady_clock::time_point deadline, void* message,
                      std::size_t size, std::size_t* length) {
  for (;;) {
    if (const int error = osal_waitToRead(socket, deadline); error != 0) return error;
    const ssize_t got = ::recv(socket, message, size, MSG_DONTWAIT);
    if (got >= 0) {
      *length = static_cast<std::size_t>(got);
      return 0;
    }
    if (errno != EINTR && errno != EAGAIN) return errno;
  }
}
