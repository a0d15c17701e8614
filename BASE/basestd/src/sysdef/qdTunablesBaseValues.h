#pragma once

#include <cstdint>

/// Stack size, in bytes, of threads that are started without one of their own.
extern std::uint32_t BASE_DEFAULT_THREAD_STACK;

/// How far the process's priority is raised or lowered, in nice values.
extern std::uint32_t BASE_POSIX_PRIORITY_DELTA;
