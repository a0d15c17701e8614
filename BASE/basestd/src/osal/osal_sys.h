#pragma once

// What the base library asks about the process and the machine, gathered.

#include "osal/osal_env.h"
#include "osal/osal_process.h"
