#pragma once

#include <deque>
#include <string>
#include <vector>

#include "osal/osal_hostnet.h"

/// A network that answers what a test wants, for programs that link HostNetFake.cpp. Errors are
/// errno values, 0 for none.
struct HostNetFake {
  int openError = 0;
  int writeError = 0;
  std::vector<std::string> requests;  ///< that were written, in order
  std::deque<std::string> replies;    ///< to be read, in order; then reading times out
  int listError = 0;
  std::vector<HostInterface> interfaces;
  std::vector<HostLinkAddress> linkAddresses;
};

inline HostNetFake hostNetFake;
