#include "tools/QDPathOps.h"

#include <fcntl.h>

#include <cstddef>
#include <string>
#include <vector>

#include "ground/osal_bytes.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDException.h"
#include "tools/QDSys.h"

namespace {

constexpr int kAttempts = 4;

/// Repeats `attempt` until it returns 0. Each failure is followed by `report` and a pause. Returns
/// whether it succeeded.
template <typename Attempt, typename Report>
bool persist(Attempt attempt, Report report, const char* reason) {
  for (int i = 0; i < kAttempts; ++i) {
    if (attempt() == 0) return true;
    report();
    QDSys::sleep(1, nullptr, reason);
  }
  return false;
}

/// The missing directories above `path`, the deepest first. The root is not asked for.
std::vector<std::string> missingParents(std::string path) {
  std::vector<std::string> missing;
  for (;;) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return missing;
    path.resize(slash);
    if (QDPathOps::folderPathExists(osal_bytes(path), false)) return missing;
    missing.push_back(path);
  }
}

}  // namespace

void QDPathOps::fail(bool warnOnly, const char* text, const unsigned char* path) {
  if (warnOnly) QD_THROW_TOLERABLE(text << QDLogPath(path));
  QD_THROW_ERROR(text << QDLogPath(path));
}

bool QDPathOps::removeFile(const unsigned char* path) {
  return removeFileAt(AT_FDCWD, osal_chars(path), path);
}

bool QDPathOps::removeFileAt(int folder, const char* name, const unsigned char* path) {
  return qdTraced([&] {
    bool removed = false;
    const auto attempt = [&] { return osal_rmfileAt(folder, name, path, &removed, false); };
    const auto report = [&] { QDLOG(OSAL, ERR, "Cannot remove file: " << QDLogPath(path)); };
    if (!persist(attempt, report, "QDFile::remove failure -> pause before retry")) {
      fail(false, "Cannot remove file: ", path);
    }
    return removed;
  });
}

void QDPathOps::removeFolder(const unsigned char* path) {
  qdTraced([&] {
    const auto attempt = [&] { return osal_rmdir(path, nullptr); };
    const auto report = [&] { QDLOG(OSAL, ERR, "Cannot remove directory: " << QDLogPath(path)); };
    if (!persist(attempt, report, "QDDir::remove failure -> pause before retry")) {
      fail(false, "Cannot remove directory : ", path);
    }
  });
}

void QDPathOps::rename(const unsigned char* from, const unsigned char* to) {
  qdTraced([&] {
    const auto attempt = [&] { return osal_rename(from, to, false); };
    const auto report = [&] {
      QDLOG(OSAL, ERR, "Cannot rename path " << QDLogPath(from) << " -> path " << QDLogPath(to));
    };
    if (!persist(attempt, report, "QDFile::rename failure -> pause before retry")) {
      QD_THROW_ERROR("Cannot rename path " << QDLogPath(from) << " -> path " << QDLogPath(to));
    }
  });
}

bool QDPathOps::folderPathExists(const unsigned char* path, bool warnOnly) {
  bool exists = false;
  if (osal_exists(path, &exists, false) != 0) {
    fail(warnOnly, "Cannot check if directory exists : ", path);
  }
  return exists;
}

bool QDPathOps::isFolder(const unsigned char* path, bool warnOnly) {
  QDFileType type{};
  if (osal_getFileType(path, &type, false) != 0) {
    fail(warnOnly, "Cannot check if is a directory : ", path);
  }
  return type == QD_FILETYPE_DIR;
}

bool QDPathOps::createFolder(const unsigned char* path) {
  return qdTraced([&] {
    bool existed = false;
    if (osal_mkdir(path, &existed, false) != 0) fail(false, "Cannot create directory : ", path);
    return existed;
  });
}

void QDPathOps::createParents(const unsigned char* path, QSDir_cbArgCreateDirs* cb) {
  qdTraced([&] {
    if (path == nullptr) return;
    const std::vector<std::string> missing = missingParents(osal_chars(path));
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
      const bool existed = createFolder(osal_bytes(*folder));
      if (cb != nullptr && !existed) cb->dirCreated(osal_bytes(*folder));
    }
  });
}
