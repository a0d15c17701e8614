// Real serving by nginx, and servers that are faulty or hostile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <boost/algorithm/string/join.hpp>
#include <filesystem>
#include <set>

#include "Nginx.h"
#include "Scenario.h"
#include "Updater/net/HttpClient.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kSmallKiB = 1024L * 1024;  // the sanitizer's own memory
#else
constexpr long kSmallKiB = 32L * 1024;
#endif

// --- nginx

std::string packageFolder() { return "/linux/" + machineTexts()["{A}"]; }

/// Lays out a package of that size and its companions under the server's root.
void publish(const Nginx& nginx, const std::string& digest) {
  const std::string folder = nginx.root() + packageFolder();
  fs::create_directories(folder);
  writeFile(folder + "/version_long.txt", "7.2.1.15\n");
  writeFile(folder + "/setup.deb.md5", digest + "  setup.deb\n");
}

TEST(Nginx, ServesUpdatesInEveryWay) {
  QD_NEEDS_ROOT();
  if (const std::string why = whyNoNginx(); !why.empty()) GTEST_SKIP() << why;
  const Nginx nginx;
  publish(nginx, goodDigest());
  writeFile(nginx.root() + packageFolder() + "/setup.deb", goodPackage());
  const struct {
    const char* name;
    std::string address;
    std::size_t connections;
  } kCases[] = {
      {"http", nginx.url(), 1},
      {"https, certificate of another host, signed by itself", nginx.tlsUrl(), 1},
      {"redirects, from http to https and on", nginx.url() + "/moved", 2},
      {"chunked answers", nginx.tlsUrl() + "/chunked", 1},
      {"two slashes at the end", nginx.url() + "//", 1},
  };
  for (const auto& [name, address, connections] : kCases) {
    SCOPED_TRACE(name);
    const std::size_t before = nginx.accessLog().size();
    UpdateRun run;
    expectUpdated(run.run({hexAddress(address), "7.2.0.1"}), run);
    std::set<std::string> used;
    const std::vector<std::string> served = nginx.accessLog();
    for (std::size_t i = before; i < served.size(); ++i) {
      used.insert(served[i].substr(0, served[i].find(' ')));
    }
    EXPECT_EQ(used.size(), connections) << boost::join(served, "\n");
  }
}

TEST(Nginx, PackageOfTwoGibibytesNeedsNoMemory) {
  QD_NEEDS_ROOT();
  if (const std::string why = whyNoNginx(); !why.empty()) GTEST_SKIP() << why;
  constexpr std::uintmax_t kSize = std::uintmax_t{2} << 30;
  const Nginx nginx;
  if (fs::space(nginx.root()).available < 2 * kSize) GTEST_SKIP() << "needs 4 GiB of disk";
  publish(nginx, "a981130cf2b7e09f4686dc273cf7187e");  // of 2 GiB of zero bytes
  const std::string served = nginx.root() + packageFolder() + "/setup.deb";
  writeFile(served, "");
  fs::resize_file(served, kSize);
  UpdateRun run;
  run.timeoutSeconds = 250;
  run.command("dpkg", R"(stat -c %s "$2" >> "$calls")");
  const Outcome outcome = run.run({hexAddress(nginx.url()), "7.2.0.1"});
  EXPECT_EQ(outcome.ended, "exit 0");
  EXPECT_THAT(outcome.calls, Contains("2147483648"));
  EXPECT_THAT(outcome.log, Contains("NFY Computed md5 is a981130cf2b7e09f4686dc273cf7187e"));
  EXPECT_LT(outcome.peakKiB, kSmallKiB);
}

// --- requests and progress

const std::string kVersion = "/linux/{A}/version_long.txt";

TEST(Requests, NameTheProgramAndAskForNoEncoding) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  expectUpdated(update.go(), update.run);
  ASSERT_EQ(update.server.requests().size(), 5U);
  for (const auto& request : update.server.requests()) {
    SCOPED_TRACE(request.line);
    EXPECT_EQ(request.headers.at("User-Agent"), "Updater/1.0.0");
    EXPECT_EQ(request.headers.count("Accept-Encoding"), 0U);
  }
}

