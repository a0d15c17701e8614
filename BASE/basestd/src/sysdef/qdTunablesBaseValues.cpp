#include "sysdef/qdTunablesBaseValues.h"

std::uint32_t BASE_DEFAULT_THREAD_STACK = 1048576;
std::uint32_t BASE_POSIX_PRIORITY_DELTA = 4;
