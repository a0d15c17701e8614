#pragma once

#include <string_view>

#include "osal/osal_hostnet.h"

/// The kind of an interface from its hardware type (ARPHRD_...) and the DEVTYPE of its uevent file,
/// which is empty for plain wired ones.
HostInterfaceKind linkkind_of(unsigned int hardwareType, std::string_view deviceType);
