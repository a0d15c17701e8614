#include "Nginx.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "UpdateRun.h"
#include "ground/osal_scoped.h"

namespace {

constexpr const char* kNginx = "/usr/sbin/nginx";

constexpr const char* kConfiguration = R"(
daemon off;
master_process off;
pid {dir}/pid;
error_log {dir}/error.log;
events {}
http {
  log_format plain '$connection $request_method $request_uri $status';
  access_log {dir}/access.log plain;
  client_body_temp_path {dir}/body;
  proxy_temp_path {dir}/proxy;
  fastcgi_temp_path {dir}/fastcgi;
  uwsgi_temp_path {dir}/uwsgi;
  scgi_temp_path {dir}/scgi;
  sendfile on;
  ssl_certificate {dir}/cert.pem;
  ssl_certificate_key {dir}/key.pem;
  server {
    listen 127.0.0.1:{port};
    listen 127.0.0.1:{tls port} ssl;
    root {dir}/root;
    location /moved/ {
      if ($scheme = http) { return 301 https://127.0.0.1:{tls port}$request_uri; }
      rewrite ^/moved(/.*)$ $1 redirect;
    }
    location /chunked/ {
      alias {dir}/root/;
      if ($request_method = GET) { ssi on; }
      ssi_types *;
    }
  }
}
)";

sockaddr_in loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  address.sin_port = ::htons(port);
  return address;
}

/// A port of the loopback address that was free a moment ago.
unsigned short freePort() {
  const ScopedFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopback(0);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (::bind(fd.get(), generic, size) != 0 || ::getsockname(fd.get(), generic, &size) != 0) {
    throw std::runtime_error("no free port");
  }
  return ::ntohs(address.sin_port);
}

bool answers(unsigned short port) {
  const ScopedFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  return ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

void makeCertificate(const std::string& folder) {
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
      "/CN=elsewhere.example -keyout " +
      folder + "/key.pem -out " + folder + "/cert.pem 2>/dev/null";
  if (::system(command.c_str()) != 0) throw std::runtime_error("openssl req");
}

std::string replaced(std::string text, const std::string& name, const std::string& value) {
  for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size()) {
    text.replace(at, name.size(), value);
  }
  return text;
}

}  // namespace

std::string whyNoNginx() {
  return ::access(kNginx, X_OK) == 0 ? "" : "needs /usr/sbin/nginx (Debian package nginx)";
}

Nginx::Nginx() {
  std::filesystem::create_directory(root());
  makeCertificate(folder_.path());
  // Somebody else may take the port first.
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (start(freePort(), freePort())) return;
  }
  throw std::runtime_error("nginx does not start: " + content(folder_ / "error.log"));
}

bool Nginx::start(unsigned short port, unsigned short tlsPort) {
  url_ = "http://127.0.0.1:" + std::to_string(port);
  tlsUrl_ = "https://127.0.0.1:" + std::to_string(tlsPort);
  const std::string dir = folder_.path();
  const std::string file = folder_ / "nginx.conf";
  const std::string errors = folder_ / "error.log";
  std::string text = replaced(kConfiguration, "{dir}", dir);
  text = replaced(text, "{port}", std::to_string(port));
  writeFile(file, replaced(text, "{tls port}", std::to_string(tlsPort)));
  const char* const argv[] = {kNginx,         "-p", dir.c_str(),  "-e",
                              errors.c_str(), "-c", file.c_str(), nullptr};
  const char* const envp[] = {nullptr};
  pid_ = ::fork();
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execve(kNginx, const_cast<char* const*>(argv), const_cast<char* const*>(envp));
    ::_exit(127);
  }
  while (::waitpid(pid_, nullptr, WNOHANG) == 0) {
    if (answers(port) && answers(tlsPort)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  pid_ = -1;
  return false;
}

Nginx::~Nginx() {
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
}

std::vector<std::string> Nginx::accessLog() const {
  return splitLines(content(folder_ / "access.log"));
}
