#include "sysdef/qdTunablesBase.h"

#include <array>

#include "ground/qdTunablesBaseValues.h"
#include "tools/QDException.h"
#include "tools/QDFile.h"

const QDTunablesS tunablesBase[] = {
#define QD_TUNABLE QD_TUNABLE_RECORD
#include "ground/qdTunablesBase.def"
};

void QDTunablesBase::tunablesUpdate(const unsigned char* text) {
  QDTunables::tunablesUpdate(text, tunablesBase, tunablesBaseCount);
}

bool QDTunablesBase::tunablesUpdateFromFile(const unsigned char* path) {
  try {
    if (!QDFile::exists(path)) return false;
    std::array<unsigned char, 4096> text;
    QDFile file;
    file.open(path, QD_OPENMODE_RDONLY, OSAL_OPEN_LOCK);
    const unsigned int length = file.read(text.data(), text.size());
    file.close();
    if (length == 0 || length == text.size()) return false;
    text[length] = '\0';
    tunablesUpdate(text.data());
    return true;
  } catch (const QDException& exception) {
    qdTraceException(exception, "EC ignored");
    return false;
  }
}
