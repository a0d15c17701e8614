#include "logging/QDLogPath.h"

QDStreamLogger& operator<<(QDStreamLogger& out, const QDLogPath& path) {
  return out << '"' << path.text() << '"';
}
