#pragma once

#include <string>

#include "tuf/Error.h"

namespace tuf {

/// Calls the function, which parses the document called `name`: an error of its form (Malformed)
/// is thrown on with that name in the text.
template <typename Function>
auto naming(const std::string& name, const Function& function) try {
  return function();
} catch (const Error& e) {
  if (e.kind() != ErrorKind::Malformed) throw;
  throw Error(ErrorKind::Malformed, name + " is faulty: " + e.what());
}

}  // namespace tuf
