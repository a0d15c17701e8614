#include "base/ground/tunablesValues.h"

#define QD_TUNABLE QD_DEFINE_TUNABLE
#include "base/ground/tunablesOVT.def"
