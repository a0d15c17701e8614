#include "tuf/threshold.h"

#include <algorithm>
#include <vector>

#include "tuf/Error.h"

namespace tuf {
namespace {

/// The key that made the signature, or null.
KeyPtr signer(const Envelope& file, const Signature& signature, const Keys& keys,
              const RoleKeys& role) {
  const auto listed = keys.find(signature.keyId);
  if (!role.keyIds.contains(signature.keyId) || listed == keys.end()) return nullptr;
  KeyPtr key = loadKey(listed->second);
  const std::optional<std::string> bytes = fromHex(signature.digits);
  if (!key || !bytes || !isSignature(key.get(), file.canonical, *bytes)) return nullptr;
  return key;
}

}  // namespace

void requireThreshold(const Envelope& file, const Keys& keys, const RoleKeys& role,
                      const std::string& name) {
  std::vector<KeyPtr> counted;
  for (const Signature& signature : file.signatures) {
    if (counted.size() == role.threshold) return;
    KeyPtr key = signer(file, signature, keys, role);
    const bool seen = key && std::any_of(counted.begin(), counted.end(), [&](const KeyPtr& other) {
                        return EVP_PKEY_eq(key.get(), other.get()) == 1;
                      });
    if (key && !seen) counted.push_back(std::move(key));
  }
  if (counted.size() < role.threshold) {
    throw Error(ErrorKind::Unsigned, name + " has valid signatures of " +
                                         std::to_string(counted.size()) + " keys, not of " +
                                         std::to_string(role.threshold));
  }
}

}  // namespace tuf
