#include "tools/TimeoutTerminator.h"

#include "tools/QDSys.h"

TimeoutTerminator::TimeoutTerminator(unsigned long long timeoutMs)
    : start(QDSys::timeMs()), timeout(timeoutMs) {}

void TimeoutTerminator::reset(unsigned long long timeoutMs) {
  start = QDSys::timeMs();
  timeout = timeoutMs;
}

bool TimeoutTerminator::chkTerminate() { return QDSys::timeMs() - start >= timeout; }
