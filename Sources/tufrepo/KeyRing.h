#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tuf/metadata.h"
#include "tuf/signer.h"
#include "tufrepo/keyFile.h"

namespace tufrepo {

/// A folder of private keys: NAME.pem with the public key NAME.pub beside it, so that an encrypted
/// key asks for its passphrase only where it is to sign. All functions throw std::runtime_error.
class KeyRing {
 public:
  explicit KeyRing(AskPassphrase ask) : ask_(std::move(ask)) {}

  /// All keys of the folder. No folder, or one without keys, is an error.
  void addFolder(const std::string& folder);
  void addFile(const std::string& file);

  /// Those of the keys that are here.
  [[nodiscard]] std::vector<tuf::PrivateKey> available(const std::set<std::string>& keyIds);

  /// The same; fewer than the threshold is an error, which names the role.
  [[nodiscard]] std::vector<tuf::PrivateKey> needed(const std::string& role,
                                                    const tuf::RoleKeys& keys);

 private:
  AskPassphrase ask_;
  std::map<std::string, std::string> files_;  ///< by key id
  std::map<std::string, tuf::PrivateKey> loaded_;
};

/// The keys of a role in a folder: those that are there, and new ones to make up `count`. The
/// folder is created for its owner's eyes only; so are the files, encrypted unless the passphrase
/// is empty.
[[nodiscard]] std::vector<tuf::Key> makeKeys(const std::string& folder, const std::string& role,
                                             unsigned count, bool ecdsa,
                                             const std::string& passphrase,
                                             const AskPassphrase& ask);

}  // namespace tufrepo
