#include "Updater/prepare/cachedPackage.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <filesystem>

#include "Updater/prepare/packageOutput.h"
#include "Updater/prepare/rehearsal.h"

namespace fs = boost::filesystem;

namespace utils {

namespace {

constexpr const char* kAptCache = "/var/cache/apt/archives";
constexpr const char* kDnfCaches[] = {"/var/cache/dnf", "/var/cache/libdnf5", "/var/cache/yum"};

/// Digests of a package's headers: those of main header and payload.
constexpr const char* kHeaderDigests = "%{SHA256HEADER} %{SIGMD5}\\n";

std::string fileVersion(AgentDistrib distrib, const std::string& path) {
  const auto lines =
      distrib == DistribRpm
          ? ask({"rpm", "-qp", "--nosignature", "--queryformat", "%{VERSION}\\n", path}, false)
                .lines
          : ask({"dpkg-deb", "--field", path, "Version"}, false).lines;
  return lines.empty() ? std::string() : lines.back();
}

/// Files below `folder` that are named like the agent's package.
void findNamed(const std::string& folder, const std::string& begin, const std::string& end,
               std::vector<std::string>& found) {
  boost::system::error_code failed;
  for (fs::recursive_directory_iterator entry(folder, failed), last; !failed && entry != last;
       entry.increment(failed)) {
    const std::string name = entry->path().filename().string();
    if (name.starts_with(begin) && name.ends_with(end)) found.push_back(entry->path().string());
  }
}

}  // namespace

std::vector<std::string> cachedPackages(AgentDistrib distrib, const Version& version) {
  std::vector<std::string> files;
  if (distrib == DistribDeb) findNamed(kAptCache, "qdagent_", ".deb", files);
  if (distrib == DistribRpm) {
    for (const char* const cache : kDnfCaches) findNamed(cache, "qdagent-", ".rpm", files);
  }
  std::erase_if(files, [&](const std::string& file) {
    return Version(fileVersion(distrib, file)) != version;
  });
  return files;
}

bool isInstalledPackage(AgentDistrib distrib, const std::string& path, const std::string& sha256) {
  if (distrib == DistribRpm) {
    const auto installed = ask({"rpm", "-q", "--queryformat", kHeaderDigests, "qdagent"}, false);
    const auto file =
        ask({"rpm", "-qp", "--nosignature", "--queryformat", kHeaderDigests, path}, false);
    return installed.status == 0 && file.status == 0 && installed.lines == file.lines &&
           ask({"rpm", "--checksig", "--nosignature", path}, false).status == 0;
  }
  const auto version =
      ask({"dpkg-query", "--show", "--showformat=${Version}\\n", "qdagent"}, false);
  if (version.status != 0 || version.lines.empty() || sha256.empty()) return false;
  const auto known = ask({"apt-cache", "show", "qdagent=" + version.lines.back()}, false);
  return known.status == 0 && fieldIn(known.lines, "SHA256") == sha256;
}

/// Boost's copy_file fails from one file system to another where copy_file_range(2) does.
bool copyFile(const std::string& from, const std::string& to) {
  namespace sfs = std::filesystem;
  std::error_code failed;
  sfs::copy_file(from, to, sfs::copy_options::overwrite_existing, failed);
  if (!failed) sfs::permissions(to, sfs::perms::owner_read | sfs::perms::owner_write, failed);
  return !failed;
}

}  // namespace utils
