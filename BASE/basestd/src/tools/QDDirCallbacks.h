#pragma once

#include "ground/QDEnums.h"
#include "ground/QDMarkers.h"

/// Takes what a walk through a directory finds.
class QSDir_cbArgBrowse : public qd_interface_base_qualifier {
 public:
  /// Takes one item; `path` lives until the return. False ends the walk.
  virtual bool processItem(const unsigned char* path, QDFileType type) = 0;
};

/// Takes the directories that were created.
class QSDir_cbArgCreateDirs : public qd_interface_base_qualifier {
 public:
  /// `path` lives until the return.
  virtual void dirCreated(const unsigned char* path) = 0;
};
