#include "ScriptedServer.h"

#include <sys/socket.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <list>
#include <mutex>
#include <thread>

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::uint32_t kHeaderLimit = 1 << 20;
constexpr std::size_t kPieces = 10;

template <class Body>
void setHeaders(http::response<Body>& response, const Answer& answer, const std::string& url) {
  for (const auto& [name, value] : answer.headers) {
    response.insert(name, boost::replace_all_copy(value, "{S}", url));
  }
  if (answer.chunked) {
    response.chunked(true);
  } else if (answer.length == "*") {
    response.insert("Content-Length", std::to_string(answer.body.size()));
  } else if (!answer.length.empty()) {
    response.insert("Content-Length", answer.length);
  }
}

/// Writes text piece by piece. Returns false when the client is gone.
bool writePaced(tcp::socket& socket, const Answer& answer) {
  error_code failed;
  const std::size_t size = answer.body.size() / kPieces;
  for (std::size_t piece = 0; piece < kPieces; ++piece) {
    const std::size_t count = piece + 1 == kPieces ? std::string::npos : size;
    asio::write(socket, asio::buffer(answer.body.substr(piece * size, count)), failed);
    if (failed) return false;
    answer.paced(static_cast<int>(piece) + 1);
  }
  return true;
}

bool writeEndless(tcp::socket& socket, const std::string& body) {
  error_code failed;
  while (!failed) asio::write(socket, asio::buffer(body), failed);
  return false;
}

}  // namespace

class ScriptedServer::Impl {
 public:
  explicit Impl(Script script)
      : script_(std::move(script)),
        acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
        url_("http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port())),
        acceptThread_(&Impl::acceptAll, this) {}
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl();

  [[nodiscard]] const std::string& url() const { return url_; }
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] int connections() const;

 private:
  void acceptAll();
  void serve(tcp::socket& socket);
  Answer answerFor(const std::string& method, const std::string& target);
  /// Returns false when the connection cannot be used any more.
  bool send(tcp::socket& socket, const Answer& answer, bool headOnly, unsigned httpVersion);

  Script script_;
  asio::io_context io_;
  tcp::acceptor acceptor_;
  std::string url_;
  mutable std::mutex mutex_;
  std::vector<Request> requests_;
  std::list<tcp::socket> sockets_;
  std::list<std::thread> servers_;
  bool stopping_ = false;
  std::thread acceptThread_;
};

ScriptedServer::Impl::~Impl() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (tcp::socket& socket : sockets_) ::shutdown(socket.native_handle(), SHUT_RDWR);
  }
  ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
  acceptThread_.join();
  for (std::thread& server : servers_) server.join();
}

std::vector<ScriptedServer::Request> ScriptedServer::Impl::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

int ScriptedServer::Impl::connections() const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(sockets_.size());
}

void ScriptedServer::Impl::acceptAll() {
  for (;;) {
    tcp::socket accepted(io_);
    error_code failed;
    acceptor_.accept(accepted, failed);
    const std::lock_guard lock(mutex_);
    if (failed || stopping_) return;
    tcp::socket& socket = sockets_.emplace_back(std::move(accepted));
    servers_.emplace_back(&Impl::serve, this, std::ref(socket));
  }
}

void ScriptedServer::Impl::serve(tcp::socket& socket) {
  boost::beast::flat_buffer buffer;
  for (bool usable = true; usable;) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(kHeaderLimit);
    error_code failed;
    http::read(socket, buffer, parser, failed);
    if (failed) break;
    const auto& request = parser.get();
    const std::string method(request.method_string());
    const std::string target(request.target());
    {
      const std::lock_guard lock(mutex_);
      Request& kept = requests_.emplace_back(Request{method + " " + target, {}});
      for (const auto& field : request) {
        kept.headers[std::string(field.name_string())] = std::string(field.value());
      }
    }
    usable = send(socket, answerFor(method, target), method == "HEAD", request.version());
  }
  // Closed with the server: the destructor may still look at the descriptor.
  ::shutdown(socket.native_handle(), SHUT_RDWR);
}

Answer ScriptedServer::Impl::answerFor(const std::string& method, const std::string& target) {
  const std::lock_guard lock(mutex_);
  auto entry = script_.find(method + " " + target);
  if (entry == script_.end()) entry = script_.find(target);
  if (entry == script_.end() || entry->second.empty()) return refused(404);
  Answer answer = entry->second.front();
  if (entry->second.size() > 1) entry->second.erase(entry->second.begin());
  return answer;
}

bool ScriptedServer::Impl::send(tcp::socket& socket, const Answer& answer, bool headOnly,
                                unsigned httpVersion) {
  error_code failed;
  if (!answer.raw.empty()) {
    asio::write(socket, asio::buffer(answer.raw), failed);
    return answer.endless && writeEndless(socket, answer.body);
  }
  const bool whole = !headOnly && !answer.paced && !answer.endless;
  http::response<http::string_body> response;
  response.version(httpVersion);
  response.result(answer.status);
  setHeaders(response, answer, url_);
  if (whole) response.body() = answer.body;
  http::response_serializer<http::string_body> serializer(response);
  if (whole) {
    http::write(socket, serializer, failed);
  } else {
    http::write_header(socket, serializer, failed);
  }
  if (!failed && !headOnly && answer.paced && !writePaced(socket, answer)) return false;
  if (!failed && !headOnly && answer.endless) return writeEndless(socket, answer.body);
  return !failed && (headOnly || answer.chunked || !answer.length.empty());
}

ScriptedServer::ScriptedServer(Script script) : impl_(std::make_unique<Impl>(std::move(script))) {}
ScriptedServer::~ScriptedServer() = default;

const std::string& ScriptedServer::url() const { return impl_->url(); }
std::vector<ScriptedServer::Request> ScriptedServer::requests() const { return impl_->requests(); }
int ScriptedServer::connections() const { return impl_->connections(); }
