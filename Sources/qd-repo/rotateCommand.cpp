#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "ground/osal_replacefile.h"
#include "qd-repo/ListedRelease.h"
#include "qd-repo/commands.h"
#include "qd-repo/plainFiles.h"
#include "qd-repo/workplace.h"
#include "tuf/Error.h"
#include "tufrepo/rotation.h"

namespace {

void writeWaiting(const std::string& file, const std::string& root) {
  if (osal_replaceFile(file.c_str(), root, 0644, true) == 0) return;
  throw std::runtime_error("Cannot write " + file + ": name another place by --out");
}

std::string readWaiting(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(in), {}};
  if (in && !text.empty()) return text;
  throw std::runtime_error("Cannot read " + file + ": name the root that rotate wrote");
}

/// The root with this content, or the one of the same change that waits in the file already. One of
/// another change is an error: others may have signed it.
std::string begun(const tuf::Json& content, const std::string& file) {
  if (!std::filesystem::exists(file)) return tuf::sign(content, {});
  std::string waiting = readWaiting(file);
  const tuf::Json there = tuf::Json::parse(waiting, nullptr, false);
  tuf::Json same = {{"signed", content}};
  if (there.is_object() && there.contains("/signed/expires"_json_pointer)) {
    same["signed"]["expires"] = there["signed"]["expires"];
    same["signatures"] = there.value("signatures", tuf::Json());
  }
  if (there == same) return waiting;
  throw std::runtime_error(file + " is there already: sign it, or remove it to begin anew");
}

/// Puts the root in place where it may be, else leaves it in `file` and says what it waits for.
int installOrKeep(tufrepo::Repository& repository, tufrepo::KeyRing& keys, const std::string& root,
                  const std::string& file) {
  writeWaiting(file, root);
  std::cout << tufrepo::changesOf(root, repository.root());
  const std::string missing = tufrepo::missingSignatures(root, repository.root());
  if (!missing.empty()) {
    std::cout << file << " waits: " << missing << "\nSign it: qd-repo sign " << repository.folder()
              << ' ' << file << " --key KEY\n";
    return 0;
  }
  const std::time_t now = present();
  try {
    if (!repository.install(root, keys, now)) {
      std::cout << "Keys of before were not at hand: clients that came in this moment wait for "
                   "their next run\n";
    }
  } catch (const tuf::Error&) {
    throw;  // nothing that keys could help with
  } catch (const std::runtime_error& e) {
    std::cout << file << " has all its signatures, but is not in place: " << e.what()
              << "\nWhere the keys are: qd-repo sign " << repository.folder() << ' ' << file
              << " --keys DIR\n";
    return 0;
  }
  (void)std::remove(file.c_str());
  writePlainFiles(repository, now);
  std::cout << "Root " << repository.root().version << " is in place\n";
  warnOfExpiry(repository, now);
  return 0;
}

}  // namespace

int rotateKeys(const RepoOptions& options) {
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  const std::string file = options.file.empty()
                               ? std::to_string(repository.root().version + 1) + ".root.json"
                               : options.file;
  requireOutside(file, options.repository);
  tufrepo::RoleChange change{options.role, {}, options.remove, options.threshold, {}};
  for (const std::string& added : options.add) change.add.push_back(tufrepo::readPublicKey(added));
  for (const auto& [role, life] : options.lives) change.lives[role] = life;
  const auto content = tufrepo::nextRoot(repository, change, present());
  const std::string root = tufrepo::signRoot(begun(content, file), repository.root(), keys);
  return installOrKeep(repository, keys, root, file);
}

int signRoot(const RepoOptions& options) {
  if (options.keyFile.empty() && options.keys.empty()) {
    throw std::runtime_error("Nothing to sign with: name a key by --key or a folder by --keys");
  }
  requireOutside(options.file, options.repository);
  tufrepo::KeyRing keys = keysOf(options);
  tufrepo::Repository repository(options.repository, sayWaiting);
  const std::string waiting = readWaiting(options.file);
  try {
    const std::string root = tufrepo::signRoot(waiting, repository.root(), keys);
    const auto count = [](const std::string& text) {
      return tuf::Envelope(text).signatures.size();
    };
    if (count(root) == count(waiting) &&
        !tufrepo::missingSignatures(root, repository.root()).empty()) {
      throw std::runtime_error(
          "No key that was given is a root key that has not signed yet: "
          "status shows the key ids");
    }
    return installOrKeep(repository, keys, root, options.file);
  } catch (const tuf::Error& e) {
    if (e.kind() != tuf::ErrorKind::Malformed) throw;
    throw std::runtime_error(options.file + " is no root (" + e.what() +
                             "): name the one that rotate wrote");
  }
}
