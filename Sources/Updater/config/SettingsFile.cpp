#include "Updater/config/SettingsFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <boost/algorithm/string/classification.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>

#include "Updater/config/settingsParser.h"
#include "ground/osal_io.h"
#include "ground/osal_scoped.h"

namespace fs = boost::filesystem;

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;

/// Why what is at `path` is not root's own; empty when it is.
std::string notRootsOwn(const std::string& path, const struct stat& info) {
  if (info.st_uid != 0) {
    return path + ": belongs to user " + std::to_string(info.st_uid) +
           ", not to root: somebody else could change it; see to its content, then chown root";
  }
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return path + ": others than root may write to it; see to its content, then chmod go-w";
  }
  return {};
}

std::string folderFault(const std::string& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0) return folder + ": " + std::strerror(errno);
  return notRootsOwn(folder, info);
}

std::string openFault(const std::string& path, int error) {
  if (error == ELOOP) return path + ": is a link; put the file itself there";
  if (error == EACCES) return path + ": you may not read it; ask as root";
  return path + ": cannot be opened: " + std::strerror(error);
}

std::string fileFault(const std::string& path, const struct stat& info) {
  if (!S_ISREG(info.st_mode)) return path + ": is no regular file";
  std::string fault = notRootsOwn(path, info);
  return fault.empty() ? folderFault(fs::path(path).parent_path().string()) : fault;
}

std::string besideConfiguration(const std::string& configurationFolder, const std::string& name) {
  return (fs::path(configurationFolder).parent_path() / name).string();
}

bool isDropInName(const std::string& name) {
  return std::ranges::all_of(name,
                             [](char c) { return boost::is_alnum()(c) || c == '_' || c == '-'; });
}

std::string dropInFault(const std::string& path, bool executable) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return path + ": " + std::strerror(errno);
  if (!S_ISREG(info.st_mode)) return path + ": is no regular file; put the file itself there";
  std::string fault = notRootsOwn(path, info);
  if (fault.empty() && executable && (info.st_mode & S_IXUSR) == 0) {
    fault = path + ": is not executable; chmod +x it, or remove it";
  }
  return fault;
}

}  // namespace

std::string settingsFileOf(const std::string& configurationFolder, const std::string& instance) {
  constexpr std::size_t kMostName = 200;
  if (instance.find('/') != std::string::npos || instance.size() > kMostName) return {};
  return besideConfiguration(configurationFolder,
                             instance.empty() ? "update.toml" : "update." + instance + ".toml");
}

std::string dropInFolderOf(const std::string& configurationFolder) {
  return besideConfiguration(configurationFolder, "update.d");
}

SettingsRead readSettingsFile(const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  if (path.empty()) return {};
  struct stat info {};
  const ScopedFd fd(::open(path.c_str(), kFlags));
  if (!fd) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) return {};
    // When no descriptor is free, that is the answer for a missing file, too.
    if (::lstat(path.c_str(), &info) != 0 && errno == ENOENT) return {};
    return {.settings = {}, .fault = openFault(path, error)};
  }
  std::string text;
  if (::fstat(fd.get(), &info) != 0) return {.settings = {}, .fault = openFault(path, errno)};
  if (std::string fault = fileFault(path, info); !fault.empty()) {
    return {.settings = {}, .fault = std::move(fault)};
  }
  if (const int error = osal_readAll(fd.get(), text, kMostBytes + 1); error != 0) {
    return {.settings = {}, .fault = openFault(path, error)};
  }
  if (text.size() > kMostBytes) return {.settings = {}, .fault = path + ": is larger than 1 MiB"};

  auto parsed = parseSettings(text);
  if (const auto* const fault = std::get_if<SettingsFault>(&parsed)) {
    return {.settings = {}, .fault = describeFault(path, *fault)};
  }
  Settings& settings = std::get<Settings>(parsed);
  if (settings.hasPassword && (info.st_mode & (S_IRGRP | S_IROTH)) != 0) {
    return {.settings = {},
            .fault = path +
                     ": holds a password that others can read; chmod 600 it, and change "
                     "the password if others may have read it"};
  }
  return {.settings = std::move(settings), .fault = {}};
}

std::string foreignFileFault(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? fileFault(path, info) : std::string();
}

DropIns listDropIns(const std::string& folder, bool executable) {
  boost::system::error_code failed;
  fs::directory_iterator entry(folder, failed);
  DropIns result;
  if (failed == boost::system::errc::no_such_file_or_directory) {
    for (const fs::path& path : {fs::path(folder).parent_path(), fs::path(folder)}) {
      const bool isLink = fs::symlink_status(path, failed).type() == fs::symlink_file;
      if (isLink && !fs::exists(path, failed)) result.fault = path.string() + ": a link to nowhere";
    }
    return result;
  }
  result.fault = failed ? folder + ": " + failed.message() : folderFault(folder);
  // Whoever may write to the one above could put another in its place.
  if (result.fault.empty()) result.fault = folderFault(fs::path(folder).parent_path().string());
  for (; result.fault.empty() && entry != fs::directory_iterator(); entry.increment(failed)) {
    const std::string name = entry->path().filename().string();
    if (!isDropInName(name)) {
      if (!name.starts_with('.')) result.passedOver.push_back(entry->path().string());
      continue;
    }
    result.files.push_back(entry->path().string());
    result.fault = dropInFault(entry->path().string(), executable);
  }
  if (result.fault.empty() && failed) result.fault = folder + ": " + failed.message();
  std::ranges::sort(result.files);
  return result;
}
