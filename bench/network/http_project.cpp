// The project's own HTTP.
//   http_project download SERVER PATH FILE
//   http_project patiently SERVER PATH FILE   the same as with a settings file
//   http_project get SERVER COUNT PATH...     all paths in turn, COUNT times, over one connection

#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "Updater/download/PatientTransport.h"
#include "Updater/net/HttpClient.h"
#include "ground/osal_ownfile.h"
#include "logging/QDLog.h"

namespace {

int get(HttpClient& client, int count, char** paths) {
  std::string body;
  HttpClient::Headers headers;
  for (int i = 0; i < count; ++i) {
    for (char** path = paths; *path != nullptr; ++path) {
      if (const int r = client.get(*path, body, headers); r != 0) return r;
    }
  }
  return 0;
}

int downloadPatiently(const std::string& server, const std::string& path, const std::string& out) {
  HttpClient::Headers headers;
  ScopedFd fd;
  if (osal_openOwnFile(out.c_str(), OwnFileUse::Append, 0600, fd) != 0) return -1;
  PatientTransport transport({}, {server}, std::chrono::hours(1));
  const auto limit = std::numeric_limits<unsigned long long>::max();
  return transport.download(server + path, fd.get(), out, limit, headers);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  QDLog::getLogger()->setLogCb(nullptr);
  const std::string_view what = argv[1];
  if (what == "patiently") return downloadPatiently(argv[2], argv[3], argv[4]) == 0 ? 0 : 1;
  HttpClient client;
  client.setConfig(argv[2]);
  HttpClient::Headers headers;
  const int r = what == "download" ? client.download(argv[3], argv[4], headers)
                                   : get(client, std::atoi(argv[3]), argv + 4);
  return r == 0 ? 0 : 1;
}
