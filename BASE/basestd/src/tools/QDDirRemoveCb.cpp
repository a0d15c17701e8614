#include "tools/QDDirRemoveCb.h"

#include <fcntl.h>

#include <string_view>

#include "ground/osal_bytes.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDException.h"
#include "tools/QDPathOps.h"

namespace {

const char* lastComponent(const unsigned char* path) {
  const std::string_view text = osal_chars(path);
  return text.data() + text.rfind('/') + 1;  // all of it without a slash
}

}  // namespace

QSDirRemoveRecCb::QSDirRemoveRecCb() : folder_(AT_FDCWD) {}

bool QSDirRemoveRecCb::processItem(const unsigned char* path, QDFileType type) {
  const char* const name = folder_ == AT_FDCWD ? osal_chars(path) : lastComponent(path);
  switch (type) {
    case QD_FILETYPE_REG:
    case QD_FILETYPE_SYMLINK:
    case QD_FILETYPE_EFS:
    case QD_FILETYPE_FIFO:
    case QD_FILETYPE_SOCK:
    case QD_FILETYPE_BSPE:
    case QD_FILETYPE_CSPE:
    case QD_FILETYPE_DOOR:
      try {
        QDPathOps::removeFileAt(folder_, name, path);
        return true;
      } catch (const QDException& exception) {
        qdTraceException(exception, "ECSP");
        QDLOG(OSAL, ERR, "Cannot remove file of type " << type << " : " << QDLogPath(path));
        throw;  // the tree stays, which the caller has to know
      }
    case QD_FILETYPE_DIR:
      if (osal_rmdirAt(folder_, name, path, nullptr) == 0) return true;
      QDPathOps::fail(false, "Cannot remove directory : ", path);
    default:
      QD_THROW_ERROR("Cannot remove file (unknown type " << static_cast<int>(type)
                                                         << ") : " << QDLogPath(path));
  }
}
