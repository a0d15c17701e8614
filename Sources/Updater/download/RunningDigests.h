#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ground/osal_progress.h"

/// The digests of a file that grows, computed by a thread of their own that reads what was written,
/// while the rest still comes. Its owner uses it from one thread.
class RunningDigests {
 public:
  struct Kinds {
    bool md5 = true;
    bool sha256 = false;
  };

  /// `fd` stays the caller's, who keeps it open, for reading, too.
  RunningDigests(int fd, Kinds kinds);
  RunningDigests(const RunningDigests&) = delete;
  RunningDigests& operator=(const RunningDigests&) = delete;
  ~RunningDigests();

  /// The file is empty again.
  void restart();
  /// Its first `size` bytes, never fewer than before, are as they will stay.
  void extend(std::uint64_t size);
  /// Waits until all of them are in the digests.
  void finish();

  /// After `finish`: lower-case hexadecimal characters; empty where the file can't be read, OpenSSL
  /// refuses the digest, or it was not wanted, and when called again.
  std::string md5() { return md5_.take(); }
  std::string sha256() { return sha256_.take(); }

 private:
  class Digest {
   public:
    /// `kind`: null for none.
    explicit Digest(const EVP_MD* kind) : kind_(kind), context_(EVP_MD_CTX_new()) { reset(); }
    void reset();
    void update(std::string_view bytes);
    void fail() { runs_ = false; }
    std::string take();

   private:
    struct Free {
      void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    const EVP_MD* kind_;
    std::unique_ptr<EVP_MD_CTX, Free> context_;
    bool runs_ = false;
  };

  void run();
  void readTo(std::uint64_t size);
  void stop();

  const int fd_;
  Digest md5_;
  Digest sha256_;
  std::vector<char> block_;
  std::uint64_t done_ = 0;  // the worker's, while there is one
  osal_progress written_;
  std::future<void> worker_;
};
