#include <sys/stat.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "qd-repo/commands.h"

namespace {

int carryOut(const RepoOptions& options) {
  switch (options.command) {
    using enum RepoOptions::Command;
    case Init:
      return initRepository(options);
    case Publish:
      return publishPackages(options);
    case Promote:
      return promoteRelease(options);
    case Halt:
      return haltRelease(options);
    case Resume:
      return resumeRelease(options);
    case Refresh:
      return refreshRepository(options);
    case Rotate:
      return rotateKeys(options);
    case Sign:
      return signRoot(options);
    case Verify:
      return verifyRepository(options);
    case Prune:
      return pruneRepository(options);
    case Status:
      return showRepository(options);
    case Preview:
      return previewRelease(options);
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) try {
  ::umask(S_IWGRP | S_IWOTH);  // what is published is for everyone to read
  const RepoOptionsRead read = readRepoOptions(argc, argv);
  if (read.options) {
    const int status = carryOut(*read.options);
    if (std::cout.flush()) return status;
    throw std::runtime_error("Cannot write to standard output");
  }
  (read.status == 0 ? std::cout : std::cerr) << read.text;
  return read.status;
} catch (const std::exception& e) {
  std::cerr << "qd-repo: " << e.what() << '\n';
  return 1;
}
