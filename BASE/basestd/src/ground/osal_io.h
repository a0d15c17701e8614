#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

// Reading and writing that a signal does not end.

/// Reads up to `size` bytes, as `read` does: returns how many came, 0 at the end of the file, -1
/// with errno set.
ssize_t osal_readSome(int fd, void* buf, std::size_t size);

/// Appends what the file still holds to `text`, at most `limit` bytes. Returns 0 or an errno value;
/// what came before a failure stays appended.
int osal_readAll(int fd, std::string& text, std::size_t limit);

/// Writes all of `text`, usually with one call. Returns how many bytes were written; when that is
/// fewer, errno says why.
std::size_t osal_writeAll(int fd, std::string_view text);
