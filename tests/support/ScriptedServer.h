#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What the scripted server sends for one request.
struct Answer {
  unsigned status = 200;
  std::string body = {};
  /// "{S}" in a value stands for the server's address.
  std::vector<std::pair<std::string, std::string>> headers = {};
  /// Value of Content-Length: "*" is the size of the body, "" leaves the header out (the end of the
  /// connection then ends the body), anything else is sent as it is.
  std::string length = "*";
  bool chunked = false;
  /// The body is repeated until the client goes away.
  bool endless = false;
  /// Sent in place of everything above, only followed by an endless body; the connection is then
  /// cut.
  std::string raw = {};
  /// When set, the body goes out in ten pieces; called after each with its number, 1 to 10.
  std::function<void(int piece)> paced = {};
};

inline Answer ok(std::string body) { return {.body = std::move(body)}; }
inline Answer refused(unsigned status) { return {.status = status, .body = "<h1>no</h1>"}; }
inline Answer redirect(std::string to) {
  return {.status = 302, .headers = {{"Location", std::move(to)}}};
}

/// The answers by "METHOD /path" or, for every method, "/path". Several answers are given in turn,
/// the last one for ever; no answer, as an unknown path, is 404.
using Script = std::map<std::string, std::vector<Answer>>;

/// An HTTP server on a free port of the loopback address that follows a script and keeps what it
/// was asked. Serves any number of connections, each on a thread of its own, until it is destroyed.
class ScriptedServer {
 public:
  struct Request {
    std::string line;  ///< "GET /path"
    std::map<std::string, std::string> headers;
  };

  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  /// "http://127.0.0.1:port", without a slash at its end.
  [[nodiscard]] const std::string& url() const;
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] int connections() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};
