#pragma once

#include <stdexcept>
#include <string>

namespace tuf {

/// Why a file was refused or a step could not be done.
enum class ErrorKind {
  Network,    ///< no answer, a broken one, or a status that the step does not expect
  Size,       ///< more bytes than the limit, or others than the trusted metadata states
  Malformed,  ///< no JSON, or not the document that the role must be
  Unsigned,   ///< fewer valid signatures than the threshold
  Rollback,   ///< an older version than the one trusted, or a role that vanished
  Mismatch,   ///< another hash or version than the trusted metadata states
  Expired,    ///< its time is over
  NotFound,   ///< no trusted role describes the target
  Storage,    ///< the local folder cannot be read or written
};

/// The one exception of this library. `what()` is a plain sentence for the user, without a full
/// stop.
class Error : public std::runtime_error {
 public:
  Error(ErrorKind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}

  [[nodiscard]] ErrorKind kind() const noexcept { return kind_; }

 private:
  ErrorKind kind_;
};

[[noreturn]] inline void refuseMalformed(const std::string& why) {
  throw Error(ErrorKind::Malformed, why);
}

}  // namespace tuf
