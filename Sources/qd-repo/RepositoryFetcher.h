#pragma once

#include <memory>
#include <string>

#include "tuf/Fetcher.h"

/// A fetcher for a repository at `place`, a folder or an address of http or https, and the address
/// by which it is to be asked for what lies there: that address, "/" and the percent-encoded path.
struct RepositoryAccess {
  explicit RepositoryAccess(const std::string& place);

  std::unique_ptr<tuf::Fetcher> fetcher;
  std::string address;
  bool isFolder = false;
};
