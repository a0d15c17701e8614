#pragma once

#include <cstdint>

/// Stack size, in bytes, of threads that are started without one of their own.
extern std::uint32_t BASE_DEFAULT_THREAD_STACK;
