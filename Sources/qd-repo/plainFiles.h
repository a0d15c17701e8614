#pragma once

#include <ctime>
#include <string>

struct ListedRelease;
namespace tufrepo {
class Repository;
}

/// Writes what stands beside the metadata: index.html and, last, the definition file.
void writePlainFiles(tufrepo::Repository& repository, std::time_t now);

/// Puts a package where programs without signed metadata find it: a hard link at its plain path,
/// with a version and a digest file.
void placePlain(const std::string& repository, const ListedRelease& listed, const std::string& md5);

/// The content of these two files.
std::string plainVersion(const ListedRelease& listed);
std::string plainDigest(const ListedRelease& listed, const std::string& md5);

/// Whether a file of this name is a package that was published, one that was not whole yet, or what
/// `placePlain` puts beside it. Others' files have other names.
bool isPublishedName(const std::string& name);
