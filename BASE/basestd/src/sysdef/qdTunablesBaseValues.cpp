#include "sysdef/qdTunablesBaseValues.h"

#define QD_TUNABLE QD_DEFINE_TUNABLE
#include "sysdef/qdTunablesBase.def"
