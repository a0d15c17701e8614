#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

/// Ends the program when `ok` is false.
inline void need(bool ok, const char* what) {
  if (ok) return;
  std::perror(what);
  std::exit(1);
}

/// As little HTTP as a server on loopback takes: one connection, answers that state their length.
class BareHttp {
 public:
  explicit BareHttp(const char* port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(std::atoi(port)));
    const int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    need(::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "connect");
  }

  /// Sends the request and reads the head of the answer. Returns the length of its body.
  std::size_t request(const char* method, const std::string& path) {
    const std::string text = std::string(method) + " " + path + " HTTP/1.1\r\nHost: a\r\n\r\n";
    need(::send(socket_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "send");
    constexpr std::string_view kEnd = "\r\n\r\n";
    constexpr std::string_view kLength = "\r\nContent-Length: ";
    begin_ = end_ = 0;
    for (;;) {
      fill();
      const std::string_view head(buffer_.data(), end_);
      const std::size_t headEnd = head.find(kEnd);
      if (headEnd == std::string_view::npos) continue;
      begin_ = headEnd + kEnd.size();
      const std::size_t length = head.find(kLength);
      need(head.starts_with("HTTP/1.1 200 ") && length < headEnd, "answer");
      return std::strtoull(head.data() + length + kLength.size(), nullptr, 10);
    }
  }

  /// Hands the `length` bytes of the body to `take(data, size)`, piece by piece.
  template <typename Take>
  void body(std::size_t length, Take take) {
    while (length > 0) {
      if (begin_ == end_) {
        begin_ = end_ = 0;
        fill();
      }
      const std::size_t size = std::min(length, end_ - begin_);
      take(buffer_.data() + begin_, size);
      begin_ += size;
      length -= size;
    }
  }

  /// GET of a small body.
  std::string get(const std::string& path) {
    std::string text;
    body(request("GET", path),
         [&](const char* data, std::size_t size) { text.append(data, size); });
    return text;
  }

 private:
  void fill() {
    const ssize_t count = ::recv(socket_, buffer_.data() + end_, buffer_.size() - end_, 0);
    need(count > 0, "recv");
    end_ += static_cast<std::size_t>(count);
  }

  int socket_;
  std::vector<char> buffer_ = std::vector<char>(std::size_t{512} << 10);
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};
