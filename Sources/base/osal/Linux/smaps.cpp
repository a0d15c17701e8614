#include "base/osal/Linux/smaps.h"

#include <cinttypes>
#include <cstdio>
#include <string>

namespace {

struct Mapping {
  std::uint64_t size = 0;
  bool isShared = false;
  bool isAnonymous = false;
  std::uint64_t privateBytes = 0;
};

/// "55d0c0a00000-55d0c0a21000 rw-p 00000000 fe:01 1234    /usr/bin/x"
bool readHeader(const std::string& line, Mapping& mapping) {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint64_t inode = 0;
  char flags[5] = {};
  if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s %*x %*x:%*x %" SCNu64, &start, &end,
                  flags, &inode) != 4) {
    return false;
  }
  mapping = {end - start, flags[3] == 's', inode == 0, 0};
  return true;
}

/// "Private_Dirty:        12 kB"
void readPrivate(const std::string& line, Mapping& mapping) {
  std::uint64_t kib = 0;
  if (std::sscanf(line.c_str(), "Private_%*[A-Za-z]: %" SCNu64, &kib) == 1) {
    mapping.privateBytes += kib * 1024;
  }
}

HostMemoryRegion toRegion(const Mapping& mapping, std::uint64_t pageSize) {
  HostMemoryRegion region{mapping.size, HostShareMode::Other, 0,
                          static_cast<unsigned int>(mapping.privateBytes / pageSize)};
  if (!mapping.isShared && mapping.privateBytes > 0) {
    region.shareMode = mapping.isAnonymous ? HostShareMode::Private : HostShareMode::CopyOnWrite;
  }
  return region;
}

}  // namespace

std::vector<HostMemoryRegion> smaps_parse(std::string_view text, std::uint64_t pageSize) {
  std::vector<HostMemoryRegion> regions;
  Mapping mapping;
  bool inMapping = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string line(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    Mapping next;
    if (!readHeader(line, next)) {
      readPrivate(line, mapping);
      continue;
    }
    if (inMapping) regions.push_back(toRegion(mapping, pageSize));
    mapping = next;
    inMapping = true;
  }
  if (inMapping) regions.push_back(toRegion(mapping, pageSize));
  return regions;
}
