#pragma once

/// Everything about threads and what they synchronise with.
#include "ground/osal_mutex.h"    // IWYU pragma: export
#include "ground/osal_process.h"  // IWYU pragma: export
#include "osal/osal_deadline.h"   // IWYU pragma: export
#include "osal/osal_event.h"      // IWYU pragma: export
#include "osal/osal_semaphore.h"  // IWYU pragma: export
#include "osal/osal_thread.h"     // IWYU pragma: export
