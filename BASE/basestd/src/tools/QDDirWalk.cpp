#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ground/osal_bytes.h"
#include "ground/osal_fileid.h"
#include "logging/QDLogPath.h"
#include "tools/QDDir.h"
#include "tools/QDException.h"
#include "tools/QDPathOps.h"

namespace {

struct WalkOptions {
  bool recursive;
  bool includeRoot;
  bool childrenFirst;
  bool relativePaths;
  bool warnOnly;
};

/// One walk through a directory tree. Each directory is listed, and closed, before its entries are
/// handed over, and the state of the walk is on the heap: depth takes neither stack nor
/// descriptors.
class Walk : private qd_no_duplic {
 public:
  /// `cb` must outlive the walk.
  Walk(QSDir_cbArgBrowse& cb, const WalkOptions& options) : cb_(cb), options_(options) {}

  /// Walks through the directory at `path`. Returns false when the callback ended it.
  bool run(const unsigned char* path);

 private:
  struct Entry {
    std::size_t name;  // where it starts in the listing's names
    QDFileType type;
  };
  struct Listing {
    std::string names;  // each with a NUL
    std::vector<Entry> entries;
  };
  struct Folder {
    OSAL_FileId id;
    std::size_t prefix;  // length of the folder's path with its slash
    Listing listing;
    std::size_t next = 0;  // the entry to be handled next
    [[nodiscard]] const char* name(const Entry& entry) const {
      return listing.names.c_str() + entry.name;
    }
  };

  void checkFolder(const unsigned char* folder) const;
  [[nodiscard]] bool isBeingWalked(const OSAL_FileId& id) const;
  void enter(const OSAL_FileId& id);
  [[nodiscard]] Listing list() const;
  bool handleNextEntry();
  bool leave();
  bool process(QDFileType type);

  QSDir_cbArgBrowse& cb_;
  const WalkOptions options_;
  std::string path_;             // of the folder or entry at hand
  std::size_t base_ = 0;         // characters of it that the callback does not get
  std::vector<Folder> folders_;  // from the root to the one at hand
};

bool isDot(std::string_view name) { return name == "." || name == ".."; }

bool Walk::run(const unsigned char* path) {
  checkFolder(path);
  path_ = osal_chars(path);
  const bool rootFirst = options_.includeRoot && !options_.childrenFirst;
  if (rootFirst && !cb_.processItem(path, QD_FILETYPE_DIR)) return false;
  enter(osal_fileId(path_.c_str()));
  if (options_.relativePaths) base_ = folders_.front().prefix;
  while (!folders_.empty()) {
    if (!handleNextEntry()) return false;
  }
  const bool rootLast = options_.includeRoot && options_.childrenFirst;
  return !rootLast || cb_.processItem(path, QD_FILETYPE_DIR);
}

bool Walk::handleNextEntry() {
  Folder& folder = folders_.back();
  if (folder.next == folder.listing.entries.size()) return leave();
  const Entry& entry = folder.listing.entries[folder.next++];
  const QDFileType type = entry.type;
  path_.resize(folder.prefix);
  path_ += folder.name(entry);
  if (!options_.childrenFirst && !process(type)) return false;
  if (options_.recursive && type == QD_FILETYPE_DIR) {
    checkFolder(osal_bytes(path_));
    if (const OSAL_FileId id = osal_fileId(path_.c_str()); !isBeingWalked(id)) {
      enter(id);
      return true;
    }
  }
  return !options_.childrenFirst || process(type);
}

/// Ends the folder at hand, and goes back to the entry that it is in the folder above.
bool Walk::leave() {
  folders_.pop_back();
  if (folders_.empty() || !options_.childrenFirst) return true;
  const Folder& parent = folders_.back();
  path_.resize(parent.prefix);
  path_ += parent.name(parent.listing.entries[parent.next - 1]);
  return process(QD_FILETYPE_DIR);
}

bool Walk::process(QDFileType type) { return cb_.processItem(osal_bytes(path_) + base_, type); }

void Walk::checkFolder(const unsigned char* folder) const {
  const bool warnOnly = options_.warnOnly;
  if (!QDPathOps::folderPathExists(folder, warnOnly)) {
    QDPathOps::fail(warnOnly, "Not exists : ", folder);
  }
  if (!QDPathOps::isFolder(folder, warnOnly)) {
    QDPathOps::fail(warnOnly, "Exists and is not a directory : ", folder);
  }
}

bool Walk::isBeingWalked(const OSAL_FileId& id) const {
  return std::any_of(folders_.begin(), folders_.end(),
                     [&](const Folder& folder) { return folder.id == id; });
}

void Walk::enter(const OSAL_FileId& id) {
  Listing listing = list();
  if (path_.back() != '/') path_ += '/';
  folders_.push_back({id, path_.size(), std::move(listing)});
}

Walk::Listing Walk::list() const {
  const auto folder = std::make_unique<QDDir>(options_.warnOnly);  // too large for a small stack
  folder->_open(osal_bytes(path_));
  Listing listing;
  try {
    QDFileType type{};
    while (const unsigned char* const name = folder->read(&type)) {
      const std::string_view text = osal_chars(name);
      if (isDot(text)) continue;
      listing.entries.push_back({listing.names.size(), type});
      listing.names.append(text).push_back('\0');
    }
  } catch (const QDException& exception) {
    qdTraceException(exception, "ECSP");
    QDLOG(SCAN, ERR, "Error reading directory : " << QDLogPath(osal_bytes(path_)));
  }
  folder->_close();
  return listing;
}

}  // namespace

bool QDDir::browse(const unsigned char* path, bool recursive, bool includeRoot, bool childrenFirst,
                   QSDir_cbArgBrowse& cb, bool relativePaths, bool warnOnly) {
  return qdTraced([&] {
    return Walk(cb, {recursive, includeRoot, childrenFirst, relativePaths, warnOnly}).run(path);
  });
}