TEST(Progress, IsLoggedInTens) {
  QD_NEEDS_ROOT();
  const UpdateRun* running = nullptr;
  // The next tenth is sent when the one before has been logged.
  const auto untilLogged = [&](int tenth) {
    const std::string line = "NFY Loading " + std::to_string(tenth * 10) + "%";
    for (int pause = 0; pause < 2000; ++pause) {
      const auto log = logRecords(content(running->temp("agent_upd.log")));
      if (std::find(log.begin(), log.end(), line) != log.end()) return;
      ::usleep(2000);
    }
  };
  LinuxUpdate update(
      {{"GET /linux/{A}/setup.deb", {Answer{.body = goodPackage(), .paced = untilLogged}}}});
  running = &update.run;
  Outcome outcome = update.go();
  expectUpdated(outcome, update.run);
  std::erase_if(outcome.log, [](const auto& line) { return line.rfind("NFY Loading", 0) != 0; });
  EXPECT_THAT(outcome.log, ElementsAre("NFY Loading 10%", "NFY Loading 20%", "NFY Loading 30%",
                                       "NFY Loading 40%", "NFY Loading 50%", "NFY Loading 60%",
                                       "NFY Loading 70%", "NFY Loading 80%", "NFY Loading 90%",
                                       "NFY Loading 100%"));
}

TEST(Requests, GoThroughTheProxyOfTheEnvironment) {
  QD_NEEDS_ROOT();
  const std::string address = "http://updates.invalid";
  LinuxUpdate update({{address + kVersion, {ok("7.2.0.1")}}});
  update.run.env["http_proxy"] = update.server.url();
  const Outcome outcome = update.run.run({hexAddress(address), "7.2.0.1"});
  EXPECT_THAT(outcome.log, Contains("NFY Current version is up to date. Nothing to do"));
}

// --- faulty and hostile answers

Answer endless() { return {.body = std::string(1 << 20, '7'), .length = "", .endless = true}; }

Answer endlessHeaders() {
  std::string headers;
  for (int i = 0; i < 1000; ++i) headers += "X-" + std::to_string(i) + ": more\r\n";
  return {.body = headers, .endless = true, .raw = "HTTP/1.1 200 OK\r\n"};
}

Answer manyHeaders(int count, const std::string& length) {
  Answer answer{.length = length};
  for (int i = 0; i < count; ++i) answer.headers.emplace_back("X-" + std::to_string(i), "more");
  return answer;
}

const std::string kDigest = "/linux/{A}/setup.deb.md5";
const std::string kHead = "HEAD /linux/{A}/setup.deb";
const std::string kGet = "GET /linux/{A}/setup.deb";
const std::string kDefinition = "/agent_setup_def.json";

Answer raw(const std::string& headers, const std::string& body = {}) {
  return {.raw = "HTTP/1.1 200 OK\r\n" + headers + "\r\n\r\n" + body};
}
Answer sizeTold(const std::string& length) { return {.length = length}; }

struct Fault {
  const char* name;
  Script script;
  const char* ended;
  const char* record;  ///< one that is in the log; "{F}" is the folder of the package
};

