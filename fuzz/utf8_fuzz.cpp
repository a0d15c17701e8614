// UTF-8 repair: the result is valid, and repairing it again changes nothing.

#include "FuzzTarget.h"
#include "tools/QDSys.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzzText(data, size);
  std::string once;
  std::string twice;
  QDSys::fixedUTF8(reinterpret_cast<const unsigned char*>(text.c_str()), once);
  QDSys::fixedUTF8(reinterpret_cast<const unsigned char*>(once.c_str()), twice);
  fuzzExpect(once == twice);
  return 0;
}
