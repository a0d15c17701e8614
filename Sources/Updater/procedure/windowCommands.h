#pragma once

#include <chrono>

#include "Updater/procedure/CommandOutput.h"
#include "logging/QDLog.h"

// Commands of the window in which the agent is stopped. Nothing here throws, and no missing memory
// keeps what follows from being done.

/// Logs where an exception would keep the agent from being started.
#define QD_LOG_QUIETLY(level, ...)     \
  do {                                 \
    try {                              \
      QDLOG(ROOT, level, __VA_ARGS__); \
    } catch (...) {                    \
      /* The restart is worth more. */ \
    }                                  \
  } while (false)

/// Like system(). With `output`, which may be null, what the command prints goes there and into the
/// log, and the terminal's signals do not reach it; and at the `limit`, where there is one, it is
/// ended, and the result is utils::kTookTooLong.
int execute(const char* command, CommandOutput* output,
            std::chrono::seconds limit = std::chrono::seconds(0)) noexcept;

/// The same, but a momentary lack of processes or memory is not taken for an answer: an agent that
/// is not started again is what must not happen.
int executePersistently(const char* command, CommandOutput* output,
                        std::chrono::seconds limit = std::chrono::seconds(0)) noexcept;

/// `execute` for an installation: while rpm finds its lock taken, for a minute, it is tried again.
int executeInstallation(const char* command, CommandOutput* output) noexcept;

/// Whether rpm said of the latest command that a script of the package failed: it takes such a
/// package for installed, and says so in its output alone.
bool scriptFailed(const CommandOutput* output) noexcept;
