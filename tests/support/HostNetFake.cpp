#include "HostNetFake.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

int hostnet_openRoute(unsigned int /*timeoutMs*/, ScopedFd& /*socket*/) {
  return hostNetFake.openError;
}

int hostnet_writeRoute(int /*socket*/, const void* request, std::size_t length) {
  if (hostNetFake.writeError == 0) {
    hostNetFake.requests.emplace_back(static_cast<const char*>(request), length);
  }
  return hostNetFake.writeError;
}

int hostnet_readRoute(int /*socket*/, void* message, std::size_t size, std::size_t* length) {
  if (hostNetFake.replies.empty()) return EAGAIN;
  const std::string reply = hostNetFake.replies.front();
  hostNetFake.replies.pop_front();
  *length = std::min(size, reply.size());
  std::memcpy(message, reply.data(), *length);
  return 0;
}

int hostnet_interfaces(std::vector<HostInterface>& interfaces) {
  if (hostNetFake.listError == 0) interfaces = hostNetFake.interfaces;
  return hostNetFake.listError;
}

int hostnet_linkAddresses(std::vector<HostLinkAddress>& addresses) {
  if (hostNetFake.listError == 0) addresses = hostNetFake.linkAddresses;
  return hostNetFake.listError;
}
