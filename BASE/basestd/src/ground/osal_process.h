#pragma once

#include <cstddef>

/// Stores the process id. Always returns 0. A null pointer is ignored.
int osal_getPid(unsigned int* pid);

/// Stores the calling thread's system-wide id: the kernel's thread id, or the thread handle's value
/// where the kernel has no answer. Always returns 0. A null pointer is ignored.
int osal_getThreadID(unsigned long long* id);

/// Names the calling thread; null or empty is ignored. Linux keeps the first 15 bytes.
void osal_setThreadName(const char* name);

/// Writes the calling thread's name and a NUL into the `len` bytes of `buf`. Returns 0 or the POSIX
/// error code (ERANGE: `buf` is too small).
int osal_getThreadName(char* buf, std::size_t len);
