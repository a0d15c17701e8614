#pragma once

#include <cstddef>
#include <ctime>

/// As `localtime`, which looks at the time zone setting anew each time, but into the caller's
/// record. Returns false for a time that has no calendar date.
bool osal_toLocalTime(std::time_t instant, std::tm& local);

/// Writes the local time as `strftime` does with `format`, and a NUL, into the `size` bytes of
/// `buf`. Returns its length; 0, with an empty text, when it does not fit or the time has no
/// calendar date.
std::size_t osal_formatLocalTime(std::time_t instant, const char* format, char* buf,
                                 std::size_t size);
