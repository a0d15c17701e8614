#include "Updater/prepare/survivors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/operations.hpp>
#include <fstream>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"

namespace fs = boost::filesystem;

namespace utils {

std::string survivorWith(const std::vector<std::string>& texts) {
  constexpr std::size_t kMost = std::size_t{1} << 20;
  boost::system::error_code failed;
  for (fs::directory_iterator entry("/proc", failed), end; !failed && entry != end;
       entry.increment(failed)) {
    const std::string pid = entry->path().filename().string();
    if (!boost::all(pid, boost::is_digit()) || pid == std::to_string(::getpid())) continue;
    const ScopedFd fd(::open((entry->path() / "cmdline").c_str(), O_RDONLY | O_CLOEXEC));
    std::string arguments;
    if (!fd || osal_readAll(fd.get(), arguments, kMost) != 0) continue;  // it has just ended
    const auto named = [&arguments](const std::string& text) {
      return !text.empty() && arguments.find(text) != std::string::npos;
    };
    if (std::ranges::none_of(texts, named)) continue;
    std::string name;
    std::getline(std::ifstream((entry->path() / "comm").string()), name);
    return name.append(" (").append(pid).append(")");
  }
  return {};
}

}  // namespace utils
