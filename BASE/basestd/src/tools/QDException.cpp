#include "tools/QDException.h"

#include <cstdio>

void qdTraceException(const QDException& exception, const char* word) {
  switch (exception.code()) {
    case 1:
      QDLOG(EXCP, ERR, word << " - " << static_cast<const void*>(&exception));
      break;
    case 2:
      QDLOG(EXCP, WRN, word << " - " << static_cast<const void*>(&exception));
      break;
    case 3:
      std::fprintf(stderr, "%s\n", word);
      break;
    default:
      break;
  }
}
