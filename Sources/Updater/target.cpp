// What is fixed when the program is built.

#include "Updater/utilsPlatform.h"

namespace utils {

AgentOS getOS() { return QD_TARGET_FAMILY; }

bool isSyno() { return QD_TARGET_IS_SYNOLOGY; }

const char* getConfigurationFolder() { return QD_CONFIGURATION_FOLDER; }

}  // namespace utils
