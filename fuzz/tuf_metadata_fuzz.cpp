// A metadata file as any role's, up to the root that a trusted set begins with.

#include "FuzzTarget.h"
#include "tuf/Error.h"
#include "tuf/delegation.h"
#include "tuf/trustedSet.h"

namespace {

template <typename Parse>
void tryAs(const Parse& parse, const tuf::Json& content) {
  try {
    const auto document = parse(tuf::Json(content));
    fuzzExpect(document.version > 0);
  } catch (const tuf::Error& e) {
    fuzzExpect(e.kind() == tuf::ErrorKind::Malformed);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzzText(data, size);
  try {
    const tuf::Envelope envelope(text);
    tryAs(tuf::parseRoot, envelope.content);
    tryAs(tuf::parseTimestamp, envelope.content);
    tryAs(tuf::parseSnapshot, envelope.content);
    tryAs(
        [](tuf::Json&& content) {
          const tuf::Targets targets = tuf::parseTargets(std::move(content));
          for (const std::string path : {"a", "a/b", "linux/amd64/p_1.deb"}) {
            for (const auto& delegation : tuf::delegationsFor(targets, path)) {
              fuzzExpect(!delegation.role.empty());
            }
          }
          return targets;
        },
        envelope.content);
    const tuf::TrustedSet trusted(text, 0);
    fuzzExpect(trusted.root().roles.size() >= 4);
  } catch (const tuf::Error&) {
    // Refused: nothing of it is used.
  }
  return 0;
}
