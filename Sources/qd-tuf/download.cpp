#include "qd-tuf/download.h"

#include "tuf/Error.h"
#include "tuf/address.h"

namespace {

bool isThere(const tuf::TargetFile& target, const tuf::Folder& folder, const std::string& name) {
  try {
    tuf::FileCheck check(target.length, target.hashes);
    if (!folder.read(name, [&](std::string_view bytes) { check.update(bytes); })) return false;
    check.finish(name);
    return true;
  } catch (const tuf::Error&) {
    return false;
  }
}

}  // namespace

void download(tuf::Client& client, const std::vector<std::string>& names,
              const std::string& baseUrl, tuf::Folder& folder) {
  for (const std::string& name : names) {
    const tuf::TargetFile target = client.findTarget(name);
    const std::string file = tuf::targetFile(name);
    if (isThere(target, folder, file)) continue;
    folder.replace(file, [&](const auto& sink) { client.fetchTarget(target, baseUrl, sink); });
  }
}