std::vector<Fault> faults() {
  return {
      {"EndlessVersion",
       {{kVersion, {endless()}}},
       "exit 2",
       "ERR Request {F}/version_long.txt failed : [23] -> "
       "Failed writing received data to disk/application"},
      {"EndlessDefinition",
       {{kDefinition, {endless()}}},
       "exit 0",
       "WRN Failed to get agent setup definition file - use legacy definition"},
      {"EndlessDigest",
       {{kDigest, {endless()}}},
       "exit 0",
       "ERR No file signature available (skip verification): [-1]"},
      {"EndlessPackage",
       {{kHead, {sizeTold("20000")}}, {kGet, {endless()}}},
       "exit 2",
       "ERR 'Fail to download setup file: [-1]"},
      {"PackageLargerThanTold",
       {{kGet, {ok(goodPackage() + "!")}}},
       "exit 6",
       "WRN Downloaded size is 20001 bytes. Expected size is 20000 bytes - try again"},
      {"HeaderFlood",
       {{kVersion, {endlessHeaders()}}},
       "exit 2",
       "ERR Failed to download version:  [-1]"},
      {"LengthBehindTooManyHeaders",
       {{kHead, {manyHeaders(1200, "20000")}}},
       "exit 7",
       "ERR Fail to determine file size"},
      {"RedirectLoop",
       {{kVersion, {redirect(kVersion)}}},
       "exit 2",
       "ERR Request {F}/version_long.txt failed : [47] -> Number of redirects hit maximum amount"},
      {"PackageCutOff",
       {{kGet, {raw("Content-Length: 20000", goodPackage().substr(1))}}},
       "exit 2",
       "ERR Request {F}/setup.deb failed : [18] -> Transferred a partial file"},
      {"VersionCutOff",
       {{kVersion, {raw("Content-Length: 9", "7.2.1.15")}}},
       "exit 2",
       "ERR Request {F}/version_long.txt failed : [18] -> Transferred a partial file"},
      {"ChunkCutOff",
       {{kGet, {raw("Transfer-Encoding: chunked", "4e20\r\n" + goodPackage())}}},
       "exit 2",
       "ERR Request {F}/setup.deb failed : [18] -> Transferred a partial file"},
      {"NotHttp",
       {{kVersion, {Answer{.raw = "7.2.1.15\n"}}}},
       "exit 2",
       "ERR Failed to download version:  [-1]"},
      {"OtherSuccess",
       {{kVersion, {Answer{.status = 203, .body = "7.2.1.15"}}}},
       "exit 2",
       "ERR Failed to download version:  [203]"},
      {"PackageThatEndsWithItsConnection",
       {{kGet, {Answer{.body = goodPackage(), .length = ""}}}},
       "exit 0",
       "NFY Agent Update done"},
      {"SizeIsNoNumber",
       {{kHead, {sizeTold("many")}}},
       "exit 2",
       "ERR Request {F}/setup.deb failed : [8] -> Weird server reply"},
      {"SizeBeyondNumbers",
       {{kHead, {sizeTold("99999999999999999999")}}},
       "exit 11",
       "ERR Exception : stoull"},
      {"LargestSize",
       {{kHead, {sizeTold("9223372036854775807")}}},
       "exit 6",
       "NFY File size for {F}/setup.deb is 9223372036854775807 bytes"},
      {"SizeOfARedirectCountsWhenTheLastAnswerHasNone",
       {{kHead, {Answer{.status = 302, .headers = {{"Location", "/p"}}, .length = "7"}}},
        {"/p", {sizeTold("")}}},
       "exit 6",
       "NFY File size for {F}/setup.deb is 7 bytes"},
      {"TwoSizes",
       {{kHead, {raw("Content-Length: 7\r\nContent-Length: 20000")}}},
       "exit 0",
       "NFY File size for {F}/setup.deb is 20000 bytes"},
      {"SizeOfAnEarlyAnswerCountsWhenTheLastHasNone",
       {{kHead,
         {Answer{.raw = "HTTP/1.1 103 Early Hints\r\nContent-Length: 99\r\n\r\n"
                        "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"}}}},
       "exit 6",
       "NFY File size for {F}/setup.deb is 99 bytes"},
      {"SizesInAList",
       {{kHead, {sizeTold("5, 5")}}},
       "exit 6",
       "NFY File size for {F}/setup.deb is 5 bytes"},
      {"SizeWithExponent",
       {{kHead, {sizeTold("2e4")}}},
       "exit 6",
       "NFY File size for {F}/setup.deb is 2 bytes"},
      {"HeaderWithNul",
       {{kVersion, {raw(std::string("X-Text: a\0b", 11), "7.2.1.15")}}},
       "exit 2",
       "ERR Request {F}/version_long.txt failed : [8] -> Weird server reply"},
      {"StatusOfZeros",
       {{kVersion, {Answer{.raw = "HTTP/1.1 000 OK\r\n\r\n7.2.1.15"}}}},
       "exit 2",
       "ERR Failed to download version:  [-1]"},
      {"PathThatBreaksTheRequest",
       {{kDefinition,
         {ok(R"([{"name": "", "path": "/p HTTP/1.1\r\nX: y", "setup": "a.deb",)"
             R"( "version": "v", "hash": "h", "os": 3, "arch": {N}, "enable": true}])")}}},
       "exit 2",
       "ERR Failed to download version:  [-1]"},
      {"NegativeSize",
       {{kHead, {sizeTold("-1")}}},
       "exit 2",
       "ERR Request {F}/setup.deb failed : [8] -> Weird server reply"},
      {"VersionWithLineFeed",
       {{kVersion, {ok("bad\x1b[31m\nNFY forged")}}},
       "exit 5",
       "ERR Invalid version_long.txt bad\x1b[31m"},
      {"VersionWithNul",
       {{kVersion, {ok(std::string("bad\0more", 8))}}},
       "exit 5",
       "ERR Invalid version_long.txt bad"},
      {"DefinitionNestedDeeply",
       {{kDefinition, {ok(std::string(100000, '['))}}},
       "exit 11",
       "ERR Exception : Fail to parse agent_setup_def file"},
  };
}

