#include "Updater/trust/trustedRoot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"
#include "tuf/Client.h"
#include "tuf/Error.h"
#include "tuf/Folder.h"
#include "tuf/trustedSet.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kRootFile = "root.json";
constexpr std::size_t kMostBytes = std::size_t{512} << 10;

void follow(tuf::Folder& store, const std::string& root) try {
  tuf::Client::follow(store, root);
} catch (const tuf::Error& e) {
  if (e.kind() == tuf::ErrorKind::Storage) throw;
  throw std::runtime_error(
      "another root is trusted already, and this one does not follow from it; --replace begins "
      "anew");
}

}  // namespace

RootRead readRootFile(const std::string& path) {
  RootRead read;
  const ScopedFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const int error = fd ? osal_readAll(fd.get(), read.text, kMostBytes) : errno;
  if (error != 0) {
    read.fault = "cannot read " + path + ": " + std::strerror(error);
    return read;
  }
  try {
    const tuf::TrustedSet trusted(read.text, std::time(nullptr));
    const tuf::Root& root = trusted.root();
    const tuf::RoleKeys& keys = root.roles.at("root");
    read.facts = {.version = root.version,
                  .expires = root.expires,
                  .keyIds = {keys.keyIds.begin(), keys.keyIds.end()},
                  .threshold = keys.threshold};
  } catch (const tuf::Error& e) {
    read.fault = path + " is no root to trust: " + e.what();
  }
  return read;
}

std::string storedRootFault(const std::string& folder) {
  const std::string path = folder + "/" + kRootFile;
  if (::access(path.c_str(), F_OK) != 0) return {};
  const RootRead stored = readRootFile(path);
  if (stored.fault.empty()) return {};
  return stored.fault + "; qd-update trust ROOT.json --replace begins anew";
}

std::string placeRoot(const std::string& folder, const RootRead& root, bool replace) try {
  fs::create_directories(fs::path(folder).parent_path());
  // Whoever could open it could keep every run waiting for its lock.
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    return "cannot create " + folder + ": " + std::strerror(errno);
  }
  tuf::Folder store(folder);
  if (replace) {
    tuf::Client::trust(store, root.text);
    for (const char* const role : {"timestamp.json", "snapshot.json", "targets.json"}) {
      store.remove(role);
    }
    return {};
  }
  const auto stored = store.read(kRootFile, kMostBytes);
  if (stored == root.text) return {};
  if (std::string fault = storedRootFault(folder); !fault.empty()) return fault;
  if (stored) {
    follow(store, root.text);
  } else {
    tuf::Client::trust(store, root.text);
  }
  return {};
} catch (const std::exception& e) {
  return e.what();
}

TrustCopy::TrustCopy(const std::string& folder) : scratch_("qd-update") {
  std::error_code unreadable;
  fs::copy(folder, scratch_.path(), fs::copy_options::none, unreadable);
}
