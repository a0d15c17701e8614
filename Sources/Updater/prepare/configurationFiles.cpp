#include "Updater/prepare/configurationFiles.h"

#include <unistd.h>

#include <algorithm>

#include "Updater/prepare/rehearsal.h"

namespace utils {

namespace {

/// The agent is stopped while it is put back, and must not wait for a tool that hangs.
CommandAnswer askBriefly(const std::vector<std::string>& words, bool logged) {
  return ask(words, logged, {}, std::chrono::minutes(1));
}

/// rpm names a file a line; dpkg, behind a blank, with its digest, and what else it knows of it.
std::vector<std::string> describeConfiguration(AgentDistrib distrib) {
  return distrib == DistribRpm
             ? askBriefly({"rpm", "-q", "--configfiles", "qdagent"}, false).lines
             : askBriefly({"dpkg-query", "--show", "--showformat=${Conffiles}\\n", "qdagent"},
                          false)
                   .lines;
}

/// Empty where a line names no file.
std::string fileIn(const std::string& line, AgentDistrib distrib) {
  const std::size_t begin = line.find('/');
  if (begin == std::string::npos) return {};
  const std::size_t end = distrib == DistribRpm ? std::string::npos : line.find(' ', begin);
  return line.substr(begin, end - begin);
}

std::vector<std::string> tarWords(const std::string& what, const std::string& path) {
  return {"tar",    what,       "--absolute-names", "--same-permissions",
          "--acls", "--xattrs", "--selinux",        "--file",
          path};
}

}  // namespace

bool saveConfigurationFiles(AgentDistrib distrib, const std::string& path) {
  ::unlink(path.c_str());
  std::vector<std::string> words = tarWords("--create", path);
  words.insert(words.end(),
               {"--files-from=/dev/null", "--"});  // that there are none is worth saving
  for (const std::string& line : describeConfiguration(distrib)) {
    std::string file = fileIn(line, distrib);
    if (!file.empty() && ::access(file.c_str(), F_OK) == 0) words.push_back(std::move(file));
  }
  return askBriefly(words, true).status == 0;
}

bool restoreConfigurationFiles(const std::string& path) {
  return ::access(path.c_str(), F_OK) != 0 ||
         askBriefly(tarWords("--extract", path), true).status == 0;
}

void removeForeignConfiguration(const std::string& path) {
  const CommandAnswer saved = askBriefly(
      {"tar", "--list", "--absolute-names", "--quoting-style=literal", "--file", path}, false);
  if (saved.status != 0) return;
  for (const std::string& line : describeConfiguration(DistribDeb)) {
    const std::string file = fileIn(line, DistribDeb);
    if (!line.ends_with(" obsolete") || std::ranges::count(saved.lines, file) > 0) continue;
    const std::vector<std::string> sum = askBriefly({"md5sum", "--", file}, false).lines;
    const bool isUnchanged =
        sum.size() == 1 && line.find(sum[0].substr(0, 32)) != std::string::npos;
    if (isUnchanged) ::unlink(file.c_str());
  }
}

}  // namespace utils
