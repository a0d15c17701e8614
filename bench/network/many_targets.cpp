// many_targets REPOSITORY KEYS COUNT: describes so many targets, which are not there, in a
// repository that qd-repo has made.

#include <cstdlib>
#include <ctime>
#include <string>

#include "tufrepo/Repository.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  tufrepo::KeyRing keys([](const std::string&) { return std::string(); });
  keys.addFolder(argv[2]);
  tufrepo::Repository repository(argv[1]);
  auto entries = tuf::Json::object();
  for (int i = 0; i < std::atoi(argv[3]); ++i) {
    const std::string version = "7.2." + std::to_string(i / 100) + "." + std::to_string(i % 100);
    const std::string path = "linux/amd64/qdagent_" + version + ".deb";
    const std::string digits = tuf::sha256Hex(path);
    const tuf::Json custom = {
        {"qd",
         {{"version", version},
          {"os", "linux"},
          {"arch", "amd64"},
          {"kind", "deb"},
          {"channels", {{"stable", {{"percent", 100}, {"start", "2026-03-01T14:05:09Z"}}}}}}}};
    entries[path] = tufrepo::describeTarget(
        {path, 1 << 20, {{"sha256", digits}, {"sha512", digits + digits}}, custom});
  }
  repository.setEntries(std::move(entries));
  repository.renew(keys, {.targets = true, .snapshot = true}, std::time(nullptr));
}
