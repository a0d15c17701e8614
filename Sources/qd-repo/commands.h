#pragma once

#include "qd-repo/options.h"

// The commands. Each returns the exit status of the process and throws std::exception with one
// plain line for what is wrong.

int initRepository(const RepoOptions& options);
int publishPackages(const RepoOptions& options);
int promoteRelease(const RepoOptions& options);
int haltRelease(const RepoOptions& options);
int resumeRelease(const RepoOptions& options);
int refreshRepository(const RepoOptions& options);
int rotateKeys(const RepoOptions& options);
int signRoot(const RepoOptions& options);
int verifyRepository(const RepoOptions& options);
int pruneRepository(const RepoOptions& options);
int showRepository(const RepoOptions& options);
int previewRelease(const RepoOptions& options);
