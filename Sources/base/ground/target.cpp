#include "base/ground/target.h"

TargetFamily targetFamily() { return TargetFamily::QD_TARGET_FAMILY; }

bool targetIsSynology() { return QD_TARGET_IS_SYNOLOGY; }

const char* targetConfigurationFolder() { return QD_CONFIGURATION_FOLDER; }

const char* targetStateFolder() { return QD_STATE_FOLDER; }

const char* targetProgramVersion() { return QD_PROGRAM_VERSION; }
