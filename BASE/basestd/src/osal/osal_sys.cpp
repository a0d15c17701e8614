#include "osal/osal_sys.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "ground/qdTunablesBaseValues.h"
#include "logging/QDLog.h"
#include "osal/osal_host.h"

namespace {

/// The lowest nice value that an unprivileged process may take.
int lowestNice() {
#if defined(RLIMIT_NICE)
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NICE, &limit) == 0) {
    // The limit counts from 20 downwards: 1 is nice 19, 40 is nice -20.
    return limit.rlim_cur >= 40 ? -20 : 20 - static_cast<int>(limit.rlim_cur);
  }
#endif
  return 20;  // above every nice value: nothing is permitted
}

int currentNice() { return ::getpriority(PRIO_PROCESS, 0); }

int delta() { return static_cast<int>(BASE_POSIX_PRIORITY_DELTA); }

}  // namespace

void osal_exit(int status) { std::exit(status); }

bool osal_mayUseNice(uid_t effectiveUser, int lowestNice, int wantedNice) {
  return effectiveUser == 0 || wantedNice >= lowestNice;
}

void osal_AdjustProcessPriority(bool raise) {
  static const bool permitted = osal_mayUseNice(::geteuid(), lowestNice(), currentNice() - delta());
  if (!permitted) return;
  const int nice = currentNice() + (raise ? -delta() : delta());
  if (const int error = host_setNice(nice); error != 0) {
    QDLOG(OSAL, WRN, "Cannot set process priority (" << error << ") to " << nice);
  }
}

int osal_EnableBackupRestorePrivileges() { return 1; }
