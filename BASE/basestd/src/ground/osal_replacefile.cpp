#include "ground/osal_replacefile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <string>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"

namespace {

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, slash == 0 ? 1 : slash);
}

/// Returns 0 or an errno value.
int fill(ScopedFd& fd, std::string_view content, mode_t mode, bool durable) {
  if (osal_writeAll(fd.get(), content) != content.size()) return errno;
  if (::fchmod(fd.get(), mode) != 0) return errno;
  // Without it a power cut could keep the new name and lose the content.
  if (durable && ::fsync(fd.get()) != 0) return errno;
  return ::close(fd.release()) == 0 ? 0 : errno;
}

}  // namespace

int osal_replaceFile(const char* path, std::string_view content, mode_t mode, bool durable) noexcept
    try {
  const std::string target(path);
  const ScopedFd folder(
      durable ? ::open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
  if (durable && !folder) return errno;

  std::string prepared = target + ".XXXXXX";
  // Created exclusively, so no link is followed, and for this user alone until it is whole.
  ScopedFd fd(::mkostemp(prepared.data(), O_CLOEXEC));
  if (!fd) return errno;
  int error = fill(fd, content, mode, durable);
  if (error == 0 && std::rename(prepared.c_str(), path) != 0) error = errno;
  if (error != 0) {
    ::unlink(prepared.c_str());
    return error;
  }
  // The new file stands: where folders cannot be synchronised, nothing is left to undo.
  if (durable) ::fsync(folder.get());
  return 0;
} catch (const std::bad_alloc&) {
  return ENOMEM;
}
