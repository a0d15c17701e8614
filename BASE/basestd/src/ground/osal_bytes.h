#pragma once

#include <string>

// Paths and texts are bytes (`unsigned char`) to the library's callers and characters to the
// system: the same memory under the other type. A null pointer stays one.

inline const char* osal_chars(const unsigned char* bytes) {
  return reinterpret_cast<const char*>(bytes);
}

inline char* osal_chars(unsigned char* bytes) { return reinterpret_cast<char*>(bytes); }

inline const unsigned char* osal_bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

/// With the NUL behind it; valid as long as `text` is and stays unchanged.
inline const unsigned char* osal_bytes(const std::string& text) { return osal_bytes(text.c_str()); }
