// A reply of the routing socket: whatever it says of its lengths, what it is taken to hold lies in
// it. And the datagrams of the kernel that such a reply is made from on Linux.

#include "FuzzTarget.h"
#include "osal/osal_routemsg.h"
#if defined(__linux__)
#include "base/osal/Linux/netlink_route.h"
#endif

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
#if defined(__linux__)
  NetlinkRoute route;
  netlink_read({data, size}, route);
  fuzzExpect(!route.complete || size >= 16);
#endif
  const routemsg::Reply reply = routemsg::parseReply({data, size});
  if (reply.fault != routemsg::Fault::None) return 0;
  if (reply.gateway) fuzzExpect(*reply.gateway + sizeof(routemsg::Inet) <= size);
  if (reply.interface) {
    fuzzExpect(*reply.interface + sizeof(routemsg::Link) <= size);
    const std::size_t nameLength = data[*reply.interface + offsetof(routemsg::Link, sdl_nlen)];
    fuzzExpect(*reply.interface + routemsg::kLinkNameOffset + nameLength <= size);
  }
  return 0;
}
