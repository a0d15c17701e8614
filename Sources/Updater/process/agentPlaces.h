#pragma once

#include <string>

/// The agent's instance that this run is for, as the environment names it; may be empty.
std::string agentInstance();

/// The file that holds the agent's data folder, for an agent instance that may be empty; empty for
/// an instance name that can't be one.
std::string dataFolderFile(const std::string& configurationFolder, const std::string& instance);

/// Where the log goes.
struct LogPlace {
  std::string file;
  bool shared = false;  ///< others could exchange it: open it as FileQDLogCb does a shared one
};

/// The agent's log folder, created where it is missing, or the temporary folder when the agent's is
/// not known. Throws boost::filesystem::filesystem_error when there is no temporary folder either.
LogPlace findLogPlace();

/// The same, but the log goes to /tmp when there is no temporary folder: whoever has work to do
/// does it all the same.
LogPlace findLogPlaceAnyway();
