#include "Updater/procedure/CommandOutput.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Updater/command/utilsExec.h"
#include "Updater/terms/utilsPlatform.h"
#include "ground/osal_io.h"
#include "logging/QDLog.h"

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;

int openNameless() {
#if defined(__linux__)
  const int fd = ::memfd_create("output", MFD_CLOEXEC);
  if (fd >= 0) ::fcntl(fd, F_SETFL, O_APPEND);
  return fd;
#else
  std::string path = utils::joinPath(utils::getTempDir(), "output.XXXXXX");
  const int fd = ::mkostemp(path.data(), O_APPEND | O_CLOEXEC);
  if (fd >= 0) ::unlink(path.c_str());
  return fd;
#endif
}

/// A line as a terminal would show it: progress overwrites itself.
std::string shown(const std::string& line) {
  std::string text = line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
  return text.substr(text.rfind('\r') + 1);
}

}  // namespace

CommandOutput::CommandOutput() : fd_(openNameless()) {}

int CommandOutput::fd() const noexcept { return fd_ ? fd_.get() : STDOUT_FILENO; }

void CommandOutput::log() noexcept try {
  text_.clear();
  if (!fd_ || ::lseek(fd_.get(), 0, SEEK_SET) != 0) return;
  osal_readAll(fd_.get(), text_, kMostBytes);
  (void)!::ftruncate(fd_.get(), 0);
  for (const std::string& line : utils::splitLines(text_)) QDLOG(ROOT, NFY, shown(line));
} catch (...) {
  // Whatever comes next is worth more.
}
