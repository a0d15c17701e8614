#include "tools/QDFile.h"

#include "ground/osal_bytes.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDException.h"
#include "tools/QDPathOps.h"

QDFile::~QDFile() {
  if (opened) close();
}

void QDFile::open(const unsigned char* path, QDOpenMode mode, unsigned short options) {
  qdTraced([&] {
    if (opened) {
      QDLOG(OSAL, ERR, "File handle already in use, close it");
      close();
    }
    const bool mayCreate = mode == QD_OPENMODE_RWNOTEXISTING || mode == QD_OPENMODE_RWCANCREATE;
    const bool withParents = mayCreate && (options & QDFILE_OPEN_PARENTS) != 0;
    int result = file.open(path, mode, options, withParents);
    if (result != 0 && withParents) {
      QDPathOps::createParents(path, nullptr);
      result = file.open(path, mode, options, false);
    }
    if (result != 0) QD_THROW_ERROR("Cannot open file " << QDLogPath(path));
    opened = true;
  });
}

void QDFile::close() {
  opened = false;
  if (file.close(false, true) != 0) QDLOG(OSAL, EL2, "Cannot close file !");
}

unsigned int QDFile::read(void* buf, unsigned int len) {
  return qdTraced([&] {
    requireOpen("read");
    unsigned int done = 0;
    while (done < len) {
      unsigned int count = len - done;
      if (file.read(static_cast<unsigned char*>(buf) + done, &count, false) != 0) {
        QD_THROW_ERROR("Cannot read file");
      }
      if (count == 0) break;
      done += count;
    }
    return done;
  });
}

void QDFile::readFix(void* buf, unsigned int len) {
  qdTraced([&] {
    requireOpen("readFix");
    const unsigned int count = read(buf, len);
    if (count != len) QD_THROW_ERROR("Read size (" << count << ") != asked size (" << len << ")");
  });
}

void QDFile::writeFix(const void* data, unsigned int len) {
  qdTraced([&] {
    requireOpen("writeFix");
    if (file.writeFix(data, len) != 0) QD_THROW_ERROR("Cannot write to file");
  });
}

void QDFile::truncate(unsigned long long size) {
  qdTraced([&] {
    requireOpen("truncate");
    if (file.truncate(size) != 0) QD_THROW_ERROR("Cannot truncate file");
  });
}

void QDFile::reset() {
  qdTraced([&] {
    requireOpen("reset");
    if (file.seekSet(0) != 0) QD_THROW_ERROR("Cannot go to beginning of file");
  });
}

void QDFile::seekSet(unsigned long long pos) {
  qdTraced([&] {
    requireOpen("seekSet");
    if (file.seekSet(pos) != 0) QD_THROW_ERROR("Cannot make seekSet");
  });
}

void QDFile::sync() {
  qdTraced([&] {
    requireOpen("sync");
    if (file.sync() != 0) QD_THROW_ERROR("Cannot sync");
  });
}

unsigned long long QDFile::getSize() {
  return qdTraced([&] {
    requireOpen("getSize");
    unsigned long long size = 0;
    if (file.getSize(&size, nullptr, false) != 0) QD_THROW_ERROR("Cannot get size");
    return size;
  });
}

void QDFile::requireOpen(const char* operation) const {
  if (!opened) QD_THROW_ERROR("File not opened (" << operation << ")");
}

bool QDFile::exists(const unsigned char* path) {
  return qdTraced([&] {
    bool exists = false;
    if (osal_exists(path, &exists, false) != 0) {
      QD_THROW_ERROR("Cannot check if file exists : " << QDLogPath(path));
    }
    return exists;
  });
}

bool QDFile::remove(const unsigned char* path) { return QDPathOps::removeFile(path); }

bool QDFile::createEmpty(const unsigned char* path) {
  return qdTraced([&] {
    if (exists(path)) return false;
    QDFile created;
    created.open(path, QD_OPENMODE_RWNOTEXISTING, QDFILE_OPEN_PARENTS);
    created.close();
    return true;
  });
}

QDFileType QDFile::getType(const unsigned char* path) {
  return qdTraced([&] {
    QDFileType type{};
    if (osal_getFileType(path, &type, false) != 0) {
      QD_THROW_ERROR("Cannot get type of path : " << QDLogPath(path));
    }
    return type;
  });
}

void QDFile::setAllRights(const unsigned char* path, bool silent) {
  qdTraced([&] {
    if (osal_setAllRights(path, silent) != 0) {
      QD_THROW_ERROR("Cannot set all rights at path : " << QDLogPath(path));
    }
  });
}

void QDFile::setTimes(const unsigned char* path, unsigned long long aTime,
                      unsigned long long mTime) {
  qdTraced([&] {
    if (osal_setTimes(path, aTime, mTime) != 0) QD_THROW_ERROR("Cannot set times");
  });
}

void QDFile::rename(const unsigned char* from, const unsigned char* to) {
  QDPathOps::rename(from, to);
}

const unsigned char* QDFile::cleanupPath(const unsigned char* in, unsigned char* out) {
  return qdTraced([&]() -> const unsigned char* {
    if (in == nullptr) return nullptr;
    if (*in == '\0') return osal_bytes("");
    if (*in != '/') QD_THROW_ERROR("Not an absolute path: " << QDLogPath(in));
    unsigned int length = 0;
    out[length++] = '/';
    const auto append = [&](unsigned char c) {
      if (length == kMaxPath) QD_THROW_ERROR("Path too long: " << QDLogPath(in));
      out[length++] = c;
    };
    for (const unsigned char* next = in + 1; *next != '\0'; ++next) {
      if (*next == '/') continue;
      if (next[-1] == '/' && length > 1)
        append('/');  // its slashes are behind it, and more follows
      append(*next);
    }
    out[length] = '\0';
    return out;
  });
}
