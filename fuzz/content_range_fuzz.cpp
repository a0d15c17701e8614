// What a server says of the part that it sends.

#include "FuzzTarget.h"
#include "Updater/download/contentRange.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzzText(data, size);
  const auto range = parseContentRange(text);
  if (!range) return 0;
  fuzzExpect(range->first || range->total);
  if (range->first) fuzzExpect(std::stoull(text.substr(text.find('-') + 1)) >= *range->first);
  const std::string first = range->first ? std::to_string(*range->first) + "-" : "*/";
  const std::string total = range->total ? std::to_string(*range->total) : "*";
  // Leading zeros are left out of what is told again.
  if (text.find(" 0") == std::string::npos && text.find("/0") == std::string::npos) {
    fuzzExpect(text.starts_with("bytes " + first) && text.ends_with("/" + total));
  }
  return 0;
}
