#include "osal/osal_thread.h"

#include <pthread.h>
#include <unistd.h>

#include <cstddef>

#include "logging/QDLog.h"

#if defined(__APPLE__)
#include <pthread/qos.h>
#endif

namespace {

int setQos(pthread_attr_t* attributes, OSAL_QOS qos) {
#if defined(__APPLE__)
  qos_class_t systemClass = QOS_CLASS_DEFAULT;
  switch (qos) {
    case OSAL_QOS_UNSPECIFIED:
      systemClass = QOS_CLASS_UNSPECIFIED;
      break;
    case OSAL_QOS_EFFICIENCY:
      systemClass = QOS_CLASS_BACKGROUND;
      break;
    case OSAL_QOS_PERFORMANCE:
      systemClass = QOS_CLASS_USER_INTERACTIVE;
      break;
    case OSAL_QOS_DEFAULT:
      break;
  }
  return pthread_attr_set_qos_class_np(attributes, systemClass, 0);
#else
  static_cast<void>(attributes);
  static_cast<void>(qos);
  return 0;
#endif
}

std::size_t wholePages(std::size_t size) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return (size + page - 1) / page * page;
}

/// Returns 0, or -1 when the thread must not be started with these attributes.
int prepare(pthread_attr_t* attributes, unsigned int stackSize, const char* name, OSAL_QOS qos) {
  std::size_t defaultSize = 0;
  if (const int code = pthread_attr_getstacksize(attributes, &defaultSize); code != 0) {
    QDLOG(OSAL, WRN, "Cannot get stack size attribute (" << code << ")");
  }
  if (stackSize != 0) {
    const int code = pthread_attr_setstacksize(attributes, wholePages(stackSize));
    if (code != 0) {
      QDLOG(OSAL, EL2, "Cannot set stack size thread attribute (" << code << ")");
      return -1;
    }
  }
  if (const int code = setQos(attributes, qos); code != 0) {
    QDLOG(OSAL, WRN, "Cannot set QoS thread attribute (" << code << ")");
  } else {
    QDLOG(OSAL, DBG, "Set QoS to " << osal_qosToString(qos) << " for thread \"" << name << "\"");
  }
  return 0;
}

}  // namespace

const char* osal_qosToString(OSAL_QOS qos) {
  switch (qos) {
    case OSAL_QOS_UNSPECIFIED:
      return "unspecified";
    case OSAL_QOS_EFFICIENCY:
      return "efficiency";
    case OSAL_QOS_PERFORMANCE:
      return "performance";
    case OSAL_QOS_DEFAULT:
      return "default";
  }
  return "";
}

int osal_launchThread(void* (*fn)(void*), unsigned int stackSize, void* arg, const char* name,
                      OSAL_QOS qos) {
  pthread_attr_t attributes;
  if (const int code = pthread_attr_init(&attributes); code != 0) {
    QDLOG(OSAL, EL2, "Cannot initialize thread attributes (" << code << ")");
    return -1;
  }
  pthread_t thread{};
  int result = prepare(&attributes, stackSize, name, qos);
  if (result == 0) {
    if (const int code = pthread_create(&thread, &attributes, fn, arg); code != 0) {
      QDLOG(OSAL, EL2, "Cannot launch thread (" << code << ")");
      result = -1;
    }
  }
  if (const int code = pthread_attr_destroy(&attributes); code != 0) {
    QDLOG(OSAL, EL2, "Cannot destroy thread attributes (" << code << ")");
  }
  if (result != 0) return -1;
  if (const int code = pthread_detach(thread); code != 0) {
    QDLOG(OSAL, EL2, "Cannot detach thread (" << code << ")");
  }
  return 0;
}
