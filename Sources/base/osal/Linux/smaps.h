#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "osal/osal_host.h"

/// Reads the regions of a /proc/<pid>/smaps text; pages are `pageSize` bytes. A private region is
/// `Private` when it is anonymous and `CopyOnWrite` when it maps a file; it is `Other` while none
/// of its pages has been made private, as shared regions always are.
std::vector<HostMemoryRegion> smaps_parse(std::string_view text, std::uint64_t pageSize);
