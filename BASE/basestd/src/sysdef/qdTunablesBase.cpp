#include "sysdef/qdTunablesBase.h"

#include "sysdef/qdTunablesBaseValues.h"

const QDTunablesS tunablesBase[] = {
#define QD_TUNABLE QD_TUNABLE_RECORD
#include "sysdef/qdTunablesBase.def"
};

void QDTunablesBase::tunablesUpdate(const unsigned char* text) {
  QDTunables::tunablesUpdate(text, tunablesBase, tunablesBaseCount);
}
