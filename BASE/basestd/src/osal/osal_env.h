#pragma once

/// The process's environment. Neither function is synchronised with the other: set variables while
/// there is one thread.

/// Sets the variable `key` to `value`, replacing what it was.
/// Returns 0, or -1 after logging (a null argument, or the system's refusal).
int osal_setEnv(const char* key, const char* value);

/// Copies the variable `key` with its terminating NUL into the `size` bytes of `value`.
///
/// A variable that does not exist comes back as the empty string with result 0, like an empty one;
/// only the log (WRN) shows the difference. Returns -1, with `value` untouched, after logging a
/// null key or a buffer that is too small.
int osal_getEnv(const char* key, char* value, unsigned int size);
