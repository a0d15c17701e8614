// The project's own HTTP.
//   http_project download SERVER PATH FILE
//   http_project get SERVER COUNT PATH...     all paths in turn, COUNT times, over one connection

#include <cstdlib>
#include <string>
#include <string_view>

#include "Updater/net/HttpClient.h"
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

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  QDLog::getLogger()->setLogCb(nullptr);
  HttpClient client;
  client.setConfig(argv[2]);
  HttpClient::Headers headers;
  const int r = std::string_view(argv[1]) == "download" ? client.download(argv[3], argv[4], headers)
                                                        : get(client, std::atoi(argv[3]), argv + 4);
  return r == 0 ? 0 : 1;
}
