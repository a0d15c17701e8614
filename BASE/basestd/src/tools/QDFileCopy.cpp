#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "ground/osal_bytes.h"
#include "ground/osal_fileid.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDException.h"
#include "tools/QDFile.h"
#include "tools/QDSys.h"

namespace {

constexpr unsigned int kCopyChunk = 32768;
constexpr std::string_view kBackupSuffix = ".bak";
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

std::string backupName(const unsigned char* path) {
  if (QDSys::strlen(path) + kBackupSuffix.size() > QDFile::kMaxPath) {
    QD_THROW_ERROR(
        "Cannot create .bak (path too long), and something exists at path : " << QDLogPath(path));
  }
  return osal_chars(path) + std::string(kBackupSuffix);
}

bool isAt(const struct stat& file, const unsigned char* path) {
  return osal_fileId(osal_chars(path)) == osal_fileIdOf(file);
}

/// The status of the open file, which must be a regular one, whatever its name leads to by now.
struct stat regularStatus(int fd, const unsigned char* path) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) QD_THROW_ERROR("Cannot get type of path : " << QDLogPath(path));
  if (!S_ISREG(info.st_mode)) QD_THROW_ERROR("Not a regular file : " << QDLogPath(path));
  return info;
}

}  // namespace

void QDFile::copy(const unsigned char* src, const unsigned char* dst, bool keepBackup) {
  qdTraced([&] {
    if (getType(src) != QD_FILETYPE_REG) QD_THROW_ERROR("Not a regular file : " << QDLogPath(src));
    const bool replaces = exists(dst);
    if (replaces && !keepBackup) QD_THROW_ERROR("Something exists at path : " << QDLogPath(dst));
    const std::string backup = replaces ? backupName(dst) : "";

    QDFile source;
    source.open(src, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK);
    const struct stat info = regularStatus(source.file.fd, src);
    if (replaces) {
      if (isAt(info, dst) || isAt(info, osal_bytes(backup))) {
        QD_THROW_ERROR("Something exists at path : " << QDLogPath(dst));
      }
      remove(osal_bytes(backup));
      rename(dst, osal_bytes(backup));
    }

    QDFile target;
    try {
      target.open(dst, QD_OPENMODE_RWNOTEXISTING, OSAL_OPEN_LOCK);
      target.takePermissions(info.st_mode & kPermissions, dst);
      target.takeContent(source);
    } catch (...) {
      target.takeBack(dst, backup);
      throw;
    }
    target.close();
    source.close();
  });
}

/// Comes before the content, which may not be meant for everybody. A file system without
/// permissions is no reason to refuse the copy.
void QDFile::takePermissions(unsigned int bits, const unsigned char* path) {
  if (::fchmod(file.fd, static_cast<mode_t>(bits)) == 0) return;
  const int error = errno;
  QDLOG(OSAL, WRN, "Cannot set permissions (" << error << ") at path : " << QDLogPath(path));
}

void QDFile::takeContent(QDFile& source) {
  const unsigned long long size = source.getSize();
  if (size == 0) return;
  std::vector<unsigned char> chunk(kCopyChunk);
  unsigned long long total = 0;
  unsigned int count = 0;
  do {
    count = source.read(chunk.data(), kCopyChunk);
    writeFix(chunk.data(), count);
    total += count;
  } while (count == kCopyChunk);
  // Somebody cut the source meanwhile: a lock only stops those who ask for it.
  if (total < size) QD_THROW_ERROR("Read size (" << total << ") != asked size (" << size << ")");
}

/// Removes the incomplete copy, if it was created at all, and puts the backup back, if there is
/// one. Somebody else's file at `path` stays.
void QDFile::takeBack(const unsigned char* path, const std::string& backup) {
  if (opened) {
    opened = false;
    if (file.close(false, false) != 0) QDLOG(OSAL, EL2, "Cannot close file !");
    osal_rmfile(path, nullptr, false);
  }
  bool isTaken = true;
  if (!backup.empty() && osal_exists(path, &isTaken, false) == 0 && !isTaken) {
    osal_rename(osal_bytes(backup), path, false);
  }
}
