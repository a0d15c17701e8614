#pragma once

// Stands in for the framework's header where scripts/check-macos compiles without it: the few
// declarations that this project uses.

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

typedef UnsignedWide Nanoseconds;

enum : OSType {
  gestaltSystemVersionMajor = 'sys1',
  gestaltSystemVersionMinor = 'sys2',
  gestaltSystemVersionBugFix = 'sys3',
};

OSErr Gestalt(OSType selector, SInt32* response);
CFStringRef CSCopyMachineName(void);
AbsoluteTime UpTime(void);
Nanoseconds AbsoluteToNanoseconds(AbsoluteTime time);

}  // extern "C"
