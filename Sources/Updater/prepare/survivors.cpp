#include "Updater/prepare/survivors.h"

#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <iterator>

namespace fs = boost::filesystem;

namespace utils {

std::string survivorWith(const std::vector<std::string>& texts) {
  boost::system::error_code failed;
  for (fs::directory_iterator entry("/proc", failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const std::string pid = entry->path().filename().string();
    if (!boost::all(pid, boost::is_digit()) || pid == std::to_string(::getpid())) continue;
    std::ifstream file((entry->path() / "cmdline").string());
    const std::string arguments{std::istreambuf_iterator<char>(file), {}};
    const auto named = [&arguments](const std::string& text) {
      return !text.empty() && arguments.find(text) != std::string::npos;
    };
    if (std::ranges::none_of(texts, named)) continue;
    std::string name;
    std::getline(std::ifstream((entry->path() / "comm").string()), name);
    return name + " (" + pid + ")";
  }
  return {};
}

}  // namespace utils
