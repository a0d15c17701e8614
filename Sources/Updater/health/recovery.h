#pragma once

#include "Updater/health/AgentWindow.h"

/// What is there after a run died, while nothing works on it any more.
struct RecoveryFacts {
  WindowStep step = WindowStep::Stop;  ///< in which the run died
  enum class There { Unknown, Nothing, Former, New, Other } there = There::Unknown;
  bool isWhole = false;      ///< what is there came to the end of its installation
  bool mayBeTorn = false;    ///< it had begun, and the package manager's word says nothing of files
  bool canComplete = false;  ///< the package manager has a way to end what it left half done
  bool canRollBack = false;  ///< the former version's package is kept and may come back
  bool canInstall = false;   ///< the new version's package still lies there
};

/// What brings it to an end.
enum class RecoveryAct {
  Complete,      ///< have the package manager end what it left half done, and look again
  PutBack,       ///< put the former version back
  InstallAgain,  ///< install the new version once more, then start and judge it
  Judge,         ///< start the new version and judge it
  StartOnly,     ///< start what is there
};

RecoveryAct planRecovery(const RecoveryFacts& facts);
