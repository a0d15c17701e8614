#include "base/osal/MacOS/cftext.h"

bool cftext_toUtf8(CFStringRef text, std::size_t size, std::string& utf8) {
  std::string buffer(size, '\0');
  if (!CFStringGetCString(text, buffer.data(), static_cast<CFIndex>(size), kCFStringEncodingUTF8)) {
    return false;
  }
  utf8 = buffer.c_str();
  return true;
}
