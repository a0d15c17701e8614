#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <type_traits>

struct CfRelease {
  void operator()(CFTypeRef object) const noexcept { CFRelease(object); }
};

/// Owns one CoreFoundation object, as a "copy" or "create" function hands it out; may be empty.
template <typename Ref>
using CfPtr = std::unique_ptr<std::remove_pointer_t<Ref>, CfRelease>;

/// Converts `text` to UTF-8 of at most `size` bytes, the terminator included, all or nothing.
/// Returns false, with `utf8` unchanged, when it does not convert or fit.
bool cftext_toUtf8(CFStringRef text, std::size_t size, std::string& utf8);
