#include "base/sysdef/tunablesValues.h"

bool QD_AGENT_NAS = false;
