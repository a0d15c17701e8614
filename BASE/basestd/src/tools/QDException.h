#pragma once

#include "logging/QDLog.h"

/// The base library's exception. It is not a std::exception: only code that knows this library
/// catches it.
class QDException {
 public:
  /// Code 1: an error; 2: a condition that the caller declared tolerable; 3: traced on standard
  /// error only.
  explicit QDException(int code) noexcept : code_(code) {}
  [[nodiscard]] int code() const noexcept { return code_; }

 private:
  int code_;
};

/// Reports an exception that was caught: "<word> - " and the exception object's address in module
/// EXCP, at ERR for code 1 and WRN for code 2; code 3 writes the word alone to standard error. The
/// words are "ECSP" (the catcher goes on), "ECT" (it rethrows) and "EC ignored" (it drops the
/// exception).
void qdTraceException(const QDException& exception, const char* word);

/// Runs `operation`, and reports a QDException that leaves it with the word "ECT".
template <typename Operation>
decltype(auto) qdTraced(Operation operation) {
  try {
    return operation();
  } catch (const QDException& exception) {
    qdTraceException(exception, "ECT");
    throw;
  }
}

/// Logs the streamed text once, after "NET: ", where it is used, and throws code 1.
#define QD_THROW_ERROR(...)                   \
  do {                                        \
    QDLOG(EXCP, ERR, "NET: " << __VA_ARGS__); \
    throw QDException(1);                     \
  } while (false)

/// Logs the streamed text once, after "SET: ", where it is used, and throws code 2.
#define QD_THROW_TOLERABLE(...)               \
  do {                                        \
    QDLOG(EXCP, WRN, "SET: " << __VA_ARGS__); \
    throw QDException(2);                     \
  } while (false)
