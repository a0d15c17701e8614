#pragma once

// Stands in for the framework's header where scripts/check-macos compiles without it: the few
// declarations that this project uses.

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

extern "C" {

typedef const struct __SCDynamicStore* SCDynamicStoreRef;
typedef const struct __SCNetworkInterface* SCNetworkInterfaceRef;

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef store, uid_t* uid, gid_t* gid);

CFArrayRef SCNetworkInterfaceCopyAll(void);
CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetInterfaceType(SCNetworkInterfaceRef interface);

extern const CFStringRef kSCNetworkInterfaceTypeBluetooth;
extern const CFStringRef kSCNetworkInterfaceTypeBond;
extern const CFStringRef kSCNetworkInterfaceTypeEthernet;
extern const CFStringRef kSCNetworkInterfaceTypeFireWire;
extern const CFStringRef kSCNetworkInterfaceTypeIEEE80211;
extern const CFStringRef kSCNetworkInterfaceTypePPP;
extern const CFStringRef kSCNetworkInterfaceTypeWWAN;

}  // extern "C"
