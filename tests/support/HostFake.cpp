#include "HostFake.h"

namespace {

template <typename T>
int answer(const T& value, T& out) {
  if (hostFake.error == 0) out = value;
  return hostFake.error;
}

}  // namespace

int host_productVersion(std::string& version) {
  if (hostFake.productVersionError != 0) return hostFake.productVersionError;
  return answer(hostFake.productVersion, version);
}
int host_productVersionNumbers(std::array<int, 3>& numbers) {
  return answer(hostFake.productVersionNumbers, numbers);
}
int host_productName(std::string& name) { return answer(hostFake.productName, name); }
int host_kernelRelease(std::string& release) { return answer(hostFake.kernelRelease, release); }
int host_uuid(std::array<unsigned char, 16>& uuid) { return answer(hostFake.uuid, uuid); }
int host_machineName(std::string& name) { return answer(hostFake.machineName, name); }
int host_upTimeMs(std::uint64_t& ms) { return answer(hostFake.upTimeMs, ms); }
int host_consoleUser(std::string& user) { return answer(hostFake.consoleUser, user); }
int host_memoryRegions(std::vector<HostMemoryRegion>& regions) {
  return answer(hostFake.regions, regions);
}
int host_residentSize(std::uint64_t& bytes) { return answer(hostFake.residentSize, bytes); }
int host_physicalMemory(std::uint64_t& bytes) { return answer(hostFake.physicalMemory, bytes); }
int host_setNice(int nice) {
  if (hostFake.error == 0) hostFake.niceValues.push_back(nice);
  return hostFake.error;
}
