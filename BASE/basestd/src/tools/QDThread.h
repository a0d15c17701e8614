#pragma once

#include "osal/osal_thread.h"

/// Launches detached threads and guards them.
class QDThread {
 public:
  /// The quality-of-service class of a thread, as in the layer below.
  enum QD_QOS : unsigned int {
    QD_QOS_UNSPECIFIED = OSAL_QOS_UNSPECIFIED,
    QD_QOS_EFFICIENCY = OSAL_QOS_EFFICIENCY,
    QD_QOS_PERFORMANCE = OSAL_QOS_PERFORMANCE,
    QD_QOS_DEFAULT = OSAL_QOS_DEFAULT,
  };

  /// What a thread runs. Its result is discarded; what it throws is logged and goes no further.
  using Function = void* (*)(void* data, void* ctx);

  /// Runs `fn(data, ctx)` on a new detached thread. Callable from any thread.
  ///
  /// With a `dataSize` other than 0 the thread gets a copy of that many bytes, aligned for any type
  /// and freed when it ends; with 0 it gets `data` itself, which the caller keeps alive for it.
  /// `ctx` is passed as it is. `stackSize` is in bytes; 0 stands for BASE_DEFAULT_THREAD_STACK.
  /// `name` only serves the log. Throws QDException (1), after logging, when there is no memory or
  /// no thread.
  static void launchThread(Function fn, unsigned int stackSize, void* data, unsigned int dataSize,
                           const char* name, QD_QOS qos, void* ctx);

  /// Where a launched thread starts. Takes over `record`, which `launchThread` made. Returns null.
  static void* threadMgrFunc(void* record);
};

/// The calling thread's system-wide id. Throws QDException (1), after logging, when there is none.
unsigned long long QDGetCurrentThreadId();
