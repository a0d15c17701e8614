#include "Updater/health/checks.h"

#include <algorithm>

#include "Updater/command/childRun.h"
#include "logging/QDLog.h"

std::vector<FailedCheck> runChecks(
    const std::vector<std::string>& files,
    const std::vector<std::pair<std::string, std::string>>& environment, std::chrono::seconds limit,
    const std::function<bool()>& cancelled) {
  std::vector<FailedCheck> failed;
  for (const std::string& file : files) {
    if (cancelled && cancelled()) break;
    const std::string name = file.substr(file.rfind('/') + 1);
    QDLOG(ROOT, NFY, "Check " << name);
    const utils::ChildRun run = {
        .program = file,
        .environment = environment,
        .limit = limit,
        .onLine = [&name](const std::string& line) { QDLOG(ROOT, NFY, name << ": " << line); },
        .cancelled = cancelled,
        .adopts = true};
    const std::string fault = utils::faultText("check " + name, utils::runChild(run), limit);
    if (fault.empty()) continue;
    QDLOG(ROOT, WRN, fault);
    failed.push_back({file, fault});
  }
  return failed;
}

std::string newFault(const std::vector<FailedCheck>& before, const std::vector<FailedCheck>& now) {
  const auto isNew = [&before](const FailedCheck& failed) {
    return std::ranges::find(before, failed.file, &FailedCheck::file) == before.end();
  };
  const auto found = std::ranges::find_if(now, isNew);
  return found == now.end() ? std::string() : found->fault;
}
