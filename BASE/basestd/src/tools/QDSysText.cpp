#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include "ground/osal_bytes.h"
#include "ground/osal_hex.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

bool parse(const char* s, unsigned int base, unsigned long long& value) {
  constexpr unsigned long long kMax = std::numeric_limits<unsigned long long>::max();
  value = 0;
  if (s == nullptr || *s == '\0') return false;
  unsigned long long number = 0;
  for (; *s != '\0'; ++s) {
    const unsigned int digit = osal_hexValue(static_cast<std::uint8_t>(*s));
    if (digit >= base || number > (kMax - digit) / base) return false;
    number = number * base + digit;
  }
  value = number;
  return true;
}

unsigned long long parse(const char* s, unsigned int base, bool* ok) {
  unsigned long long value = 0;
  const bool valid = parse(s, base, value);
  if (ok != nullptr) *ok = valid;
  return value;
}

}  // namespace

void QDSys::_checkArgs(const char* function, const void* first, const void* second) {
  if (first == nullptr) QD_THROW_ERROR(function << ": First arg is NULL");
  if (second == nullptr) QD_THROW_ERROR(function << ": Second arg is NULL");
}

unsigned int QDSys::strlen(const unsigned char* s) {
  if (s == nullptr) QD_THROW_ERROR("strlen: Arg is NULL");
  const std::size_t length = std::strlen(osal_chars(s));
  if (length > std::numeric_limits<unsigned int>::max()) QD_THROW_ERROR("strlen: too long");
  return static_cast<unsigned int>(length);
}

void QDSys::memcpy(void* dst, const void* src, unsigned int n) {
  _checkArgs("memcpy", dst, src);
  std::memcpy(dst, src, n);
}

bool QDSys::strIsEqual(const unsigned char* a, const unsigned char* b) {
  _checkArgs("strIsEqual", a, b);
  return std::strcmp(osal_chars(a), osal_chars(b)) == 0;
}

bool QDSys::strIsNEqual(const unsigned char* a, const unsigned char* b, unsigned int n) {
  _checkArgs("strIsNEqual", a, b);
  return std::strncmp(osal_chars(a), osal_chars(b), n) == 0;
}

void QDSys::strncpy(unsigned char* dst, const unsigned char* src, unsigned int size, bool strict) {
  _checkArgs("strncpy", dst, src);
  const std::size_t length = ::strnlen(osal_chars(src), size);
  if (strict && length == size) QD_THROW_ERROR("strncpy: Cannot copy string (overflow)");
  std::memcpy(dst, src, length);
  std::memset(dst + length, 0, size - length);
}

void QDSys::snprintf(char* buf, unsigned int size, const char* format, ...) {
  if (format == nullptr) QD_THROW_ERROR("snprintf: format is NULL");
  if (buf == nullptr && size > 0) QD_THROW_ERROR("snprintf: buf is NULL");
  std::va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(buf, size, format, args);
  va_end(args);
  if (length < 0) QD_THROW_ERROR("osal_vsnprintf failed");
}

unsigned long long QDSys::atoll(const char* s, bool* ok) { return parse(s, 10, ok); }

bool QDSys::atoll(const char* s, unsigned long long& value) { return parse(s, 10, value); }

unsigned long long QDSys::atoll16(const char* s, bool* ok) { return parse(s, 16, ok); }

bool QDSys::atoll16(const char* s, unsigned long long& value) { return parse(s, 16, value); }
