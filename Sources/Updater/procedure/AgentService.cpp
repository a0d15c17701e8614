#include "Updater/procedure/AgentService.h"

#include <utility>

#include "Updater/command/childRun.h"
#include "Updater/health/agentWatch.h"
#include "Updater/outcome/hooks.h"
#include "Updater/procedure/windowCommands.h"

AgentService::AgentService(std::string startCmd, std::string stopCmd, CommandOutput* output)
    : startCmd_(std::move(startCmd)),
      stopCmd_(std::move(stopCmd)),
      unit_(unitStartedBy(startCmd_)),
      resetCmd_("systemctl reset-failed " + unit_ + " 2>/dev/null"),
      killCmd_("systemctl kill --signal=SIGKILL " + unit_),
      output_(output) {}

void AgentService::stop(std::chrono::seconds limit) const noexcept {
  QD_LOG_QUIETLY(NFY, "Agent Stopping ....");
  if (unit_.empty()) limit = std::chrono::seconds(0);
  int r = execute(stopCmd_.c_str(), output_, limit);
  if (r == utils::kTookTooLong) {
    QD_LOG_QUIETLY(WRN, "The agent did not stop within " << limit.count() << " s: it is killed");
    execute(killCmd_.c_str(), output_, limit);
    r = execute(stopCmd_.c_str(), output_, limit);
  }
  if (r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to stop agent: [" << r << "]");
  } else {
    QD_LOG_QUIETLY(NFY, "Agent Stopped");
  }
}

bool AgentService::start(std::chrono::seconds limit) noexcept {
  if (unit_.empty()) limit = std::chrono::seconds(0);
  started_ = std::chrono::steady_clock::now();
  const int r = executePersistently(startCmd_.c_str(), output_, limit);
  if (r == utils::kTookTooLong) {
    QD_LOG_QUIETLY(WRN, "The agent is not ready after " << limit.count() << " s");
    return true;
  }
  if (r != 0) {
    QD_LOG_QUIETLY(ERR, "Fail to re-start agent : [" << r << "]");
    return false;
  }
  QD_LOG_QUIETLY(NFY, "Agent Started");
  return true;
}

void AgentService::refresh() const noexcept {
  if (unit_.empty()) return;
  execute("systemctl daemon-reload", output_);
  execute(resetCmd_.c_str(), output_);
}

std::string AgentService::findAilment(const AgentCare& care, const RunRecord& record) const {
  QDLOG(ROOT, NFY, "Looking after the agent");
  if (!unit_.empty()) {
    std::string ailment = watchUnit(unit_, started_, care.health.settle, care.health.timeout);
    if (!ailment.empty()) return ailment;
  }
  return newFault(care.failedBefore,
                  runChecks(care.checks, hookEnvironment(record), care.health.timeout, {}));
}
