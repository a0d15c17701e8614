#include "Updater/health/KeepFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>

#include "ground/osal_io.h"
#include "ground/osal_ownfile.h"
#include "ground/osal_replacefile.h"
#include "ground/osal_scoped.h"

namespace fs = boost::filesystem;

namespace {

constexpr const char* kList = "kept.json";
constexpr const char* kRoom = "room";
constexpr const char* kJournalEnding = ".journal";
constexpr std::size_t kMostList = std::size_t{1} << 20;
constexpr mode_t kMode = 0600;

int synchronise(const std::string& path, int flags) {
  const ScopedFd fd(::open(path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  return fd && ::fsync(fd.get()) == 0 ? 0 : errno;
}

}  // namespace

int KeepFolder::open(const std::string& state) {
  const std::string path = state + "/keep";
  const int error = osal_makeOwnFolder(path.c_str());
  if (error == 0) path_ = path;
  return error;
}

std::vector<KeptPackage> KeepFolder::list() const {
  ScopedFd fd;
  std::string text;
  if (osal_openOwnFile(pathOf(kList).c_str(), OwnFileUse::Read, kMode, fd) == 0) {
    osal_readAll(fd.get(), text, kMostList);
  }
  return parseKeptPackages(text).value_or(std::vector<KeptPackage>());
}

int KeepFolder::take(const std::string& path, const KeptPackage& package, std::size_t most) const {
  const std::string place = pathOf(package.file);
  if (const int error = synchronise(path, 0); error != 0) return error;
  if (std::rename(path.c_str(), place.c_str()) != 0) return errno;
  if (const int error = synchronise(path_, O_DIRECTORY); error != 0) return error;
  const std::vector<KeptPackage> packages = withKept(list(), package, most);
  if (const int error = writeList(packages); error != 0) return error;
  removeFiles([&](const std::string& name) {
    return name != kList && !name.ends_with(kJournalEnding) &&
           std::ranges::find(packages, name, &KeptPackage::file) == packages.end();
  });
  return 0;
}

void KeepFolder::drop(const KeptPackage& package) const {
  std::vector<KeptPackage> packages = list();
  std::erase_if(packages, [&](const KeptPackage& kept) { return kept.file == package.file; });
  if (writeList(packages) == 0) ::unlink(pathOf(package.file).c_str());
}

int KeepFolder::setRoomAside(std::uint64_t bytes) const noexcept try {
  ScopedFd fd;
  int error = osal_openOwnFile(pathOf(kRoom).c_str(), OwnFileUse::Overwrite, kMode, fd);
#if defined(__linux__)
  if (error == 0) error = ::posix_fallocate(fd.get(), 0, static_cast<off_t>(bytes));
#else
  if (error == 0) error = ::ftruncate(fd.get(), static_cast<off_t>(bytes)) == 0 ? 0 : errno;
#endif
  if (error != 0) giveRoomBack();
  return error;
} catch (...) {
  return ENOMEM;
}

void KeepFolder::giveRoomBack() const noexcept try {
  if (isOpen()) ::unlink(pathOf(kRoom).c_str());
} catch (...) {
  // What goes on without it may find room elsewhere.
}

int KeepFolder::keepJournal(const std::string& version, std::string_view journal) const {
  const std::string name = version + kJournalEnding;
  removeFiles([](const std::string& other) { return other.ends_with(kJournalEnding); });
  return osal_replaceFile(pathOf(name).c_str(), journal, kMode, false);
}

int KeepFolder::writeList(const std::vector<KeptPackage>& packages) const {
  return osal_replaceFile(pathOf(kList).c_str(), keptPackagesText(packages), kMode, true);
}

void KeepFolder::removeFiles(const std::function<bool(const std::string& name)>& isMeant) const {
  boost::system::error_code failed;
  std::vector<fs::path> files;
  for (fs::directory_iterator entry(path_, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    if (isMeant(entry->path().filename().string())) files.push_back(entry->path());
  }
  for (const fs::path& file : files) ::unlink(file.c_str());
}
