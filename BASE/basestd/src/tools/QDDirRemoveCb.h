#pragma once

#include "tools/QDDirCallbacks.h"

/// Removes what a walk finds, children before their directory.
class QSDirRemoveRecCb : public QSDir_cbArgBrowse {
 public:
  QSDirRemoveRecCb();

  /// The open directory that holds the next items; their last component is removed from there,
  /// wherever their path leads to by then. Without one the path leads to the item.
  void setFolder(int fd) { folder_ = fd; }

  /// Removes a file of any kind, with retries, or an empty directory. Returns true or throws.
  bool processItem(const unsigned char* path, QDFileType type) override;

 private:
  int folder_;
};
