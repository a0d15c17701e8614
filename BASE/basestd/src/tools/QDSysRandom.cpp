#include <openssl/err.h>
#include <openssl/rand.h>

#include "tools/QDException.h"
#include "tools/QDSys.h"

bool QDSys::_randInit = false;

namespace {

void fill(void* buf, int len, const char* operation) {
  const int result = RAND_bytes(static_cast<unsigned char*>(buf), len);
  if (result == 1) return;
  if (result == -1) {
    QD_THROW_ERROR(operation << ": RAND_bytes error (not supported by the current RAND method)");
  }
  QD_THROW_ERROR(operation << ": RAND_bytes error : " << ERR_get_error());
}

}  // namespace

void QDSys::_initRandom() {
  if (_randInit) return;
  const unsigned long long now = timeMs();
  RAND_seed(&now, sizeof now);
  _randInit = true;
}

unsigned long long QDSys::QDRand() {
  _initRandom();
  unsigned long long number = 0;
  fill(&number, sizeof number, "random (init)");
  return number;
}

void QDSys::QDRand(void* buf, unsigned short len) {
  if (buf == nullptr && len > 0) QD_THROW_ERROR("random: First arg is NULL");
  _initRandom();
  fill(buf, len, "random");
}
