#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The kernel's routing message: the question how a host is reached, and the answer. Its layout is
/// the one of route(4) on macOS, which this library uses on every system. Numbers are in the
/// machine's byte order, addresses in the network's.
namespace routemsg {

constexpr std::uint8_t kVersion = 5;
constexpr std::uint8_t kGet = 4;  ///< message type: report a route

constexpr std::int32_t kUp = 0x1;  ///< flags of a route
constexpr std::int32_t kGateway = 0x2;
constexpr std::int32_t kHost = 0x4;
constexpr std::int32_t kDone = 0x40;
constexpr std::int32_t kStatic = 0x800;

constexpr std::int32_t kHasDestination = 0x1;  ///< which addresses follow the header
constexpr std::int32_t kHasGateway = 0x2;
constexpr std::int32_t kHasInterface = 0x10;

constexpr std::uint8_t kInetFamily = 2;
constexpr std::uint8_t kLinkFamily = 18;

/// The sequence number of every request.
constexpr std::int32_t kSequence = 1;

struct Header {
  std::uint16_t rtm_msglen;
  std::uint8_t rtm_version;
  std::uint8_t rtm_type;
  std::uint16_t rtm_index;
  std::int32_t rtm_flags;
  std::int32_t rtm_addrs;
  std::int32_t rtm_pid;
  std::int32_t rtm_seq;
  std::int32_t rtm_errno;
  std::int32_t rtm_use;
  std::uint32_t rtm_inits;
  std::uint32_t rtm_rmx[14];
};
static_assert(sizeof(Header) == 92);

/// An IPv4 address.
struct Inet {
  std::uint8_t sin_len;
  std::uint8_t sin_family;
  std::uint16_t sin_port;
  std::uint8_t sin_addr[4];
  std::uint8_t sin_zero[8];
};
static_assert(sizeof(Inet) == 16);

/// An interface. The name is not terminated, and it may be longer than this: `sdl_len` counts.
struct Link {
  std::uint8_t sdl_len;
  std::uint8_t sdl_family;
  std::uint16_t sdl_index;
  std::uint8_t sdl_type;
  std::uint8_t sdl_nlen;
  std::uint8_t sdl_alen;
  std::uint8_t sdl_slen;
  char sdl_data[12];
};
static_assert(sizeof(Link) == 20);
constexpr std::size_t kLinkNameOffset = offsetof(Link, sdl_data);

/// Room for a request, and for its reply.
struct Buffer {
  Header header;
  unsigned char addresses[512];
};
static_assert(sizeof(Buffer) == 604);

/// Bytes that an address of this length takes in a message.
constexpr std::size_t paddedLength(std::uint8_t length) {
  return length == 0 ? 4 : (length + std::size_t{3}) & ~std::size_t{3};
}

/// Makes `buffer` the question for the route to `address` (4 bytes), or for the default route when
/// there is none, and for its interface. Returns the length of the message.
std::size_t buildRequest(const unsigned char* address, Buffer& buffer);

/// Whether a message is long enough for a header and answers the request of process `pid`.
bool answers(std::span<const unsigned char> message, std::int32_t pid);

/// What is wrong with a reply.
enum class Fault {
  None,
  Short,       ///< no room for a header
  Version,     ///< not the version that this code knows
  Length,      ///< the header has another length than was read
  Refused,     ///< the kernel reports an error
  NoAddresses  ///< the route has none
};

/// The addresses of a reply, as offsets into the message. A gateway that is there has the whole of
/// an `Inet`, an interface the whole of a `Link` and of its name.
struct Reply {
  Fault fault = Fault::None;
  std::optional<std::size_t> gateway;
  std::optional<std::size_t> interface;
};

/// Reads a reply, trusting none of its lengths: it ends at the first address that does not fit, and
/// an address that is not what its place says counts as missing.
Reply parseReply(std::span<const unsigned char> message);

}  // namespace routemsg
