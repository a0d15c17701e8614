#pragma once

#include <sys/time.h>
#include <time.h>

/// The wall clock in milliseconds since 1970. Returns 0, or -1 after logging.
int osal_getMs(unsigned long long* ms);

/// Pauses for at least `ms` milliseconds; a signal does not shorten the pause. Returns 0, or -1
/// after logging.
int osal_doSleep(unsigned int ms);

/// Seconds since the system started; 0, after logging, when it does not answer.
unsigned long long osal_getRunTimeSecs();

/// Writes local time into `buf` (64 bytes): "2024-01-31_23-59-59" when `forFileName`, else
/// "2024/01/31, 23:59:59". `timeMs` is milliseconds since 1970, 0 for now; the second argument is
/// not used. Returns 0, or -1 with `buf` empty.
int osal_formated_time(unsigned char* buf, bool unused, unsigned long long timeMs,
                       bool forFileName);

/// How far local time is ahead of UTC now, in seconds. Returns 0, or -1 after logging.
int osal_getTZOffset(int* seconds);

/// The same at the turn of the year 2000, so without daylight saving time.
int osal_getIniTZOffset(int* seconds);

/// How far local time is ahead of UTC at `instant`. Same result.
int osal_tzOffsetAt(time_t instant, int* seconds);

/// Milliseconds of a time that the system answered. Returns 0, or -1 after logging a negative
/// field.
int osal_timevalToMs(const struct timeval& time, unsigned long long* ms);
