#include "Updater/prepare/configurationFiles.h"

#include <unistd.h>

#include <algorithm>

#include "Updater/prepare/rehearsal.h"

namespace utils {

namespace {

/// rpm names a file a line; dpkg, behind a blank, with its digest, and what else it knows of it.
std::vector<std::string> configurationFiles(AgentDistrib distrib) {
  const bool isRpm = distrib == DistribRpm;
  const std::vector<std::string> lines =
      isRpm ? ask({"rpm", "-q", "--configfiles", "qdagent"}, false).lines
            : ask({"dpkg-query", "--show", "--showformat=${Conffiles}\\n", "qdagent"}, false).lines;
  std::vector<std::string> files;
  for (const std::string& line : lines) {
    const std::size_t begin = line.find('/');
    if (begin == std::string::npos) continue;
    const std::string file =
        line.substr(begin, isRpm ? std::string::npos : line.find(' ', begin) - begin);
    if (::access(file.c_str(), F_OK) == 0) files.push_back(file);
  }
  return files;
}

std::vector<std::string> tarWords(const std::string& what, const std::string& path) {
  return {"tar",    what,       "--absolute-names", "--same-permissions",
          "--acls", "--xattrs", "--selinux",        "--file",
          path};
}

}  // namespace

bool saveConfigurationFiles(AgentDistrib distrib, const std::string& path) {
  ::unlink(path.c_str());
  const std::vector<std::string> files = configurationFiles(distrib);
  if (files.empty()) return true;
  std::vector<std::string> words = tarWords("--create", path);
  words.emplace_back("--");
  words.insert(words.end(), files.begin(), files.end());
  return ask(words, true).status == 0;
}

bool restoreConfigurationFiles(const std::string& path) {
  return ::access(path.c_str(), F_OK) != 0 || ask(tarWords("--extract", path), true).status == 0;
}

}  // namespace utils
