#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tuf {

using Json = nlohmann::json;

/// Bytes of memory, about, for each byte of a large text: the text, its values, their canonical
/// form.
inline constexpr std::size_t kGrowth = 9;

/// Parses one JSON text. Refused, beside what is no JSON: a member name twice in one object, since
/// readers differ in which one they take; more than 64 levels or 1,048,576 values, since it may
/// come from anybody. Throws Error, Malformed.
[[nodiscard]] Json parseJson(std::string_view text);

/// The bytes that signatures and key ids are made over: no white space, members sorted by the bytes
/// of their names, only `"` and `\` escaped. Throws Error, Malformed, where a number is no integer
/// of 64 bits. `expectedSize` spares large values moves.
[[nodiscard]] std::string canonicalJson(const Json& value, std::size_t expectedSize = 0);

/// A name for a message, in quotes: names of others get no control over the terminal that shows it.
[[nodiscard]] std::string shown(const std::string& name);

}  // namespace tuf
