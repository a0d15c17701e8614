#include "base/osal/Linux/keyfile.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"

namespace {

std::string unquoted(std::string_view value) {
  while (!value.empty() && (value.back() == ' ' || value.back() == '\r')) value.remove_suffix(1);
  if (value.size() < 2 || value.front() != value.back() ||
      (value.front() != '"' && value.front() != '\'')) {
    return std::string(value);
  }
  const bool escapes = value.front() == '"';
  value = value.substr(1, value.size() - 2);
  std::string plain;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (escapes && value[i] == '\\' && i + 1 < value.size()) ++i;
    plain += value[i];
  }
  return plain;
}

}  // namespace

std::optional<std::string> keyfile_find(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=') {
      return unquoted(line.substr(key.size() + 1));
    }
  }
  return std::nullopt;
}

int keyfile_read(const char* path, std::string& text, std::size_t limit) {
  const ScopedFd file(::open(path, O_RDONLY | O_CLOEXEC));
  if (!file) return errno;
  std::string content;
  if (const int error = osal_readAll(file.get(), content, limit); error != 0) return error;
  text = std::move(content);
  return 0;
}

int keyfile_value(const char* path, std::string_view key, std::string& value) {
  std::string text;
  if (const int error = keyfile_read(path, text); error != 0) return error;
  const std::optional<std::string> found = keyfile_find(text, key);
  if (!found) return ENOENT;
  value = *found;
  return 0;
}
