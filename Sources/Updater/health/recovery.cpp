#include "Updater/health/recovery.h"

RecoveryAct planRecovery(const RecoveryFacts& facts) {
  using enum RecoveryAct;
  using There = RecoveryFacts::There;
  if (facts.there == There::Unknown || facts.step == WindowStep::Stop) return StartOnly;
  if (facts.step == WindowStep::Rollback && facts.canRollBack) return PutBack;
  const bool torn = facts.mayBeTorn && facts.there == There::Former;
  if (!facts.isWhole || torn) {
    if (facts.canComplete) return Complete;
    // What was there before is known to run; nobody has seen yet how the new version does.
    if (facts.canRollBack) return PutBack;
    return facts.canInstall ? InstallAgain : StartOnly;
  }
  // One that is being taken back has been judged.
  return facts.there == There::New && facts.step != WindowStep::Rollback ? Judge : StartOnly;
}
