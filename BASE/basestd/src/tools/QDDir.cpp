#include "tools/QDDir.h"

#include <boost/algorithm/string/split.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "ground/osal_bytes.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDException.h"
#include "tools/QDPathOps.h"

using QDPathOps::fail;

QDDir::QDDir(bool tolerant) : warnOnly(tolerant) {}

QDDir::~QDDir() {
  if (opened) _close();
}

void QDDir::_open(const unsigned char* path) {
  qdTraced([&] {
    if (opened) {
      QDLOG(OSAL, warnOnly ? WRN : ERR, "Directory handle already in use, close it");
      _close();
    }
    if (dir.openDir(path, warnOnly) != 0) {
      dir.closeDir(false, warnOnly);  // a path that is too long leaves it open
      fail(warnOnly, "Cannot open directory ", path);
    }
    opened = true;
  });
}

void QDDir::_close() {
  opened = false;
  if (dir.closeDir(true, warnOnly) != 0) QDLOG(OSAL, EL2, "Cannot close directory !");
}

const unsigned char* QDDir::read(QDFileType* type) {
  return qdTraced([&]() -> const unsigned char* {
    const auto refuse = [&](const char* text) {
      if (warnOnly) QD_THROW_TOLERABLE(text);
      QD_THROW_ERROR(text);
    };
    if (!opened) refuse("Directory not opened");
    if (dir.readDir(entry, sizeof entry, type, warnOnly) != 0) refuse("Cannot read directory");
    return *entry == '\0' ? nullptr : entry;
  });
}

bool QDDir::exists(const unsigned char* path) {
  return qdTraced(
      [&] { return QDPathOps::folderPathExists(path, false) && QDPathOps::isFolder(path, false); });
}

void QDDir::remove(const unsigned char* path) { QDPathOps::removeFolder(path); }

void QDDir::removeIfEmpty(const unsigned char* path, bool* removed) {
  qdTraced([&] {
    bool isRemoved = false;
    if (QDPathOps::folderPathExists(path, false)) {
      if (!QDPathOps::isFolder(path, false)) fail(false, "Exists and is not a directory : ", path);
      if (osal_rmdirIfEmpty(path, &isRemoved) != 0) {
        fail(false, "Cannot remove directory : ", path);
      }
    }
    if (removed != nullptr) *removed = isRemoved;
  });
}

bool QDDir::create(const unsigned char* path, bool createParents, QSDir_cbArgCreateDirs* cb) {
  return qdTraced([&] {
    bool existed = false;
    int result = osal_mkdir(path, &existed, createParents);
    if (result != 0 && createParents) {
      createParentsOfPath(path, cb);
      result = osal_mkdir(path, &existed, false);
    }
    if (result != 0) fail(false, "Cannot create directory : ", path);
    if (cb != nullptr && !existed) cb->dirCreated(path);
    return existed;
  });
}

bool QDDir::creates(const unsigned char* list, bool createParents, QSDir_cbArgCreateDirs* cb) {
  return qdTraced([&] {
    if (list == nullptr) fail(false, "Cannot create directory : ", list);
    std::vector<std::string> paths;
    const std::string_view text = osal_chars(list);
    boost::split(paths, text, [](char c) { return c == ';'; });
    bool existed = false;
    for (const std::string& path : paths) {
      if (path.empty()) continue;
      existed = create(osal_bytes(path), createParents, cb);
    }
    return existed;
  });
}

void QDDir::createParentsOfPath(const unsigned char* path, QSDir_cbArgCreateDirs* cb) {
  QDPathOps::createParents(path, cb);
}
