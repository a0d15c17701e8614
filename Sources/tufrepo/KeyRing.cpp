#include "tufrepo/KeyRing.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "ground/osal_replacefile.h"

namespace tufrepo {
namespace {

namespace fs = std::filesystem;

std::string publicFileOf(const std::string& file) {
  return fs::path(file).replace_extension(".pub").string();
}

void writeKey(const std::string& file, const std::string& pem, mode_t mode) {
  const int error = osal_replaceFile(file.c_str(), pem, mode, true);
  if (error == 0) return;
  throw std::runtime_error("Cannot write the key " + file + ": " +
                           std::generic_category().message(error));
}

void makeFolder(const std::string& folder) {
  std::error_code failure;
  if (fs::create_directories(folder, failure)) {
    fs::permissions(folder, fs::perms::owner_all, failure);
  }
  if (failure) {
    throw std::runtime_error("Cannot create the folder " + folder + ": " + failure.message());
  }
}

tuf::Key keyIn(const std::string& file, const AskPassphrase& ask) {
  const std::string publicFile = publicFileOf(file);
  return fs::exists(publicFile) ? readPublicKey(publicFile) : readPrivateKey(file, ask).publicKey();
}

}  // namespace

void KeyRing::addFolder(const std::string& folder) {
  std::error_code failure;
  const std::size_t before = files_.size();
  for (const auto& entry : fs::directory_iterator(folder, failure)) {
    if (entry.path().extension() == ".pem") addFile(entry.path().string());
  }
  if (failure || files_.size() == before) {
    throw std::runtime_error("There are no keys (*.pem) in " + folder +
                             ": name the folder that init made by --keys");
  }
}

void KeyRing::addFile(const std::string& file) {
  files_.insert_or_assign(tuf::keyId(keyIn(file, ask_)), file);
}

std::vector<tuf::PrivateKey> KeyRing::available(const std::set<std::string>& keyIds) {
  std::vector<tuf::PrivateKey> keys;
  for (const std::string& id : keyIds) {
    const auto file = files_.find(id);
    if (file == files_.end()) continue;
    auto known = loaded_.find(id);
    if (known == loaded_.end()) {
      known = loaded_.emplace(id, readPrivateKey(file->second, ask_)).first;
      if (known->second.id() != id) {
        throw std::runtime_error(publicFileOf(file->second) + " is not the public key of " +
                                 file->second);
      }
    }
    keys.push_back(known->second);
  }
  return keys;
}

std::vector<tuf::PrivateKey> KeyRing::needed(const std::string& role, const tuf::RoleKeys& wanted) {
  std::vector<tuf::PrivateKey> keys = available(wanted.keyIds);
  if (keys.size() >= wanted.threshold) return keys;
  std::string ids;
  for (const std::string& id : wanted.keyIds) ids += (ids.empty() ? "" : ", ") + id.substr(0, 12);
  throw std::runtime_error("The role " + role + " takes " + std::to_string(wanted.threshold) +
                           " of the keys " + ids + ", and " + std::to_string(keys.size()) +
                           " are at hand: name their folder by --keys");
}

std::vector<tuf::Key> makeKeys(const std::string& folder, const std::string& role, unsigned count,
                               bool ecdsa, const std::string& passphrase,
                               const AskPassphrase& ask) {
  makeFolder(folder);
  std::vector<tuf::Key> keys;
  for (unsigned i = 1; i <= count; ++i) {
    const std::string name = role + (i == 1 ? "" : "-" + std::to_string(i));
    const std::string file = (fs::path(folder) / (name + ".pem")).string();
    if (fs::exists(file)) {
      keys.push_back(keyIn(file, ask));
      continue;
    }
    const tuf::PrivateKey key =
        ecdsa ? tuf::PrivateKey::generateEcdsa() : tuf::PrivateKey::generateEd25519();
    writeKey(file, privatePem(key, passphrase), 0600);
    writeKey(publicFileOf(file), publicPem(key), 0644);
    keys.push_back(key.publicKey());
  }
  return keys;
}

}  // namespace tufrepo
