#include "osal/osal_time.h"

#include <cerrno>
#include <cstdint>

#include "ground/osal_bytes.h"
#include "ground/osal_localtime.h"
#include "logging/QDLog.h"
#include "osal/osal_host.h"

static_assert(sizeof(time_t) == 8, "times take 64 bits: build with _TIME_BITS=64");

namespace {

/// 31 December 1999, 23:00 UTC.
constexpr time_t kReferenceInstant = 946681200;

constexpr std::size_t kTimeTextSize = 64;

/// Returns 0, or -1 after logging.
int now(time_t& instant) {
  if (::time(&instant) != static_cast<time_t>(-1)) return 0;
  const int error = errno;
  QDLOG(OSAL, ERR, "Cannot get time: " << error);
  return -1;
}

}  // namespace

int osal_timevalToMs(const struct timeval& time, unsigned long long* ms) {
  if (time.tv_sec < 0 || time.tv_usec < 0) {
    QDLOG(OSAL, EL2,
          "Incoherent values (tv_sec = " << static_cast<long long>(time.tv_sec) << ", tv_usec = "
                                         << static_cast<long long>(time.tv_usec) << ")");
    return -1;
  }
  *ms = static_cast<unsigned long long>(time.tv_sec) * 1000 +
        static_cast<unsigned long long>(time.tv_usec) / 1000;
  return 0;
}

int osal_getMs(unsigned long long* ms) {
  struct timeval time {};
  if (::gettimeofday(&time, nullptr) != 0) {
    const int error = errno;
    QDLOG(OSAL, ERR, "Cannot get time of day (" << error << ")");
    return -1;
  }
  return osal_timevalToMs(time, ms);
}

int osal_doSleep(unsigned int ms) {
  QDLOG(OSAL, 6, "Sleeping " << ms << " ms");
  struct timespec left {};
  left.tv_sec = static_cast<time_t>(ms / 1000);
  left.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
  while (::nanosleep(&left, &left) != 0) {
    const int error = errno;
    if (error == EINTR) continue;
    QDLOG(OSAL, EL2, "Cannot sleep ! (" << error << ")");
    return -1;
  }
  return 0;
}

unsigned long long osal_getRunTimeSecs() {
  std::uint64_t ms = 0;
  if (const int error = host_upTimeMs(ms); error != 0) {
    QDLOG(OSAL, ERR, "Cannot get up-time (" << error << ")");
    return 0;
  }
  return ms / 1000;
}

int osal_formated_time(unsigned char* buf, bool /*unused*/, unsigned long long timeMs,
                       bool forFileName) {
  *buf = '\0';
  time_t instant = static_cast<time_t>(timeMs / 1000);
  if (timeMs == 0 && now(instant) != 0) return -1;
  const char* const format = forFileName ? "%Y-%m-%d_%H-%M-%S" : "%Y/%m/%d, %H:%M:%S";
  return osal_formatLocalTime(instant, format, osal_chars(buf), kTimeTextSize) != 0 ? 0 : -1;
}

int osal_tzOffsetAt(time_t instant, int* seconds) {
  struct tm local {};
  if (!osal_toLocalTime(instant, local)) {
    QDLOG(OSAL, ERR, "Error with localtime");
    return -1;
  }
  *seconds = static_cast<int>(::timegm(&local) - instant);
  return 0;
}

int osal_getTZOffset(int* seconds) {
  time_t instant = 0;
  return now(instant) == 0 ? osal_tzOffsetAt(instant, seconds) : -1;
}

int osal_getIniTZOffset(int* seconds) { return osal_tzOffsetAt(kReferenceInstant, seconds); }
