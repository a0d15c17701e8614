#pragma once

#include <string>

/// The answer of `uname`.
struct OSAL_uname {
  std::string sysname;
  std::string nodename;
  std::string release;
  std::string version;
  std::string machine;
};

/// Fills `u`. Returns 0, or -1 after logging, with `u` unchanged.
int osal_GetUname(OSAL_uname& u);

/// The network host name; empty after logging when there is none.
std::string osal_getHostname();

/// The machine's own identifier as 32 upper-case hexadecimal digits and a NUL. Returns 0, or -1
/// after logging: fewer than 33 bytes in `buf`, or the system has none.
int osal_getHostUID(char* buf, unsigned int size);

/// A new time-based UUID in the same form, with the same results.
int osal_genUUID(char* buf, unsigned int size);

/// The machine's name for people, in UTF-8 and terminated. Returns 0, or -1 after logging: there is
/// none, nothing of it converts, or it does not fit into the `size` bytes of `buf`.
int osal_getcomputername(unsigned char* buf, unsigned int size);
