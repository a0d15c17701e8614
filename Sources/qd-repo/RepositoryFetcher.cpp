#include "qd-repo/RepositoryFetcher.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "ground/osal_io.h"
#include "ground/osal_scoped.h"
#include "tuf/Error.h"
#include "tuf/digest.h"
#include "tufnet/CurlFetcher.h"

namespace {

constexpr const char* kFolderAddress = "folder:";

std::string decoded(const std::string& path) {
  std::string text;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const auto byte = path[i] == '%' ? tuf::fromHex(path.substr(i + 1, 2)) : std::nullopt;
    text += byte && byte->size() == 1 ? (i += 2, byte->front()) : path[i];
  }
  return text;
}

/// A folder that answers as a web server would.
class FolderFetcher final : public tuf::Fetcher {
 public:
  explicit FolderFetcher(std::string folder) : folder_(std::move(folder)) {}

  int fetch(const std::string& url, std::uint64_t maxBytes, const tuf::Sink& sink) override {
    const std::string path =
        folder_ + decoded(url.substr(std::char_traits<char>::length(kFolderAddress)));
    const ScopedFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return 404;
    std::vector<char> piece(std::size_t{1} << 20);
    while (true) {
      const ssize_t count = osal_readSome(file.get(), piece.data(), piece.size());
      const int error = errno;
      if (count == 0) return 200;
      if (count < 0) {
        throw tuf::Error(tuf::ErrorKind::Network,
                         "Cannot read " + path + ": " + std::generic_category().message(error));
      }
      const auto size = static_cast<std::size_t>(count);
      if (size > maxBytes) {
        throw tuf::Error(tuf::ErrorKind::Size, path + " has more bytes than allowed");
      }
      maxBytes -= size;
      sink({piece.data(), size});
    }
  }

 private:
  std::string folder_;
};

}  // namespace

RepositoryAccess::RepositoryAccess(const std::string& place) {
  isFolder = !place.starts_with("http://") && !place.starts_with("https://");
  if (isFolder) {
    fetcher = std::make_unique<FolderFetcher>(place);
    address = kFolderAddress;
  } else {
    fetcher = std::make_unique<CurlFetcher>(fetch::Options{});
    address = place.ends_with('/') ? place.substr(0, place.size() - 1) : place;
  }
}
