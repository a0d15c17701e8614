#include "base/sysdef/tunablesValues.h"

#define QD_TUNABLE QD_DEFINE_TUNABLE
#include "base/sysdef/tunablesOVT.def"
