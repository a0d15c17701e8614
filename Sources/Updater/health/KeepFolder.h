#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Updater/health/KeptPackages.h"

/// The folder of the packages that are kept, "keep" beside the records, for this user alone. In it
/// lie their list, the journal of the version that ailed last, and what a roll-back needs besides.
/// Nothing is logged.
class KeepFolder {
 public:
  /// Creates the folder below `state` where it is missing. Returns 0 or an errno value.
  int open(const std::string& state);

  [[nodiscard]] bool isOpen() const { return !path_.empty(); }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string pathOf(const std::string& file) const { return path_ + "/" + file; }

  /// The packages, newest first. Empty where the list can't be read.
  [[nodiscard]] std::vector<KeptPackage> list() const;

  /// Takes the file at `path`, on the same file system, over as `package`: the one that runs now.
  /// Of the others so many stay that there are `most`. Everything is on the disk when it returns.
  /// Returns 0 or an errno value; then what is listed is as it was.
  int take(const std::string& path, const KeptPackage& package, std::size_t most) const;

  /// Takes a package, which turned out to be damaged, off the list.
  void drop(const KeptPackage& package) const;

  /// Sets room of so many bytes aside, so that a roll-back finds some where the disk has become
  /// full. Returns 0 or an errno value.
  [[nodiscard]] int setRoomAside(std::uint64_t bytes) const noexcept;

  /// Gives that room back.
  void giveRoomBack() const noexcept;

  /// Keeps the journal of a version that ailed, as VERSION.journal in place of former ones. Returns
  /// 0 or an errno value.
  [[nodiscard]] int keepJournal(const std::string& version, std::string_view journal) const;

 private:
  [[nodiscard]] int writeList(const std::vector<KeptPackage>& packages) const;
  void removeFiles(const std::function<bool(const std::string& name)>& isMeant) const;

  std::string path_;
};
