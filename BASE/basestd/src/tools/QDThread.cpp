#include "tools/QDThread.h"

#include <cxxabi.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "ground/osal_process.h"
#include "ground/qdTunablesBaseValues.h"
#include "tools/QDException.h"

namespace {

/// What a thread needs to start. Lives from the launch to the end of the thread.
struct Launch {
  QDThread::Function fn;
  void* data;
  std::unique_ptr<std::byte[]> copy;  // where `data` points when the block was copied
  void* ctx;
};

std::unique_ptr<Launch> makeLaunch(QDThread::Function fn, void* data, unsigned int dataSize,
                                   void* ctx) {
  try {
    auto launch = std::make_unique<Launch>(Launch{fn, data, nullptr, ctx});
    if (dataSize != 0) {
      launch->copy.reset(new std::byte[dataSize]);
      std::memcpy(launch->copy.get(), data, dataSize);
      launch->data = launch->copy.get();
    }
    return launch;
  } catch (const std::bad_alloc&) {
    QD_THROW_ERROR("launchThread: Memory allocation error");
  }
}

/// Runs `action` and lets nothing out of it but the unwinding of a cancelled thread, which has to
/// go on to the thread's end. Returns whether it came to its own end.
///
/// The unwinding has no exception object for the reference to name, which checkers of references
/// would take for a fault.
template <typename Action>
__attribute__((no_sanitize("null"))) bool contain(Action action) {
  try {
    action();
    return true;
#if defined(__GLIBCXX__)
  } catch (const abi::__forced_unwind&) {
    throw;
#endif
  } catch (...) {
    return false;
  }
}

}  // namespace

void QDThread::launchThread(Function fn, unsigned int stackSize, void* data, unsigned int dataSize,
                            const char* name, QD_QOS qos, void* ctx) try {
  Launch* const launch = makeLaunch(fn, data, dataSize, ctx).release();  // the thread's, if it runs
  if (osal_launchThread(threadMgrFunc, stackSize != 0 ? stackSize : BASE_DEFAULT_THREAD_STACK,
                        launch, name, static_cast<OSAL_QOS>(qos)) < 0) {
    delete launch;
    QD_THROW_ERROR("launchThread: Cannot launch thread");
  }
} catch (const QDException& e) {
  qdTraceException(e, "ECT");
  throw;
}

void* QDThread::threadMgrFunc(void* record) {
  const std::unique_ptr<Launch> launch(static_cast<Launch*>(record));
  if (!contain([&] { launch->fn(launch->data, launch->ctx); })) {
    contain([] { QDLOG(THRD, ERR, "Exception occured during thread execution"); });
  }
  return nullptr;
}

unsigned long long QDGetCurrentThreadId() try {
  unsigned long long id = 0;
  if (osal_getThreadID(&id) != 0) QD_THROW_ERROR("osal_getThreadID failure");
  return id;
} catch (const QDException& e) {
  qdTraceException(e, "ECT");
  throw;
}
