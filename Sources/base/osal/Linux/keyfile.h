#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The value of `key` in a text of KEY=value lines as os-release(5) describes them: the first such
/// line counts, comments and other lines are skipped, a value in single or double quotes loses them
/// and a backslash in double quotes gives the character behind it. Empty when there is no such
/// line.
std::optional<std::string> keyfile_find(std::string_view text, std::string_view key);

/// Reads a system file whole, or its first `limit` bytes. Returns 0 or an errno value.
int keyfile_read(const char* path, std::string& text, std::size_t limit = 65536);

/// The value of `key` in the file at `path`. Returns 0 or an errno value, ENOENT when the
/// file has no such line.
int keyfile_value(const char* path, std::string_view key, std::string& value);
