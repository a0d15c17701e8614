// JSON and its canonical form: one form for all spellings of a value.

#include <algorithm>

#include "FuzzTarget.h"
#include "tuf/Error.h"
#include "tuf/canonicalJson.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const tuf::Json value = tuf::parseJson(fuzzText(data, size));
    const std::string canonical = tuf::canonicalJson(value);
    fuzzExpect(tuf::canonicalJson(tuf::parseJson(value.dump(1, ' ', true))) == canonical);
    // Control characters are not escaped in it, so that it need not be JSON itself.
    if (std::none_of(canonical.begin(), canonical.end(),
                     [](char c) { return c >= 0 && c < ' '; })) {
      fuzzExpect(tuf::parseJson(canonical) == value);
    }
  } catch (const tuf::Error& e) {
    fuzzExpect(e.kind() == tuf::ErrorKind::Malformed);
  }
  return 0;
}
