#include "tools/QDSys.h"

#include <algorithm>
#include <chrono>

#include "osal/osal_sys.h"
#include "tools/QDException.h"

unsigned long long QDSys::_uniqID = 0;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kSliceMs = 1000;

struct TimeBase {
  unsigned long long wallMs;
  Clock::time_point start;
};

TimeBase readTimeBase() {
  unsigned long long wallMs = 0;
  if (osal_getMs(&wallMs) != 0) QD_THROW_ERROR("timeMs: Cannot get time in ms");
  return {wallMs, Clock::now()};
}

bool shallStop(QDTermIntf* term, const char* reason) {
  if (term == nullptr || !term->chkTerminate()) return false;
  QDLOG(IDLE, DBG, "Sleep interrupted due to requested termination : \"" << reason << '"');
  return true;
}

}  // namespace

void QDSys::sleep(unsigned int seconds, QDTermIntf* term, const char* reason) {
  QDLOG(IDLE, INF, "sleep " << seconds << " s : \"" << reason << '"');
  for (unsigned int second = 0; second < seconds; ++second) {
    if (shallStop(term, reason)) return;
    sleepMs(kSliceMs, nullptr, reason);
  }
}

void QDSys::sleepMs(unsigned int ms, QDTermIntf* term, const char* reason) {
  QDLOG(IDLE, INF, "sleep " << ms << " ms : \"" << reason << '"');
  for (unsigned int left = ms; left > 0;) {
    if (shallStop(term, reason)) return;
    const unsigned int slice = std::min(left, kSliceMs);
    if (osal_doSleep(slice) != 0) {
      QDLOG(IDLE, EL2, "Cannot sleep " << ms << " ms");
      return;
    }
    left -= slice;
  }
}

unsigned long long QDSys::timeMs() {
  static const TimeBase base = readTimeBase();
  const auto passed =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - base.start);
  return base.wallMs + static_cast<unsigned long long>(passed.count());
}

unsigned int QDSys::getPID() {
  unsigned int pid = 0;
  if (osal_getPid(&pid) != 0) QD_THROW_ERROR("getPID: Cannot get PID");
  return pid;
}

unsigned long long QDSys::getWeakSeqID() {
  if (_uniqID == 0) _uniqID = timeMs();
  return ++_uniqID;
}

int QDSys::getTZOffset() {
  int seconds = 0;
  if (osal_getTZOffset(&seconds) != 0) QD_THROW_ERROR("Cannot get timezone offset");
  return seconds;
}

int QDSys::getIniTZOffset() {
  int seconds = 0;
  if (osal_getIniTZOffset(&seconds) != 0) QD_THROW_ERROR("Cannot get timezone offset");
  return seconds;
}

void QDSys::getRAMInfos(unsigned int& privateMiB, unsigned int& residentMiB) {
  unsigned long long physicalMiB = 0;
  if (osal_getRAMInfos(privateMiB, residentMiB, physicalMiB) != 0) {
    QD_THROW_ERROR("Cannot get RAM infos");
  }
}

void QDSys::exitNoErr() { osal_exit(0); }

void QDSys::exitErr(unsigned short code) { osal_exit(code); }

void QDSys::exitRLDB() { osal_exit(97); }
