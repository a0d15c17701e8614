#include "ground/osal_scratch.h"

#include <stdlib.h>
#include <unistd.h>  // where macOS declares mkdtemp

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder(const std::string& name)
    : path_((fs::temp_directory_path() / (name + ".XXXXXX")).string()) {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}
