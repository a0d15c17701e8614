#pragma once

#include <string>

#include "Updater/net/HttpClient.h"
#include "Updater/package/PackageFile.h"
#include "Updater/package/utilsPackage.h"
#include "Updater/setup/utilsSetup.h"
#include "Updater/terms/UpdateResult.h"
#include "Updater/terms/Version.h"

/// What the steps of one update hand on to each other.
struct UpdateRun {
  static constexpr int kMaxAttempts = 3;

  std::string installedText;
  Version installed;
  Version available;
  HttpClient::Headers headers;  ///< of the latest response
  utils::SetuParameter setup;
  bool emulated = false;    ///< this process is translated; the machine is an arm64 one
  std::string expectedMd5;  ///< empty: the package is not verified
  unsigned long long expectedSize = 0;
  int attempts = 0;                               ///< downloads begun
  UpdateResult lastFailure = UpdateResult::Done;  ///< why the latest download was no good
  PackageFile package;
  utils::AttachedImage image;  ///< of the package, when that is a disk image
};
