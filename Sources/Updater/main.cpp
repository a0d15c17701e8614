#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <string>

#include "Updater/commandLine.h"
#include "Updater/net/HttpClient.h"
#include "Updater/procedure/Updater.h"
#include "Updater/process/agentUnit.h"
#include "Updater/process/processStart.h"
#include "Updater/terms/utilsPlatform.h"
#include "base/osal/MacOS/UxosalConf.h"
#include "ground/osal_bytes.h"
#include "ground/osal_ownfile.h"
#include "logging/FileQDLogCb.h"
#include "logging/QDLog.h"
#include "osal/osal_fs.h"
#include "osal/osal_sys.h"

/// The run's sink; `main` deletes it when nothing is logged any more.
FileQDLogCb* g_QDLogCb = nullptr;

namespace {

/// The agent's data folder as its configuration has it; empty when it is not known.
std::string dataFolder() try {
  char instance[1024] = {};
  if (osal_getEnv("QD_AGENT_INSTANCE", instance, sizeof instance) != 0) instance[0] = '\0';
  const std::string file = dataFolderFile(utils::getConfigurationFolder(), instance);
  if (file.empty()) return {};
  char folder[1024] = {};
  osal_getconfstr(file.c_str(), folder, sizeof folder);
  return folder;
} catch (...) {
  return {};
}

/// Sets the levels and sends the log to the agent's log folder, or to the temporary folder when the
/// agent's is not known. `echo`: to standard output as well.
void init_logging(bool echo) {
  QDLog* const logger = QDLog::getLogger();
  if (logger == nullptr) throw std::bad_alloc();
  logger->setLevels("ROOT:5;");
  logger->setLogCb(nullptr);  // the search for the log's place is nobody's news

  const std::string data = dataFolder();
  std::string logFolder;
  if (data.empty()) {
    logFolder = boost::filesystem::temp_directory_path().string();
  } else {
    logFolder = utils::joinPath(data, "UpdLogs");
    osal_mkdir(osal_bytes(logFolder), nullptr, false);
  }
  // In a data folder that others may write to they could exchange the log folder itself.
  const bool shared = data.empty() || osal_folderIsShared(data.c_str());
  g_QDLogCb = new FileQDLogCb(utils::joinPath(logFolder, "agent_upd.log"), echo, shared);
  logger->setLogCb(g_QDLogCb);
}

/// Takes the sink off the logger and deletes it, on every way out.
class LogEnd {
 public:
  LogEnd() : logger_(QDLog::getLogger()) {}  // created here: at the end there may be no memory
  LogEnd(const LogEnd&) = delete;
  LogEnd& operator=(const LogEnd&) = delete;
  ~LogEnd() {
    if (logger_ != nullptr) logger_->setLogCb(nullptr);
    delete g_QDLogCb;
    g_QDLogCb = nullptr;
  }

 private:
  QDLog* logger_;
};

int usage() {
  std::cout << "Usage : \nupdate [-D] <url> <version>\n";
  return 1;
}

int runUpdate(const CommandLine& arguments) {
  const std::string staysInUnit = leaveAgentUnit();
  const LogEnd logEnd;
  init_logging(arguments.echo);
  if (!staysInUnit.empty()) QDLOG(ROOT, WRN, "Cannot leave the agent's unit : " << staysInUnit);
  std::string url = utils::decodeURL(arguments.url);
  if (url.ends_with('/')) url.pop_back();
  return Updater(arguments.skipInstall).checkAndUpdate(url, arguments.version);
}

}  // namespace

int main(int argc, char** argv) {
  setpgrp();
  try {
    prepareProcess();
    const std::optional<CommandLine> arguments = readCommandLine(argc, argv);
    return arguments ? runUpdate(*arguments) : usage();
  } catch (const std::exception& e) {
    std::cout << e.what();
    return 0;
  } catch (...) {
    return usage();
  }
}
