#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "base/osal/Linux/keyfile.h"
#include "base/osal/Linux/smaps.h"
#include "osal/osal_host.h"

namespace {

constexpr std::size_t kLargestSmaps = std::size_t{256} << 20;

std::uint64_t pageSize() { return static_cast<std::uint64_t>(::getpagesize()); }

}  // namespace

int host_memoryRegions(std::vector<HostMemoryRegion>& regions) {
  std::string text;
  if (const int error = keyfile_read("/proc/self/smaps", text, kLargestSmaps); error != 0) {
    return error;
  }
  regions = smaps_parse(text, pageSize());
  return 0;
}

int host_residentSize(std::uint64_t& bytes) {
  std::string text;
  if (const int error = keyfile_read("/proc/self/statm", text); error != 0) return error;
  std::uint64_t pages = 0;
  if (std::sscanf(text.c_str(), "%*u %" SCNu64, &pages) != 1) return EINVAL;
  bytes = pages * pageSize();
  return 0;
}

int host_physicalMemory(std::uint64_t& bytes) {
  struct sysinfo info {};
  if (::sysinfo(&info) != 0) return errno;
  bytes = static_cast<std::uint64_t>(info.totalram) * info.mem_unit;
  return 0;
}
