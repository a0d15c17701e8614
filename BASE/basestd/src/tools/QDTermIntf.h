#pragma once

#include "ground/QDMarkers.h"

/// Asked by waits between their slices. Used by the waiting thread.
class QDTermIntf : public qd_interface_base_qualifier {
 public:
  /// True when the waiting code should stop.
  virtual bool chkTerminate() = 0;
};
