#pragma once

/// The quality-of-service class of a thread; systems without such classes ignore it.
enum OSAL_QOS : unsigned int {
  OSAL_QOS_UNSPECIFIED = 0,
  OSAL_QOS_EFFICIENCY = 1,
  OSAL_QOS_PERFORMANCE = 2,
  OSAL_QOS_DEFAULT = 3,
};

/// The name of a class; empty for a value that is none.
const char* osal_qosToString(OSAL_QOS qos);

/// Runs `fn(arg)` on a new detached thread.
///
/// `stackSize` is in bytes, rounded up to whole pages; 0 keeps the system's default. `name` only
/// serves the log: the thread names itself. A `qos` that is no class counts as OSAL_QOS_DEFAULT.
/// `arg` stays the caller's. Returns 0, or -1 after logging the failure, with no thread started.
int osal_launchThread(void* (*fn)(void*), unsigned int stackSize, void* arg, const char* name,
                      OSAL_QOS qos);
