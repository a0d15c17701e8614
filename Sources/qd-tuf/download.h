#pragma once

#include <string>
#include <vector>

#include "tuf/Client.h"

/// Puts the targets of these names into the folder, one after the other, each under its name in one
/// piece (`a/b` as `a%2Fb`). One whose file is there already is not fetched. Throws tuf::Error at
/// the first that fails, whose older file then stays.
void download(tuf::Client& client, const std::vector<std::string>& names,
              const std::string& baseUrl, tuf::Folder& folder);