TEST(FaultyServer, EndsTheRunWithItsMessage) {
  QD_NEEDS_ROOT();
  for (const auto& [name, script, ended, record] : faults()) {
    SCOPED_TRACE(name);
    LinuxUpdate update(script);
    const Outcome outcome = update.go();
    EXPECT_EQ(outcome.ended, ended);
    EXPECT_THAT(outcome.log,
                Contains(fillIn(record, {{"{F}", update.server.url() + packageFolder()}})));
    EXPECT_EQ(outcome.calls.size(), outcome.ended == "exit 0" ? 3U : 0U);
    EXPECT_LT(outcome.peakKiB, 2 * kSmallKiB);
  }
}

TEST(Connection, CutAtAnyByteGivesNoAnswer) {
  // Without a length only the end of the connection ends a body, and a cut can't be told from it.
  const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n7.2.1.15\n";
  for (std::size_t size = 0; size < answer.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string sent = answer.substr(0, size);
    const ScriptedServer server(
        {{"/", {size == 0 ? Answer{.length = "cut"} : Answer{.raw = sent}}}});
    HttpClient client;
    HttpClient::Headers headers;
    std::string body;
    EXPECT_EQ(client.get(server.url() + "/", body, headers), -1);
    EXPECT_EQ(client.download(server.url() + "/", "/dev/null", headers), -1);
    if (size < answer.find("\r\n\r\n") + 4) {
      EXPECT_EQ(client.head(server.url() + "/", headers), -1);
    }
  }
}

TEST(Connection, NameThatNobodyResolvesEndsTheRun) {
  QD_NEEDS_ROOT();
  // Without it a resolver that hangs would not be cut off by the limit for connecting.
  EXPECT_TRUE(::curl_version_info(CURLVERSION_NOW)->features & CURL_VERSION_ASYNCHDNS);
  LinuxUpdate update;
  update.run.inChild = [] {  // no name server in reach
    if (::unshare(CLONE_NEWNET) != 0) ::_exit(99);
  };
  const Outcome outcome = update.run.run({hexAddress("http://updates.invalid"), "7.2.0.1"});
  if (outcome.ended == "exit 99") GTEST_SKIP() << "needs a network namespace";
  EXPECT_EQ(outcome.ended, "exit 2");
  EXPECT_THAT(outcome.log, Contains(testing::StartsWith("ERR Request http://updates.invalid/")));
}

TEST(OtherSchemes, AreRefused) {
  QD_NEEDS_ROOT();
  constexpr const char* kSchemes[] = {"file",   "ftp",    "ftps", "scp",  "sftp",  "smb",
                                      "gopher", "dict",   "imap", "ldap", "pop3",  "rtsp",
                                      "smtp",   "telnet", "tftp", "mqtt", "ldaps", "gophers"};
  for (const std::string scheme : kSchemes) {
    SCOPED_TRACE(scheme);
    LinuxUpdate update;
    std::string elsewhere = scheme + update.server.url().substr(4);
    if (scheme == "file") {
      elsewhere = "file://" + update.run.side("served");
      fs::create_directories(update.run.side("served") + packageFolder());
      writeFile(update.run.side("served") + packageFolder() + "/version_long.txt", "7.2.1.15");
    }
    const Outcome direct = update.run.run({hexAddress(elsewhere), "7.2.0.1"});
    EXPECT_EQ(direct.ended, "exit 2");
    EXPECT_THAT(direct.log, Contains(HasSubstr("failed : [1] -> Unsupported protocol")));
    EXPECT_EQ(update.server.connections(), 0);

    const std::string version = elsewhere + packageFolder() + "/version_long.txt";
    LinuxUpdate redirected({{kVersion, {redirect(version)}}});
    const Outcome outcome = redirected.go();
    EXPECT_EQ(outcome.ended, "exit 2");
    EXPECT_THAT(outcome.log, Contains(HasSubstr("failed : [1] -> Unsupported protocol")));
    EXPECT_EQ(redirected.server.connections(), 1);
  }
}

// --- names and numbers of the definition file

