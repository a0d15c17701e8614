#pragma once

#include "ground/qdTunableTypes.h"

// The agent suite's tunables: one variable each, named like its key, read where it is used. They
// are set before threads start.
#define QD_TUNABLE QD_DECLARE_TUNABLE
#include "base/ground/tunablesOVT.def"
