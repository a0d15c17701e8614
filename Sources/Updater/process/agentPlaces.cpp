#include "Updater/process/agentPlaces.h"

#include <boost/filesystem/operations.hpp>
#include <exception>

#include "Updater/terms/utilsPlatform.h"
#include "base/osal/MacOS/UxosalConf.h"
#include "ground/osal_bytes.h"
#include "ground/osal_ownfile.h"
#include "osal/osal_fs.h"
#include "osal/osal_sys.h"

namespace {

constexpr const char* kLogFile = "agent_upd.log";

/// The agent's data folder as its configuration has it; empty when it is not known.
std::string dataFolder() try {
  const std::string file = dataFolderFile(utils::getConfigurationFolder(), agentInstance());
  if (file.empty()) return {};
  char folder[1024] = {};
  osal_getconfstr(file.c_str(), folder, sizeof folder);
  return folder;
} catch (...) {
  return {};
}

}  // namespace

std::string agentInstance() {
  char instance[1024] = {};
  return osal_getEnv("QD_AGENT_INSTANCE", instance, sizeof instance) == 0 ? instance : "";
}

std::string dataFolderFile(const std::string& configurationFolder, const std::string& instance) {
  constexpr std::size_t kMaxFolder = 1055;
  if (instance.find('/') != std::string::npos) return {};
  std::string folder = configurationFolder;
  if (!instance.empty()) folder += "." + instance;
  return folder.size() > kMaxFolder ? std::string() : folder + "/dbdir.cfg";
}

LogPlace findLogPlace() {
  const std::string data = dataFolder();
  std::string folder;
  if (data.empty()) {
    folder = boost::filesystem::temp_directory_path().string();
  } else {
    folder = utils::joinPath(data, "UpdLogs");
    osal_mkdir(osal_bytes(folder), nullptr, false);
  }
  // Users who may write to the data folder could exchange the log folder in it.
  const bool shared = data.empty() || osal_folderIsShared(data.c_str());
  return {utils::joinPath(folder, kLogFile), shared};
}

LogPlace findLogPlaceAnyway() try { return findLogPlace(); } catch (const std::exception&) {
  return {utils::joinPath("/tmp", kLogFile), true};
}
