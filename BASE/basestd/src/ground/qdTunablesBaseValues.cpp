#include "ground/qdTunablesBaseValues.h"

#define QD_TUNABLE QD_DEFINE_TUNABLE
#include "ground/qdTunablesBase.def"
