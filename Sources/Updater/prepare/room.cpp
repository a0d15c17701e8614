#include "Updater/prepare/room.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <map>

#include "Updater/prepare/rehearsal.h"

namespace utils {

std::optional<unsigned long long> freeBytes(const std::string& path) {
  struct statvfs info {};
  if (::statvfs(path.c_str(), &info) != 0 || info.f_blocks == 0) return std::nullopt;
  return static_cast<unsigned long long>(info.f_bavail) * info.f_frsize;
}

std::string placeOfAgent(AgentDistrib distrib) {
  struct Share {
    unsigned long long bytes = 0;
    std::string path;
  };
  std::map<dev_t, Share> shares;
  const auto files = distrib == DistribRpm
                         ? ask({"rpm", "-ql", "qdagent"}, false).lines
                         : ask({"dpkg-query", "--listfiles", "qdagent"}, false).lines;
  std::string place = "/usr";
  unsigned long long most = 0;
  for (const std::string& file : files) {
    struct stat info {};
    if (!file.starts_with('/') || ::lstat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
      continue;
    }
    Share& share = shares[info.st_dev];
    share.bytes += static_cast<unsigned long long>(info.st_size);
    if (share.path.empty()) share.path = file.substr(0, file.rfind('/') + 1);
    if (share.bytes > most) {
      most = share.bytes;
      place = share.path;
    }
  }
  return place;
}

std::string placeOfDatabase(AgentDistrib distrib) {
  if (distrib != DistribRpm) return "/var/lib/dpkg";
  const auto answer = ask({"rpm", "--eval", "%{_dbpath}"}, false);
  const bool isPath =
      answer.status == 0 && !answer.lines.empty() && answer.lines.back().starts_with('/');
  return isPath ? answer.lines.back() : "/var/lib/rpm";
}

std::string missingRoom(const std::string& path, unsigned long long bytes,
                        unsigned long long reserve) {
  const auto free = freeBytes(path);
  if (!free || (*free >= bytes && *free - bytes >= reserve)) return {};
  return "not enough room at " + path + ": " + sizeText(bytes) + " are needed and " +
         sizeText(reserve) + " stay in reserve, " + sizeText(*free) + " are free";
}

std::string sizeText(unsigned long long bytes) {
  constexpr unsigned long long kKiB = 1024;
  constexpr unsigned long long kMiB = kKiB * kKiB;
  const auto text = [bytes](unsigned long long unit, const char* name) {
    return std::to_string(bytes / unit + (bytes % unit != 0)) + name;
  };
  if (bytes >= kMiB) return text(kMiB, " MiB");
  return bytes >= kKiB ? text(kKiB, " KiB") : text(1, " bytes");
}

}  // namespace utils
