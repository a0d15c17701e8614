#pragma once

#include "tools/QDTermIntf.h"

/// Ends a wait after a time: `chkTerminate` is true once it has passed. For one polling thread.
class TimeoutTerminator : public QDTermIntf {
 public:
  /// The time, in milliseconds, runs from here. Throws as `QDSys::timeMs` does.
  explicit TimeoutTerminator(unsigned long long timeoutMs);

  /// Starts again, with another time.
  void reset(unsigned long long timeoutMs);

  bool chkTerminate() override;

 private:
  unsigned long long start;
  unsigned long long timeout;
};
