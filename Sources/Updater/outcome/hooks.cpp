#include "Updater/outcome/hooks.h"

#include "Updater/command/childRun.h"
#include "logging/QDLog.h"

namespace {

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

std::vector<std::pair<std::string, std::string>> hookEnvironment(const RunRecord& record) {
  return {{"QD_UPDATE_FROM", record.from},
          {"QD_UPDATE_TO", record.to},
          {"QD_UPDATE_PHASE", std::string(phaseToString(record.phase))},
          {"QD_UPDATE_OUTCOME", std::string(outcomeToString(record.outcome))},
          {"QD_UPDATE_STATUS", std::to_string(record.status)},
          {"QD_UPDATE_CAUSE", record.cause},
          {"QD_UPDATE_RUN", record.run}};
}

std::string runHooks(const std::vector<std::string>& files, std::string_view prefix,
                     const RunRecord& record, bool stopAtFailure,
                     const std::function<bool()>& cancelled) {
  std::string firstFailure;
  for (const std::string& file : files) {
    const std::string name = nameOf(file);
    if (!name.starts_with(prefix)) continue;
    QDLOG(ROOT, NFY, "Hook " << name);
    const utils::ChildRun run = {
        .program = file,
        .environment = hookEnvironment(record),
        .onLine = [&name](const std::string& line) { QDLOG(ROOT, NFY, name << ": " << line); },
        .cancelled = cancelled,
        .adopts = true};
    const std::string failure = utils::faultText("hook " + name, utils::runChild(run), run.limit);
    if (failure.empty()) continue;
    QDLOG(ROOT, WRN, failure);
    if (firstFailure.empty()) firstFailure = failure;
    if (stopAtFailure) break;
  }
  return firstFailure;
}
