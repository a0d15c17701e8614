#include "osal/osal_memory.h"

#include <unistd.h>

#include <cstdlib>

#include "logging/QDLog.h"

namespace {

constexpr int kMiBShift = 20;

std::uint64_t privateBytes(const HostMemoryRegion& region, std::uint64_t pageSize) {
  switch (region.shareMode) {
    case HostShareMode::Private:
      return region.size;
    case HostShareMode::CopyOnWrite:
      return region.referenceCount == 1 ? region.size : region.privateResidentPages * pageSize;
    case HostShareMode::Other:
      break;
  }
  return 0;
}

}  // namespace

std::uint64_t osal_privateBytes(const std::vector<HostMemoryRegion>& regions,
                                std::uint64_t pageSize) {
  std::uint64_t sum = 0;
  for (const HostMemoryRegion& region : regions) sum += privateBytes(region, pageSize);
  return sum;
}

int osal_getRAMInfos(unsigned int& privateMiB, unsigned int& residentMiB,
                     unsigned long long& physicalMiB) {
  std::uint64_t resident = 0;
  std::uint64_t physical = 0;
  std::vector<HostMemoryRegion> regions;
  int error = host_residentSize(resident);
  if (error == 0) error = host_memoryRegions(regions);
  if (error == 0) error = host_physicalMemory(physical);
  if (error != 0) {
    QDLOG(OSAL, ERR, "Cannot get memory information (" << error << ")");
    return -1;
  }
  const auto pageSize = static_cast<std::uint64_t>(::getpagesize());
  privateMiB = static_cast<unsigned int>(osal_privateBytes(regions, pageSize) >> kMiBShift);
  residentMiB = static_cast<unsigned int>(resident >> kMiBShift);
  physicalMiB = physical >> kMiBShift;
  return 0;
}

void* osal_procAlloc(unsigned long n) { return std::malloc(n); }

void osal_procFree(void* p) { std::free(p); }

bool osal_isJemallocEnabled() { return false; }
