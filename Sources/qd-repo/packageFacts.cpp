#include "qd-repo/packageFacts.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Updater/command/utilsExec.h"
#include "Updater/command/utilsShell.h"
#include "tuf/canonicalJson.h"

using namespace std::string_view_literals;

namespace {

utils::AgentDistrib kindOf(const std::string& file) {
  std::array<char, 8> begin{};
  std::ifstream(file, std::ios::binary).read(begin.data(), begin.size());
  const std::string_view bytes(begin.data(), begin.size());
  if (bytes == "!<arch>\n"sv) return utils::DistribDeb;
  if (bytes.starts_with("\xED\xAB\xEE\xDB"sv)) return utils::DistribRpm;
  return utils::DistribNone;
}

/// "NAME: value" lines of the package manager's answer.
std::map<std::string, std::string> askFor(std::string command) {
  std::vector<std::string> lines;
  std::map<std::string, std::string> fields;
  if (utils::exec(command, lines) != 0) return fields;
  for (const std::string& line : lines) {
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos) fields[line.substr(0, colon)] = line.substr(colon + 2);
  }
  return fields;
}

}  // namespace

utils::AgentArch packageArch(const std::string& name) {
  if (name == "i386" || name == "i686" || name == "x86") return utils::ArchX86;
  if (name == "armhf" || name == "armv7hl" || name == "arm") return utils::ArchArm;
  return utils::stringToAgentArch(name);
}

PackageFacts readPackage(const std::string& file, const std::string& shown) {
  PackageFacts facts;
  facts.kind = kindOf(file);
  const std::string word = utils::shellWord(file);
  std::map<std::string, std::string> fields;
  if (facts.kind == utils::DistribDeb) {
    fields = askFor("dpkg-deb --field " + word + " Package Version Architecture 2>/dev/null");
  } else if (facts.kind == utils::DistribRpm) {
    fields = askFor(
        "rpm --query --package --nosignature --queryformat 'Package: %{NAME}\\nVersion: "
        "%{VERSION}\\nArchitecture: %{ARCH}\\n' " +
        word + " 2>/dev/null");
  }
  if (fields.size() != 3) {
    throw std::runtime_error(shown +
                             " is neither a Debian nor an RPM package that dpkg-deb or rpm "
                             "can read: build it anew");
  }
  if (fields["Package"] != utils::kAgentPackage) {
    throw std::runtime_error(shown + " is the package " + tuf::shown(fields["Package"]) +
                             ", which no machine takes: name one of " + utils::kAgentPackage);
  }
  const std::string version = fields["Version"].substr(0, fields["Version"].find('-'));
  facts.version = Version(version);
  if (!facts.version.isValid() || versionText(facts.version) != version) {
    throw std::runtime_error(shown + " has the version " + fields["Version"] +
                             ": give it four numbers, such as 7.2.1.15");
  }
  const std::string arch = fields["Architecture"];
  facts.arch = packageArch(arch);
  if (facts.arch == utils::ArchUnknown && arch != "all" && arch != "noarch") {
    throw std::runtime_error(shown + " is for " + tuf::shown(arch) + ", which is not known here");
  }
  return facts;
}
