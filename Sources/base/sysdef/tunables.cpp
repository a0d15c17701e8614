#include "base/sysdef/tunables.h"

#include "base/ground/tunablesValues.h"
#include "logging/QDLog.h"
#include "logging/QDLogPath.h"
#include "sysdef/qdTunablesBase.h"
#include "tools/QDBuffer.h"
#include "tools/QDException.h"
#include "tools/QDFile.h"

const QDTunablesS tunablesOVT[] = {
#define QD_TUNABLE QD_TUNABLE_RECORD
#include "base/ground/tunablesOVT.def"
};

namespace {

void applyToAll(const unsigned char* text) {
  QDTunables::tunablesUpdate(text, {tunablesOVT, tunablesBase});
}

void reportUnexpected() {
  QDLOG(PRFS, ERR, "Tunables - unexpected error while updating");
  QDLOG(EXCP, EL2, "ECEP");
}

constexpr unsigned int kMaxFile = 0x400000;

/// Reads the file into `buffer`, which has one byte more than is used, and terminates the text.
void readText(const unsigned char* path, unsigned char* buffer) {
  QDFile file;
  file.open(path, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK);
  unsigned int length = file.read(buffer, kMaxFile + 1);
  QDLOG(PRFS, DBG, "Tunables - read : " << length << " B");
  file.close();
  if (length > kMaxFile) {
    QDLOG(PRFS, ERR, "Tunables - file too big (>" << kMaxFile << ") -> will be truncated");
    length = kMaxFile;
  }
  buffer[length] = '\0';
}

void applyFile(const unsigned char* path) {
  QDLOG(PRFS, INF, "Tunables - update");
  QDBuffer buffer(kMaxFile + 1);
  unsigned char* const text = buffer.getPtr();
  try {
    if (!QDFile::exists(path)) {
      QDLOG(PRFS, INF, "Tunables - No tunables config file found at path : " << QDLogPath(path));
      return;
    }
    readText(path, text);
  } catch (const QDException& exception) {
    qdTraceException(exception, "ECSP");
    QDLOG(PRFS, ERR, "Tunables - cannot open or read file at path : " << QDLogPath(path));
    return;
  }
  applyToAll(text);
}

}  // namespace

void tunablesUpdate(const unsigned char* path) {
  try {
    applyFile(path);
  } catch (...) {
    reportUnexpected();
  }
}

void tunablesUpdateStr(const unsigned char* text) {
  try {
    applyToAll(text);
  } catch (...) {
    reportUnexpected();
  }
}
