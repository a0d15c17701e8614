#include "tufrepo/TargetStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "ground/osal_ownfile.h"

namespace tufrepo {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

ScopedFd openFolder(const std::string& path) {
  std::error_code failure;
  fs::create_directories(path, failure);
  ScopedFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) fail("Cannot open the folder " + path, errno);
  return folder;
}

}  // namespace

std::string storedName(const std::string& targetPath, const std::string& hash) {
  const std::size_t slash = targetPath.rfind('/');
  const std::size_t name = slash == std::string::npos ? 0 : slash + 1;
  return targetPath.substr(0, name) + hash + "." + targetPath.substr(name);
}

TargetStore::TargetStore(const std::string& folder)
    : targets_(folder + "/targets"), unfinished_(targets_ + "/.unfinished") {
  (void)openFolder(targets_);
  ::unlink(unfinished_.c_str());  // of a process that was killed
}

TargetStore::~TargetStore() {
  if (brought_) ::unlink(unfinished_.c_str());
}

CopiedFile TargetStore::bring(const std::string& path) {
  const ScopedFd source(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!source) fail("Cannot read " + path, errno);
  struct stat info {};
  if (::fstat(source.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    throw std::runtime_error(path + " is no regular file");
  }
  const int error = osal_openOwnFile(unfinished_.c_str(), OwnFileUse::Overwrite, 0600, brought_);
  if (error != 0) fail("Cannot create a file in " + targets_, error);
  try {
    return copyHashed(source.get(), brought_.get());
  } catch (const std::system_error& e) {
    fail("Cannot copy " + path + " to " + targets_, e.code().value());
  }
}

void TargetStore::keep(const std::string& targetPath, const CopiedFile& file) {
  const fs::path place = fs::path(targets_) / storedName(targetPath, file.sha256);
  const fs::path second = fs::path(targets_) / storedName(targetPath, file.sha512);
  const ScopedFd folder = openFolder(place.parent_path().string());
  if (::fchmod(brought_.get(), 0644) != 0 || ::fsync(brought_.get()) != 0 ||
      ::rename(unfinished_.c_str(), place.c_str()) != 0 ||
      ::link(place.c_str(), unfinished_.c_str()) != 0 ||
      ::rename(unfinished_.c_str(), second.c_str()) != 0) {
    fail("Cannot write " + place.string(), errno);
  }
  brought_.reset();
  if (::fsync(folder.get()) != 0) fail("Cannot write " + place.string(), errno);
}

}  // namespace tufrepo
