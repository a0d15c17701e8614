#pragma once

// Everything that the base library asks about the process and the machine.

#include <sys/types.h>

#include "ground/osal_process.h"
#include "osal/osal_env.h"
#include "osal/osal_identity.h"
#include "osal/osal_memory.h"
#include "osal/osal_time.h"

/// Ends the process as the C `exit` does.
[[noreturn]] void osal_exit(int status);

/// Raises the process's scheduling priority by the tunable `BASE_POSIX_PRIORITY_DELTA`, or lowers
/// it by as much. Both do nothing where the process was not permitted to raise it when this was
/// first called: it could not come back. The system's refusal is logged.
void osal_AdjustProcessPriority(bool raise);

/// The rule of that check: a privileged process may set any nice value, others none below the
/// lowest that the system allows them (smaller is a higher priority).
bool osal_mayUseNice(uid_t effectiveUser, int lowestNice, int wantedNice);

/// There are no such privileges to enable here. Returns 1.
int osal_EnableBackupRestorePrivileges();
