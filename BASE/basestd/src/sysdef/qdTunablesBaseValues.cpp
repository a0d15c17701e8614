#include "sysdef/qdTunablesBaseValues.h"

std::uint32_t BASE_DEFAULT_THREAD_STACK = 1048576;
