#pragma once

#include <sys/time.h>

#include <chrono>
#include <ctime>
#include <optional>

/// The wall-clock time `ms` milliseconds after `now`, rounded to microseconds as `now` is; nothing
/// when a part of `now` is negative.
std::optional<timespec> osal_deadlineAfter(const timeval& now, unsigned int ms);

/// Stores the absolute wall-clock deadline `ms` milliseconds from now, as condition variables with
/// default attributes take it. Returns 0, or -1 after logging an incoherent clock.
int MillisecsToAbsoluteTimespec(unsigned int ms, timespec* ts);

/// Waits, through signals, until `fd` has something to read. Returns 0, ETIMEDOUT once the deadline
/// has passed, whatever there is to read then, or another errno value.
int osal_waitToRead(int fd, std::chrono::steady_clock::time_point deadline);
