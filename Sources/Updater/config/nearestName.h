#pragma once

#include <string_view>
#include <vector>

/// The one of `names`, which is not empty, that somebody who wrote `written` most likely meant: by
/// the fewest letters to add, drop, change or swap. The same last component ("proxy" for
/// "fetch.proxy") counts as near.
std::string_view nearestName(std::string_view written, const std::vector<std::string_view>& names);
