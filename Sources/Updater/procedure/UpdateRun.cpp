#include "Updater/procedure/UpdateRun.h"

#include "Updater/process/Interrupts.h"

void UpdateRun::fillRecord() const noexcept try {
  if (recorder == nullptr) return;
  RunRecord& record = recorder->record();
  record.size = expectedSize;
  record.attempts = static_cast<unsigned int>(attempts);
  if (available.isValid()) record.to = versionText(available);
} catch (...) {
  // The run is worth more.
}

void UpdateRun::enter(Phase phase) const noexcept {
  if (recorder == nullptr) return;
  fillRecord();
  recorder->enter(phase);
}

bool UpdateRun::isInterrupted() const { return settings != nullptr && Interrupts::came(); }
