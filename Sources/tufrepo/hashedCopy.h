#pragma once

#include <cstdint>
#include <string>

namespace tufrepo {

/// What was learnt of a file while it was copied; the digests in lower-case hexadecimal.
struct CopiedFile {
  std::uint64_t length = 0;
  std::string sha256;
  std::string sha512;
  std::string md5;
};

/// Copies what `from` still holds to `to`, which is empty and open for reading, too. The digests
/// follow the copy, half of them on another thread. Throws std::system_error for a failing read or
/// write.
[[nodiscard]] CopiedFile copyHashed(int from, int to);

}  // namespace tufrepo
