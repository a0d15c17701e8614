#include "qd-repo/plainFiles.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <system_error>

#include "qd-repo/ListedRelease.h"
#include "qd-repo/definition.h"
#include "qd-repo/page.h"
#include "tuf/Folder.h"
#include "tufrepo/Repository.h"
#include "tufrepo/TargetStore.h"

namespace fs = std::filesystem;

void writePlainFiles(tufrepo::Repository& repository, std::time_t now) {
  repository.mend();
  const auto releases = releasesIn(repository);
  repository.top().write("index.html", pageOf(repository, releases, now));
  repository.top().write("agent_setup_def.json",
                         definitionOf(releases, UnixTime(std::chrono::seconds(now))));
}

namespace {

/// The hard link, made under another name where something else stands there.
void linkPlain(const fs::path& stored, const fs::path& plain) {
  std::error_code failure;
  if (fs::equivalent(stored, plain, failure)) return;
  const fs::path unfinished = plain.parent_path() / ".unfinished";
  ::unlink(unfinished.c_str());
  if (::link(stored.c_str(), unfinished.c_str()) == 0 &&
      ::rename(unfinished.c_str(), plain.c_str()) == 0) {
    return;
  }
  const int error = errno;
  throw std::runtime_error("Cannot link " + plain.string() + ": " +
                           std::generic_category().message(error));
}

}  // namespace

void placePlain(const std::string& repository, const ListedRelease& listed,
                const std::string& md5) {
  const fs::path plain = fs::path(repository) / listed.path;
  const std::string name = nameOf(listed);
  tuf::Folder folder(plain.parent_path().string());
  linkPlain(fs::path(repository) / "targets" / tufrepo::storedName(listed.path, listed.sha256),
            plain);
  folder.write(name + ".version", plainVersion(listed));
  folder.write(name + ".md5", plainDigest(listed, md5));
}

std::string plainVersion(const ListedRelease& listed) {
  return versionText(listed.release.version) + "\n";
}

std::string plainDigest(const ListedRelease& listed, const std::string& md5) {
  return md5 + "  " + nameOf(listed) + "\n";
}

bool isPublishedName(const std::string& name) {
  static const std::regex form(R"(\.unfinished|.+_\d+(\.\d+){3}\.(deb|rpm)(\.version|\.md5)?)");
  return std::regex_match(name, form);
}
