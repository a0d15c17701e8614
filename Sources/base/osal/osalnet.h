#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "osal/osal_hostnet.h"
#include "osal/osal_routemsg.h"

struct hostent;

/// True when the running kernel is an ARM64 kernel. For a process built for x86-64 this means that
/// it runs translated.
///
/// This function and `getsysinfo` share one record: they are not to be called from two threads at
/// once.
bool isEmulation();

/// Describes the system.
///
/// `osText` receives a description for people, `archName` the machine name ("arm64", "x86_64");
/// each has room for 1025 bytes and is the empty string where the system has no answer. `*sysFlags`
/// is 0x300, with 0x40 added on network-attached storage. On macOS, `osText` ends in " (Emulated)"
/// when the kernel is an ARM64 kernel. Returns the result of the last system call or of the last
/// copy, which says nothing about the answers.
int getsysinfo(char* osText, char* archName, unsigned int* sysFlags);

// How this machine reaches another. Text buffers have room for 1025 bytes. The kernel
// addresses its answers to the process, not to a thread: callers ask for one route at a time.

/// Finds how `host` is reached: its IPv4 address, the gateway's name (empty when it has none) and
/// address, the kind and the name of the local interface. `reserved` stays empty.
///
/// A host that is reached directly gets the gateway of the default route. Returns 0, or -1 after
/// logging, with the outputs that were found so far and the rest empty.
int getnetpathinfo(const char* host, char* hostAddress, char* gatewayName, char* gatewayAddress,
                   char* interfaceKind, char* reserved, char* interfaceName);

using _sockRequest_buff = routemsg::Buffer;

/// Asks the kernel once for the route to `host`, or for the default route when it is null.
///
/// The two addresses point into `buf`, or stay as they were when the reply lacks them. Returns 0,
/// or -1 after logging: the kernel refused, knows no route, or did not answer within 5 seconds.
int _sockRequest(hostent* host, _sockRequest_buff* buf, routemsg::Inet** gateway,
                 routemsg::Link** interface);

/// Writes the kind of an interface: "Loopback", "WiFi", "Ethernet" or "PPP", or its own name when
/// it is none of these. Returns 0.
int _getInterface(const char* bsdName, char* kind);

/// The kind of `bsdName` among `interfaces`, in the same words. A loopback interface is known by
/// its name, so it need not be among them.
std::string osalnet_interfaceKind(const std::string& bsdName,
                                  const std::vector<HostInterface>& interfaces);

/// Whether a name starts with "lo" and a digit: "lo0", "lo1a".
bool osalnet_isLoopbackName(std::string_view bsdName);

/// Whether an IPv4 address, in host byte order, belongs to the loopback network (127.0.0.0/8).
bool isIPlocal(unsigned long address);

/// Whether a host name or address means this machine: "localhost", an address of the loopback
/// network, or a name that `osalnet_isLocalOn` takes for this machine's.
bool isHostLocal(const char* host);

/// Whether `host` is a name of the machine `machineName`: the parts of both before the first "."
/// are the same, whatever their letter case.
bool osalnet_isLocalOn(std::string_view machineName, std::string_view host);

/// Writes the primary hardware address, 6 bytes. Returns false, without writing, when there is none
/// or `mac6` is null.
bool getMACAddress(unsigned char* mac6);
