#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "TempFolder.h"

/// Empty when there is an nginx to run, else the reason why not.
std::string whyNoNginx();

/// An nginx of the test's own, run by the calling user on free ports of the loopback address.
///
/// It serves the files of `root()`; the same files under "/moved" through redirects, from HTTP to
/// HTTPS and there to the root, and under "/chunked" with GET answers in chunks, without a length.
/// Its certificate is signed by itself and names another host.
class Nginx {
 public:
  Nginx();
  ~Nginx();
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  [[nodiscard]] std::string root() const { return folder_ / "root"; }
  [[nodiscard]] const std::string& url() const { return url_; }
  [[nodiscard]] const std::string& tlsUrl() const { return tlsUrl_; }
  /// One "connection-number METHOD target status" a request.
  [[nodiscard]] std::vector<std::string> accessLog() const;

 private:
  /// Returns false when nginx ended because a port was taken.
  bool start(unsigned short port, unsigned short tlsPort);

  TempFolder folder_;
  std::string url_;
  std::string tlsUrl_;
  pid_t pid_ = -1;
};