/// A definition file with one entry for this machine; `name` and `arch` are JSON text.
std::string definition(const std::string& name, const std::string& arch) {
  return R"([{"name": "", "path": "/p", "setup": ")" + name +
         R"(", "version": "v", "hash": "h", "os": 3, "arch": )" + arch + R"(, "enable": true}])";
}

TEST(DefinitionFile, NamesOutsideTheFolderAreRefused) {
  QD_NEEDS_ROOT();
  constexpr const char* kNames[] = {
      "../x.deb",     "/etc/x.deb",    "a/b.deb",       "..\\\\x.deb", "a\\\\b.deb", "-x.deb",
      "--root=x.deb", ".x.deb",        "..deb",         "a\\nb.deb",   "a\\rb.deb",  "a\\tb.deb",
      "a\\u0000.deb", "\\u0000/a.deb", "a\\u001b[.deb", "a\\u007f.deb"};
  for (const char* name : kNames) {
    SCOPED_TRACE(name);
    LinuxUpdate update({{kDefinition, {ok(definition(name, "{N}"))}}});
    const Outcome outcome = update.go();
    EXPECT_EQ(outcome.ended, "exit 11");
    EXPECT_THAT(outcome.log, Contains("ERR Parsing error : invalid setup name"));
    EXPECT_THAT(outcome.files, ElementsAre("agent_upd.log", "upgrade_ovt.lock"));
    EXPECT_EQ(update.server.requests().size(), 1U);
  }
}

TEST(DefinitionFile, NamesReachTheCommandAsTheyAre) {
  QD_NEEDS_ROOT();
  // The name as JSON, as it is, and as it is asked for when that is not the same.
  constexpr struct {
    const char* json;
    const char* name;
    const char* asked;
  } kNames[] = {
      {"a;touch${IFS}pwned;.deb", "a;touch${IFS}pwned;.deb", ""},
      {"$(touch${IFS}pwned).deb", "$(touch${IFS}pwned).deb", ""},
      {"`touch${IFS}pwned`.deb", "`touch${IFS}pwned`.deb", ""},
      {"a'&touch${IFS}pwned&'.deb", "a'&touch${IFS}pwned&'.deb", ""},
      {"a\\\"|touch${IFS}pwned|\\\".deb", "a\"|touch${IFS}pwned|\".deb", ""},
      {"~*$HOME!(a)[a-z]{1,2}<>.deb", "~*$HOME!(a)[a-z]{1,2}<>.deb", ""},
      {"m\\u00fcn+1.0~rc@2%20=,:.deb", "m\xc3\xbcn+1.0~rc@2%20=,:.deb",
       "m%c3%bcn+1.0~rc@2%20=,:.deb"},
  };
  for (const auto& [json, name, asked] : kNames) {
    SCOPED_TRACE(name);
    const std::string url = std::string("/p/") + (*asked != '\0' ? asked : name);
    LinuxUpdate update({{kDefinition, {ok(definition(json, "{N}"))}},
                        {"/p/v", {ok("7.2.1.15")}},
                        {"/p/h", {ok(goodDigest() + " ")}},
                        {url, {ok(goodPackage())}}});
    update.run.command("dpkg", R"(printf '%s\n' "$#" >> "$calls")");
    const Outcome outcome = update.go();
    EXPECT_EQ(outcome.ended, "exit 0");
    EXPECT_THAT(outcome.calls,
                ElementsAre("systemctl stop qdagent", "dpkg -i " + update.run.temp(name), "2",
                            "systemctl start qdagent"));
    EXPECT_THAT(outcome.files, Not(Contains(HasSubstr("work/"))));
  }
}

TEST(DefinitionFile, NumbersBeyondIntAreAnError) {
  QD_NEEDS_ROOT();
  const std::string own = machineTexts()["{N}"];
  const std::string kNumbers[] = {"429496729" + std::to_string(6 + std::stoi(own)),
                                  "2147483648",
                                  "-2147483649",
                                  "18446744073709551615",
                                  "1e300",
                                  "-1e300"};
  for (const std::string& number : kNumbers) {
    SCOPED_TRACE(number);
    LinuxUpdate update({{kDefinition, {ok(definition("a.deb", number))}}});
    const Outcome outcome = update.go();
    EXPECT_EQ(outcome.ended, "exit 11");
    EXPECT_THAT(outcome.log, Contains(HasSubstr("ERR Parsing error : ")));
  }
}

}  // namespace
