#include "HostFake.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

std::chrono::nanoseconds passed{};  // while reading

template <typename T>
int answer(int error, const T& value, T& out) {
  if (error == 0) out = value;
  return error;
}

template <typename T>
int answer(const T& value, T& out) {
  return answer(hostFake.error, value, out);
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

int hostnet_openRoute(unsigned int timeoutMs, ScopedFd& /*socket*/) {
  return answer(hostNetFake.openError, timeoutMs, hostNetFake.timeoutMs);
}
int hostnet_writeRoute(int /*socket*/, const void* request, std::size_t length) {
  hostNetFake.requests.emplace_back(static_cast<const char*>(request), length);
  return hostNetFake.writeError;
}
int hostnet_readRoute(int /*socket*/, void* message, std::size_t size, std::size_t* length) {
  if (hostNetFake.replies.empty()) return EAGAIN;
  const std::string reply = hostNetFake.replies.front();
  hostNetFake.replies.pop_front();
  passed += hostNetFake.readTakes;
  *length = std::min(size, reply.size());
  std::memcpy(message, reply.data(), *length);
  return 0;
}
int hostnet_interfaces(std::vector<HostInterface>& interfaces) {
  return answer(hostNetFake.listError, hostNetFake.interfaces, interfaces);
}
int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  return answer(hostNetFake.listError, hostNetFake.linkAddresses, addresses);
}

#if defined(__linux__)
// The linker sends the calls of std::chrono::steady_clock::now here (see --wrap in CMakeLists.txt).
extern "C" {
std::int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();
std::int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  return __real__ZNSt6chrono3_V212steady_clock3nowEv() + passed.count();
}
}
#endif
