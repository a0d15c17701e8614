#include "base/sysdef/tunables.h"

#include "base/sysdef/tunablesValues.h"
#include "logging/QDLog.h"
#include "sysdef/qdTunablesBase.h"

const QDTunablesS tunablesOVT[] = {
#define QD_TUNABLE QD_TUNABLE_RECORD
#include "base/sysdef/tunablesOVT.def"
};

namespace {

void applyToAll(const unsigned char* text) {
  QDTunables::tunablesUpdate(text, tunablesOVT, tunablesOVTCount);
  QDTunablesBase::tunablesUpdate(text);
}

void reportUnexpected() {
  QDLOG(PRFS, ERR, "Tunables - unexpected error while updating");
  QDLOG(EXCP, EL2, "ECEP");
}

}  // namespace

void tunablesUpdateStr(const unsigned char* text) {
  try {
    applyToAll(text);
  } catch (...) {
    reportUnexpected();
  }
}
