#pragma once

#include <cstring>
#include <string>

#include "osal/osal_routemsg.h"

/// A routing reply put together piece by piece. The header is right until a test changes it.
class RouteReply {
 public:
  explicit RouteReply(int pid) {
    header.rtm_version = routemsg::kVersion;
    header.rtm_type = routemsg::kGet;
    header.rtm_flags = routemsg::kUp | routemsg::kGateway;
    header.rtm_pid = pid;
    header.rtm_seq = routemsg::kSequence;
  }

  /// Appends an address of any bytes, whose first is its length, and its padding.
  RouteReply& add(int bit, const std::string& address) {
    header.rtm_addrs |= bit;
    addresses_ += address;
    addresses_.resize(addresses_.size() +
                      routemsg::paddedLength(static_cast<std::uint8_t>(address.size())) -
                      address.size());
    return *this;
  }

  RouteReply& addInet(int bit, const std::string& fourBytes) {
    return add(bit, std::string("\x10\x02\0\0", 4) + fourBytes + std::string(8, '\0'));
  }

  RouteReply& addLink(const std::string& name) {
    std::string link = std::string(8, '\0') + name;
    if (link.size() < sizeof(routemsg::Link)) link.resize(sizeof(routemsg::Link));
    link[0] = static_cast<char>(link.size());
    link[1] = static_cast<char>(routemsg::kLinkFamily);
    link[5] = static_cast<char>(name.size());
    return add(routemsg::kHasInterface, link);
  }

  [[nodiscard]] std::string bytes() const {
    routemsg::Header complete = header;
    complete.rtm_msglen =
        static_cast<std::uint16_t>(sizeof complete + addresses_.size() + lengthError);
    std::string message(sizeof complete, '\0');
    std::memcpy(message.data(), &complete, sizeof complete);
    return message + addresses_;
  }

  routemsg::Header header{};
  std::size_t lengthError = 0;  ///< what the header's length is too large by

 private:
  std::string addresses_;
};
