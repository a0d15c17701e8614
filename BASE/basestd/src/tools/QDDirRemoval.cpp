#include <fcntl.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ground/osal_bytes.h"
#include "ground/osal_fileid.h"
#include "ground/osal_scoped.h"
#include "logging/QDLogPath.h"
#include "osal/osal_fs.h"
#include "tools/QDDir.h"
#include "tools/QDException.h"
#include "tools/QDPathOps.h"

using QDPathOps::fail;

namespace {

/// Directories kept open. Above them the way back is "..", which is checked.
constexpr std::size_t kMaxOpenFolders = 32;

/// One recursive removal. It works on open directories and the names in them, not on paths, so
/// nobody can lead it out of its tree by swapping what a path goes through, and it follows no link.
/// Its state is on the heap, and of a deep tree only the lowest directories are open: neither a
/// stack, nor the longest path, nor the number of descriptors bounds the depth.
class Removal : private qd_no_duplic {
 public:
  explicit Removal(const unsigned char* root);

  /// Removes the tree or throws.
  void run();

 private:
  struct Folder {
    ScopedFd fd;  // closed while the removal works far below
    OSAL_FileId id;
    std::size_t prefix;               // length of the folder's path with its slash
    std::vector<OSAL_Entry> entries;  // all of them, read before the first is removed
    std::size_t next = 0;             // the entry to be removed next
  };

  void enterParentOfRoot();
  void removeNextEntry();
  bool enter(const std::string& name);
  void leave();
  void reopen(Folder& folder, const ScopedFd& child) const;
  void limitOpenFolders();
  [[nodiscard]] std::vector<OSAL_Entry> list(const ScopedFd& folder) const;
  [[nodiscard]] QDFileType typeOf(const std::string& name) const;
  [[nodiscard]] const unsigned char* path() const;

  std::string path_;  // of the folder or entry at hand
  QSDirRemoveRecCb remove_;
  std::vector<Folder> folders_;  // from the one that holds the root to the one at hand
};

Removal::Removal(const unsigned char* root) : path_(osal_chars(root)) {
  // With a slash behind it, a link would be followed.
  while (!path_.empty() && path_.back() == '/') path_.pop_back();
  if (path_.empty()) fail(false, "Cannot remove directory : ", root);
}

void Removal::run() {
  enterParentOfRoot();
  for (;;) {
    const Folder& folder = folders_.back();
    if (folder.next < folder.entries.size()) {
      removeNextEntry();
    } else if (folders_.size() > 1) {
      leave();
    } else {
      return;
    }
  }
}

void Removal::enterParentOfRoot() {
  const std::size_t prefix = path_.rfind('/') + 1;
  const std::string parent = prefix == 0 ? "." : path_.substr(0, prefix);
  const std::string name = path_.substr(prefix);
  ScopedFd fd;
  if (osal_reachFolderAt(AT_FDCWD, parent.c_str(), osal_bytes(parent), fd) != 0) {
    fail(false, "Cannot check if directory exists : ", path());
  }
  const OSAL_FileId id = osal_fileId(fd.get());
  folders_.push_back({std::move(fd), id, prefix, {}});
  const QDFileType type = typeOf(name);
  if (type == QD_FILETYPE_NOTEXISTS) fail(false, "Not exists : ", path());
  if (type != QD_FILETYPE_DIR) fail(false, "Exists and is not a directory : ", path());
  folders_.back().entries.push_back({name, false});
}

void Removal::removeNextEntry() {
  Folder& folder = folders_.back();
  const auto [name, file] = std::move(folder.entries[folder.next++]);
  path_.resize(folder.prefix);
  path_ += name;
  // Asking for the type of each file would take most of the time.
  if (file && osal_tryRmfileAt(folder.fd.get(), name.c_str(), path())) return;
  QDFileType type = typeOf(name);
  if (type == QD_FILETYPE_DIR) {
    if (enter(name)) return;
    type = typeOf(name);  // it may have become something else meanwhile
    if (type == QD_FILETYPE_DIR) fail(false, "Cannot open directory ", path());
  }
  if (type == QD_FILETYPE_NOTEXISTS) return;  // somebody else removed it
  remove_.setFolder(folder.fd.get());
  remove_.processItem(path(), type);
}

/// Returns false when the folder cannot be opened.
bool Removal::enter(const std::string& name) {
  ScopedFd fd;
  if (osal_openFolderAt(folders_.back().fd.get(), name.c_str(), path(), fd) != 0) return false;
  std::vector<OSAL_Entry> entries = list(fd);
  const OSAL_FileId id = osal_fileId(fd.get());
  path_ += '/';
  folders_.push_back({std::move(fd), id, path_.size(), std::move(entries)});
  limitOpenFolders();
  return true;
}

/// Removes the folder at hand, which is empty by now, from the one above.
void Removal::leave() {
  const Folder emptied = std::move(folders_.back());
  folders_.pop_back();
  Folder& parent = folders_.back();
  path_.resize(emptied.prefix - 1);
  if (!parent.fd) reopen(parent, emptied.fd);
  remove_.setFolder(parent.fd.get());
  remove_.processItem(path(), QD_FILETYPE_DIR);
}

/// Opens the folder above `child` again, and makes sure that it is still the one it was.
void Removal::reopen(Folder& folder, const ScopedFd& child) const {
  const std::string path = path_.substr(0, folder.prefix);
  if (osal_reachFolderAt(child.get(), "..", osal_bytes(path), folder.fd) != 0 ||
      osal_fileId(folder.fd.get()) != folder.id) {
    fail(false, "Cannot open directory ", osal_bytes(path));
  }
}

void Removal::limitOpenFolders() {
  if (folders_.size() > kMaxOpenFolders) {
    folders_[folders_.size() - 1 - kMaxOpenFolders].fd.reset();
  }
}

std::vector<OSAL_Entry> Removal::list(const ScopedFd& folder) const {
  std::vector<OSAL_Entry> entries;
  try {
    qdTraced([&] {
      if (osal_listFolder(folder.get(), entries) != 0) QD_THROW_ERROR("Cannot read directory");
    });
  } catch (const QDException& exception) {
    qdTraceException(exception, "ECSP");
    QDLOG(SCAN, ERR, "Error reading directory : " << QDLogPath(path()));
  }
  return entries;
}

/// What cannot be examined is of unknown type.
QDFileType Removal::typeOf(const std::string& name) const {
  QDFileType type = QD_FILETYPE_UNKNOWN;
  static_cast<void>(osal_getEntryType(folders_.back().fd.get(), name.c_str(), path(), &type));
  return type;
}

const unsigned char* Removal::path() const { return osal_bytes(path_); }

}  // namespace

bool QDDir::removeRec(const unsigned char* path) {
  return qdTraced([&] {
    if (!QDPathOps::folderPathExists(path, false)) return false;
    Removal(path).run();
    return true;
  });
}
