#pragma once

#include <cstdint>
#include <vector>

#include "osal/osal_host.h"

/// Memory of this process that is its own, its resident memory, and the machine's, all in MiB.
/// Returns 0, or -1 after logging.
int osal_getRAMInfos(unsigned int& privateMiB, unsigned int& residentMiB,
                     unsigned long long& physicalMiB);

/// The part of `regions` that the process shares with nobody, in bytes: private regions and
/// copy-on-write regions with one reference count whole, other copy-on-write regions with their
/// private resident pages of `pageSize` bytes, and nothing else.
std::uint64_t osal_privateBytes(const std::vector<HostMemoryRegion>& regions,
                                std::uint64_t pageSize);

/// Plain heap memory, as `malloc` and `free` have it.
void* osal_procAlloc(unsigned long n);
void osal_procFree(void* p);

/// Whether the heap is jemalloc's: it is not.
bool osal_isJemallocEnabled();
