#include "osal/osal_deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "logging/QDLog.h"

namespace {

constexpr long kMicrosPerSecond = 1'000'000;

}  // namespace

std::optional<timespec> osal_deadlineAfter(const timeval& now, unsigned int ms) {
  if (now.tv_sec < 0 || now.tv_usec < 0) return std::nullopt;
  timespec deadline{};
  deadline.tv_sec = now.tv_sec + static_cast<time_t>(ms / 1000);
  long micros = static_cast<long>(now.tv_usec) + static_cast<long>(ms % 1000) * 1000;
  if (micros >= kMicrosPerSecond) {
    ++deadline.tv_sec;
    micros -= kMicrosPerSecond;
  }
  deadline.tv_nsec = micros * 1000;
  return deadline;
}

int MillisecsToAbsoluteTimespec(unsigned int ms, timespec* ts) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const std::optional<timespec> deadline = osal_deadlineAfter(now, ms);
  if (!deadline) {
    QDLOG(OSAL, EL2,
          "Incoherent values (tv_sec = " << now.tv_sec << ", tv_usec = " << now.tv_usec << ")");
    return -1;
  }
  *ts = *deadline;
  return 0;
}

int osal_waitToRead(int fd, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return ETIMEDOUT;
    struct pollfd state {
      fd, POLLIN, 0
    };
    const int ready =
        ::poll(&state, 1, static_cast<int>(std::min<long long>(left.count(), INT_MAX)));
    if (ready > 0) return 0;
    if (ready < 0 && errno != EINTR) return errno;
  }
}
