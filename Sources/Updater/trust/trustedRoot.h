#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "ground/osal_scratch.h"

// The root of trust on this machine, as the administrator puts it in place.

/// What people look at before they trust a root.
struct RootFacts {
  std::uint64_t version = 0;
  std::time_t expires = 0;
  std::vector<std::string> keyIds;  ///< of the keys that sign roots
  std::uint64_t threshold = 0;      ///< how many of them it takes
};

/// What reading a root gave.
struct RootRead {
  RootFacts facts;
  std::string text;   ///< the root as it was read
  std::string fault;  ///< a sentence; empty when it is a root signed by its own keys
};
RootRead readRootFile(const std::string& path);

/// Why the root that is trusted in `folder` can't be read, with what to do; empty when it can, or
/// there is none.
std::string storedRootFault(const std::string& folder);

/// Puts a root that was read in place in `folder`. One that is there already stays, and the reason
/// is returned, unless the new one is the same or follows from it, signed by the keys of both.
/// `replace`: whatever is there goes, and trust begins anew. Returns a sentence, or empty.
std::string placeRoot(const std::string& folder, const RootRead& root, bool replace);

/// A copy of a folder of trusted metadata, for looking without changing it; gone with this object.
class TrustCopy {
 public:
  /// Without what can't be read: then trust begins with the first root.
  explicit TrustCopy(const std::string& folder);

  [[nodiscard]] const std::string& path() const { return scratch_.path(); }

 private:
  ScratchFolder scratch_;
};
