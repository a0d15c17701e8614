#pragma once

// Stands in for the framework's header where scripts/check-macos compiles without it: the few
// declarations that this project uses.

#include <MacTypes.h>

extern "C" {

typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef long CFIndex;
typedef UInt32 CFStringEncoding;

struct CFRange {
  CFIndex location;
  CFIndex length;
};
inline CFRange CFRangeMake(CFIndex location, CFIndex length) { return {location, length}; }

enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };

void CFRelease(CFTypeRef object);
Boolean CFEqual(CFTypeRef one, CFTypeRef other);

CFIndex CFStringGetLength(CFStringRef text);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef text, char* buffer, CFIndex size, CFStringEncoding encoding);
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex size,
                         CFIndex* used);

CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

}  // extern "C"
