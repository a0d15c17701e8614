#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fetch/Transfer.h"

/// What a Content-Range header says: "bytes 100-199/200", "bytes 100-199/*", "bytes */200".
struct ContentRange {
  std::optional<std::uint64_t> first;  ///< unset: the answer has no part
  std::optional<std::uint64_t> total;  ///< length of the whole file; unset: not known
};

/// Reads it; nothing for a text of another form.
std::optional<ContentRange> parseContentRange(const std::string& text);

/// What distinguishes the answer's file from any other under the same address, for an If-Range
/// header: its ETag, unless that is a weak one, else when it was last modified, unless that was
/// just before the answer: it could have been modified twice then. Empty: nothing.
std::string validatorOf(const fetch::Headers& headers);
