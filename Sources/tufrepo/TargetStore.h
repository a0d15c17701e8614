#pragma once

#include <string>

#include "ground/osal_scoped.h"
#include "tufrepo/hashedCopy.h"

namespace tufrepo {

/// The folder of a repository's target files, with those that are being brought in. All functions
/// throw std::runtime_error.
class TargetStore {
 public:
  /// `folder` is the repository's, whose lock the caller has.
  explicit TargetStore(const std::string& folder);

  /// Copies the file at `path` to a temporary name, where it is until `keep`, the next `bring` or
  /// the end of the object.
  CopiedFile bring(const std::string& path);
  [[nodiscard]] const std::string& broughtPath() const { return unfinished_; }
  ~TargetStore();
  TargetStore(const TargetStore&) = delete;
  TargetStore& operator=(const TargetStore&) = delete;

  /// Gives the file that was brought its places for a target path ("DIR/NAME"): DIR/SHA256.NAME and
  /// DIR/SHA512.NAME, one file, below the folder of targets, since a client may ask by either. It
  /// is on the disk then.
  void keep(const std::string& targetPath, const CopiedFile& file);

 private:
  std::string targets_;
  std::string unfinished_;
  ScopedFd brought_;
};

/// Where a target's file with this hash lies, below the folder of targets.
[[nodiscard]] std::string storedName(const std::string& targetPath, const std::string& hash);

}  // namespace tufrepo
