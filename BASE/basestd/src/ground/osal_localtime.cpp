#include "ground/osal_localtime.h"

#include <time.h>

bool osal_toLocalTime(std::time_t instant, std::tm& local) {
  ::tzset();  // `localtime_r` alone need not look at the time zone setting
  return ::localtime_r(&instant, &local) != nullptr;
}

std::size_t osal_formatLocalTime(std::time_t instant, const char* format, char* buf,
                                 std::size_t size) {
  std::tm local{};
  std::size_t length = 0;
  if (osal_toLocalTime(instant, local)) length = std::strftime(buf, size, format, &local);
  if (length == 0 && size > 0) *buf = '\0';
  return length;
}
