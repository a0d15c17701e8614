// Whole runs of the program against a scripted server: log, exit status, requests, commands and
// files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>

#include "Scenario.h"

namespace fs = std::filesystem;

namespace {

Texts linuxTexts() {
  Texts texts = machineTexts();
  texts.insert({
      {"{greeting}", R"(
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S})"},
      {"{system}", R"(
NFY OS is [Linux]
NFY distrib is [deb])"},
      {"{machine}", R"(
NFY tempdir is [{T}]
NFY arch  is [{M}])"},
      {"{opening}", R"(
{greeting}
NFY Lock file is [{T}/upgrade_ovt.lock]
{system}
{machine})"},
      {"{F}", "{S}/linux/{A}"},
      {"{no definition}", R"(
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition)"},
      {"{parameters}", R"(
NFY version url = {F}/version_long.txt
NFY setup url   = {F}/setup.deb
NFY setup path  = {T}/setup.deb
NFY hash url    = {F}/setup.deb.md5
NFY star cmd    = systemctl start qdagent
NFY stop cmd    = systemctl stop qdagent
NFY install cmd = dpkg -i {T}/setup.deb)"},
      {"{legacy}", "{no definition}\n{parameters}"},
      {"{available}", "NFY Available version is 7.2.1.15"},
      {"{digest}", "NFY Downloaded md5 is {D}"},
      {"{size}", "NFY File size for {F}/setup.deb is {B} bytes"},
      {"{downloaded}", "NFY Setup downloaded [{B} bytes]"},
      {"{short}", R"(
NFY Setup downloaded [19999 bytes]
WRN Downloaded size is 19999 bytes. Expected size is {B} bytes - try again)"},
      {"{wrong}", R"(
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {X} vs {D})"},
      {"{X}", md5Of("X" + goodPackage().substr(1))},
      {"{verified}", "{downloaded}\nNFY Computed md5 is {D}"},
      {"{stopped}", R"(
NFY Agent Stopping ....
NFY Agent Stopped)"},
      {"{started}", R"(
NFY Agent Started
NFY Agent Update done)"},
      {"{installed}", R"(
{stopped}
NFY Upgrading agent ...'
NFY Agent Installed
{started})"},
      {"{until version}", "{opening}\n{legacy}\n{available}"},
      {"{until download}", "{until version}\n{digest}\n{size}"},
      {"{update}", "{until download}\n{verified}\n{installed}"},
      {"{GET version}", "GET /agent_setup_def.json\nGET /linux/{A}/version_long.txt"},
      {"{HEAD}", "{GET version}\nGET /linux/{A}/setup.deb.md5\nHEAD /linux/{A}/setup.deb"},
      {"{GET}", "GET /linux/{A}/setup.deb"},
      {"{requests}", "{HEAD}\n{GET}"},
      {"{commands}", R"(
systemctl stop qdagent
dpkg -i {T}/setup.deb
systemctl start qdagent)"},
      {"{entry", R"({"name": "", "path": "/p", "version": "v", "hash": "h", "setup":)"},
      {"{locked}", "agent_upd.log\nupgrade_ovt.lock"},
      {"{kept}", "agent_upd.log\nsetup.deb\nupgrade_ovt.lock"},
  });
  return texts;
}

Script versionIs(const char* text) { return {{"/linux/{A}/version_long.txt", {ok(text)}}}; }
Script digestIs(const std::string& text) { return {{"/linux/{A}/setup.deb.md5", {ok(text)}}}; }

long long nowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

/// The lock as a run would have left it that long ago; "{lock time}" is its time as the log tells
/// it.
std::function<void(UpdateRun&, Texts&)> lockFrom(long long msAgo, const char* end = "\n",
                                                 const char* begin = "") {
  return [=](UpdateRun& run, Texts& texts) {
    const long long lockTime = nowMs() - msAgo;
    writeFile(run.temp("upgrade_ovt.lock"), begin + std::to_string(lockTime) + end);
    const std::time_t seconds = lockTime / 1000;
    char text[100];
    std::strftime(text, sizeof text, "%d-%m-%Y %H:%M:%S", std::localtime(&seconds));
    texts["{lock time}"] = text;
  };
}

std::function<void(UpdateRun&, Texts&)> lockHolds(const char* content) {
  return [=](UpdateRun& run, Texts&) { writeFile(run.temp("upgrade_ovt.lock"), content); };
}

constexpr const char* kHeld = R"(
{greeting}
DBG Lock file is [{T}/upgrade_ovt.lock]
NFY Another instance of has been launched less than one hour ago {lock time} : lock file location is {T}/upgrade_ovt.lock)";

constexpr const char* kLockUnreadable = R"(
{greeting}
DBG Lock file is [{T}/upgrade_ovt.lock]
ERR checkLockFile error : stoll)";

constexpr const char* kChosen = R"([
 {"name": "off", "path": "/off", "setup": "off.deb", "version": "v", "hash": "h", "os": 3, "arch": {N},
  "enable": false},
 {"name": "other machine", "path": "/other", "setup": "other.deb", "version": "v", "hash": "h", "os": 3,
  "arch": {Other}, "enable": true},
 {"name": "other kind", "path": "/rpm", "setup": "agent.rpm", "version": "v", "hash": "h", "os": 3,
  "arch": {N}, "enable": true},
 {"name": "this", "path": "/here", "setup": "agent.deb", "version": "now.txt", "hash": "sum", "os": 2,
  "arch": {N}, "enable": true, "further": 1},
 {"name": "too late"}])";

constexpr const char* kStale = R"(
{greeting}
DBG Lock file is [{T}/upgrade_ovt.lock]
{system}
{machine}
{legacy}
{available}
{digest}
{size}
{verified}
{installed})";

constexpr const char* kAptGet =
    "apt-get install -y libxrender1 libxcb1 libxcb-render0 libxcb-render-util0 libxcb-shape0 "
    "libxcb-randr0 libxcb-xfixes0 libxcb-xkb1 libxcb-sync1 libxcb-shm0 libxcb-icccm4 "
    "libxcb-keysyms1 libxcb-image0 libxcb-util1 libxcb-cursor0 libxkbcommon0 libxkbcommon-x11-0 "
    "libfontconfig1 libfreetype6 libxext6 libx11-xcb1 libsm6 libice6";

const std::vector<Scenario>& versionScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "UpdateDone",
       .log = "{update}",
       .requests = "{requests}",
       .calls = "{commands}",
       .files = "{kept}"},
      {.name = "UpToDate",
       .args = {"{H}", "7.2.1.15"},
       .prepare = [](UpdateRun&, Texts& texts) { texts["{V}"] = "7.2.1.15"; },
       .log = R"(
{until version}
NFY Current version is up to date. Nothing to do)",
       .requests = "{GET version}",
       .files = "{locked}"},
      {.name = "ServerHasAnOlderVersion", .script = versionIs("7.1.9.99"), .log = R"(
{opening}
{legacy}
NFY Available version is 7.1.9.99
NFY Current version is up to date. Nothing to do)"},
      {.name = "InvalidArgumentVersion",
       .args = {"{H}", "7.2.1"},
       .prepare = [](UpdateRun&, Texts& texts) { texts["{V}"] = "7.2.1"; },
       .ended = "exit 4",
       .log = R"(
{greeting}
NFY Lock file is [{T}/upgrade_ovt.lock]
{system}
ERR Invalid current version 7.2.1)"},
      {.name = "InvalidServerVersion", .script = versionIs("7.2.2"), .ended = "exit 5", .log = R"(
{opening}
{legacy}
ERR Invalid version_long.txt 7.2.2)"},
      {.name = "NoVersionFile",
       .script = {{"/linux/{A}/version_long.txt", {}}},
       .ended = "exit 2",
       .log = R"(
{opening}
{legacy}
ERR Request {F}/version_long.txt failed : [404]
ERR Failed to download version:  [404]
NFY Remove lock file)",
       .files = "agent_upd.log"},
      {.name = "AgentTooOldForX11AndNoX11Here",
       .args = {"{H}", "7.1.5.2"},
       .commands = {{"dpkg", R"([ "$1" != -S ] || { echo noise; echo noise >&2; exit 1; })"}},
       .prepare = [](UpdateRun&, Texts& texts) { texts["{V}"] = "7.1.5.2"; },
       .log = R"(
{until download}
{verified}
{stopped}
NFY Upgrading agent ...'
NFY installXCBDeps ...
NFY X11 not found
NFY Agent Installed
{started})",
       .calls = R"(
systemctl stop qdagent
dpkg -S libX11
dpkg -i {T}/setup.deb
systemctl start qdagent)"},
      {.name = "AgentTooOldForX11",
       .args = {"{H}", "7.2.0.0"},
       .commands = {{"apt-get", "exit 100"}},
       .prepare =
           [](UpdateRun&, Texts& texts) {
             texts["{V}"] = "7.2.0.0";
             texts["{apt-get}"] = kAptGet;
           },
       .log = R"(
{until download}
{verified}
{stopped}
NFY Upgrading agent ...'
NFY installXCBDeps ...
NFY Found x11
NFY Install xcb dependencies25600
NFY Agent Installed
{started})",
       .calls = R"(
systemctl stop qdagent
dpkg -S libX11
{apt-get}
dpkg -i {T}/setup.deb
systemctl start qdagent)"},
  };
  return kScenarios;
}

const std::vector<Scenario>& packageScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "NoDigest", .script = {{"/linux/{A}/setup.deb.md5", {}}}, .log = R"(
{until version}
ERR Request {F}/setup.deb.md5 failed : [404]
ERR No file signature available (skip verification): [404]
{size}
{downloaded}
{installed})"},
      {.name = "DigestWithoutBlank",
       .script = digestIs("0123456789abcdef0123456789abcdef\n"),
       .log = R"(
{until version}
{size}
{downloaded}
{installed})"},
      {.name = "DigestStartsWithBlank",
       .script = digestIs(" 0123456789abcdef0123456789abcdef\n"),
       .log = R"(
{until version}
NFY Downloaded md5 is{blank}
{size}
{downloaded}
{installed})"},
      {.name = "ShortPackageThreeTimes",
       .script = {{"GET /linux/{A}/setup.deb", {ok(goodPackage().substr(1))}}},
       .ended = "exit 6",
       .log = R"(
{until download}
{short}
{short}
{short}
ERR Invalid setup size)",
       .requests = "{HEAD}\n{GET}\n{GET}\n{GET}",
       .files = "{kept}"},
      {.name = "WrongDigestThreeTimes",
       .script = digestIs("0123456789abcdef0123456789abcdef *setup.deb\n"),
       .ended = "exit 7",
       .log = R"(
{until version}
NFY Downloaded md5 is 0123456789abcdef0123456789abcdef
{size}
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs 0123456789abcdef0123456789abcdef
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs 0123456789abcdef0123456789abcdef
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs 0123456789abcdef0123456789abcdef
ERR Invalid setup md5)",
       .files = "{locked}"},
      {.name = "DigestOfAnotherForm",
       .script = digestIs("MD5 (setup.deb) = 0123456789abcdef0123456789abcdef\n"),
       .ended = "exit 7",
       .log = R"(
{opening}
{legacy}
{available}
NFY Downloaded md5 is MD5
{size}
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs MD5
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs MD5
{downloaded}
WRN Re-download setup file because current one has a wrong hash: {D} vs MD5
ERR Invalid setup md5)",
       .requests = "{HEAD}\n{GET}\n{GET}\n{GET}",
       .files = "{locked}"},
      {.name = "WrongDigestOnce",
       .script = {{"GET /linux/{A}/setup.deb",
                   {ok("X" + goodPackage().substr(1)), ok(goodPackage())}}},
       .log = R"(
{until download}
{wrong}
{verified}
{installed})",
       .requests = "{requests}\n{GET}"},
      {.name = "LastAttemptNamesTheFault",
       .script = {{"GET /linux/{A}/setup.deb",
                   {ok("X" + goodPackage().substr(1)), ok("X" + goodPackage().substr(1)),
                    ok(goodPackage().substr(1))}}},
       .ended = "exit 6",
       .log = R"(
{until download}
{wrong}
{wrong}
{short}
ERR Invalid setup size)"},
      {.name = "NoLengthHeader",
       .script = {{"HEAD /linux/{A}/setup.deb", {Answer{.length = ""}}}},
       .ended = "exit 7",
       .log = R"(
{until version}
{digest}
ERR Fail to determine file size)"},
      {.name = "LowerCaseLengthWins",
       .script = {{"HEAD /linux/{A}/setup.deb",
                   {Answer{.headers = {{"content-length", "  20000 "}}, .length = "20000"}}}},
       .log = "{update}"},
      {.name = "PackageMissing",
       .script = {{"/linux/{A}/setup.deb", {}}},
       .ended = "exit 2",
       .log = R"(
{until version}
{digest}
ERR Request {F}/setup.deb failed : [404]
ERR Fail to get HEAD for {F}/setup.deb: [404 ]
NFY Remove lock file)",
       .files = "agent_upd.log"},
      {.name = "PackageGoneAfterTheSizeQuery",
       .script = {{"GET /linux/{A}/setup.deb", {refused(503)}}},
       .ended = "exit 2",
       .log = R"(
{until download}
ERR Request {F}/setup.deb failed : [503]
ERR 'Fail to download setup file: [503]
NFY Remove lock file)",
       .files = "agent_upd.log\nsetup.deb"},
      {.name = "AnswersInChunks",
       .script = {{"GET /linux/{A}/setup.deb", {Answer{.body = goodPackage(), .chunked = true}}},
                  {"/linux/{A}/version_long.txt", {Answer{.body = "7.2.1.15", .chunked = true}}}},
       .log = "{update}"},
      {.name = "EverythingMovedTwice",
       .script = {{"/linux/{A}/version_long.txt", {redirect("{S}/a")}},
                  {"/a", {redirect("/v")}},
                  {"/v", {ok("7.2.1.15")}},
                  {"/linux/{A}/setup.deb", {redirect("/p")}},
                  {"/p", {ok(goodPackage())}}},
       .log = "{update}",
       .requests = R"(
{GET version}
GET /a
GET /v
GET /linux/{A}/setup.deb.md5
HEAD /linux/{A}/setup.deb
HEAD /p
{GET}
GET /p)"},
  };
  return kScenarios;
}

/// Definition files that end the run, with the record that says why (none when nothing fits).
std::vector<Scenario> definitionFaults() {
  const std::string unexpectedEnd =
      "ERR Parsing error : [json.exception.parse_error.101] parse error at line 1, column ";
  const std::string badName = "ERR Parsing error : invalid setup name";
  const std::vector<std::array<std::string, 3>> faults = {
      {"NoEntryFits", R"([{entry "agent.DEB", "os": 3, "arch": {N}, "enable": true}])", ""},
      {"ShortNameNeverFits", R"([{entry "deb", "os": 3, "arch": {N}, "enable": true}])", ""},
      {"OtherMachine", R"([{entry "agent.deb", "os": 3, "arch": {Other}, "enable": true}])", ""},
      {"EmptyArray", "[]", ""},
      {"Null", "null", ""},
      {"Nothing", "",
       unexpectedEnd + "1: syntax error while parsing value - unexpected end of input; "
                       "expected '[', '{', or a literal"},
      {"CutOff", "[",
       unexpectedEnd + "2: syntax error while parsing value - unexpected end of input; "
                       "expected '[', '{', or a literal"},
      {"KeyMissing", R"([{"path": "/p"}])",
       "ERR Parsing error : [json.exception.out_of_range.403] key 'name' not found"},
      {"WrongType", R"([{entry "agent.deb", "os": 3, "arch": {N}, "enable": "true"}])",
       "ERR Parsing error : [json.exception.type_error.302] type must be boolean, but is string"},
      {"FaultyEntryBeforeTheGoodOne",
       R"([{"name": 1}, {entry "agent.deb", "os": 3, "arch": {N}, "enable": true}])",
       "ERR Parsing error : [json.exception.type_error.302] type must be string, but is number"},
      {"NameOfAnotherFolder", R"([{entry "../agent.deb", "os": 3, "arch": {N}, "enable": true}])",
       badName},
  };
  std::vector<Scenario> scenarios;
  for (const auto& [name, json, record] : faults) {
    scenarios.push_back(
        {.name = name,
         .script = {{"/agent_setup_def.json", {ok(json)}}},
         .ended = "exit 11",
         .log = "{opening}\n" + record + "\nERR Exception : Fail to parse agent_setup_def file",
         .requests = "GET /agent_setup_def.json",
         .files = "{locked}"});
  }
  return scenarios;
}

const std::vector<Scenario>& definitionScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "FirstFittingEntryIsChosen",
       .script = {{"/agent_setup_def.json", {ok(kChosen)}},
                  {"/here/now.txt", {ok("7.2.1.15 of today\n")}},
                  {"/here/sum", {ok(goodDigest() + " agent.deb")}},
                  {"/here/agent.deb", {ok(goodPackage())}}},
       .log = R"(
{opening}
DBG Use agent setup definition file
NFY version url = {S}/here/now.txt
NFY setup url   = {S}/here/agent.deb
NFY setup path  = {T}/agent.deb
NFY hash url    = {S}/here/sum
NFY star cmd    = systemctl start qdagent
NFY stop cmd    = systemctl stop qdagent
NFY install cmd = dpkg -i {T}/agent.deb
{available}
{digest}
NFY File size for {S}/here/agent.deb is {B} bytes
{verified}
{installed})",
       .requests = R"(
GET /agent_setup_def.json
GET /here/now.txt
GET /here/sum
HEAD /here/agent.deb
GET /here/agent.deb)",
       .calls = R"(
systemctl stop qdagent
dpkg -i {T}/agent.deb
systemctl start qdagent)",
       .files = "agent.deb\n{locked}"},
      {.name = "RefusedDefinitionMeansBuiltInParameters",
       .script = {{"/agent_setup_def.json", {refused(500)}}},
       .log = R"(
{opening}
ERR Request {S}/agent_setup_def.json failed : [500]
WRN Failed to get agent setup definition file - use legacy definition
{parameters}
{available}
{digest}
{size}
{verified}
{installed})"},
  };
  return kScenarios;
}

const std::vector<Scenario>& commandScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "StopFails",
       .commands = {{"systemctl", R"([ "$1" != stop ] || exit 5)"}},
       .log = R"(
{until download}
{verified}
NFY Agent Stopping ....
ERR Fail to stop agent: [1280]
NFY Upgrading agent ...'
NFY Agent Installed
{started})",
       .calls = "{commands}"},
      {.name = "InstallFails", .commands = {{"dpkg", "exit 1"}}, .log = R"(
{until download}
{verified}
{stopped}
NFY Upgrading agent ...'
ERR Fail to install agent : [256]
{started})"},
      {.name = "StartFails",
       .commands = {{"systemctl", R"([ "$1" != start ] || exit 3)"}},
       .log = R"(
{until download}
{verified}
{stopped}
NFY Upgrading agent ...'
NFY Agent Installed
ERR Fail to re-start agent : [768]
NFY Agent Update done)"},
      {.name = "OnlyRestart",
       .args = {"-S", "{H}", "{V}"},
       .log = R"(
{until download}
{verified}
{stopped}
{started}
NFY Remove lock file)",
       .calls = "systemctl stop qdagent\nsystemctl start qdagent",
       .files = "agent_upd.log\nsetup.deb"},
      {.name = "OnlyRestartWithNothingNew",
       .args = {"-S", "{H}", "7.3.0.0"},
       .prepare = [](UpdateRun&, Texts& texts) { texts["{V}"] = "7.3.0.0"; },
       .log = R"(
{until version}
NFY Current version is up to date. Nothing to do
NFY Remove lock file)",
       .files = "agent_upd.log"},
  };
  return kScenarios;
}

const std::vector<Scenario>& lockScenarios() {
  constexpr long long kHour = 3600000;
  static const std::vector<Scenario> kScenarios = {
      {.name = "Held", .prepare = lockFrom(1000), .log = kHeld, .files = "{locked}"},
      {.name = "HeldForNearlyAnHour", .prepare = lockFrom(kHour - 60000, "", " \t"), .log = kHeld},
      {.name = "HeldByTheFuture", .prepare = lockFrom(-kHour), .log = kHeld},
      {.name = "HeldIsLeftAloneByOnlyRestart",
       .args = {"-S", "{H}", "{V}"},
       .prepare = lockFrom(1000, " \nmore\n"),
       .log = kHeld,
       .files = "{locked}"},
      {.name = "Stale", .prepare = lockFrom(kHour + 1), .log = kStale, .files = "{kept}"},
      {.name = "StaleForEver", .prepare = lockHolds("-9223372036854775808\n"), .log = kStale},
      {.name = "Garbage",
       .prepare = lockHolds("yesterday\n"),
       .log = kLockUnreadable,
       .files = "{locked}"},
      {.name = "Empty", .prepare = lockHolds(""), .log = kLockUnreadable, .files = "{locked}"},
      {.name = "LineWithoutEnd",
       .prepare =
           [](UpdateRun& run, Texts&) {
             writeFile(run.temp("upgrade_ovt.lock"), "");
             fs::resize_file(run.temp("upgrade_ovt.lock"), std::uintmax_t{1} << 40);
           },
       .log = kLockUnreadable,
       .files = "{locked}"},
      {.name = "NotRoot",
       .prepare = [](UpdateRun& run, Texts&) { run.user = kNobody; },
       .ended = "exit 1",
       .log = R"(
{greeting}
NFY Lock file is [{T}/upgrade_ovt.lock]
{system}
ERR Need priveledged user or root user
NFY Remove lock file)",
       .files = "agent_upd.log"},
  };
  return kScenarios;
}

class Procedure : public testing::TestWithParam<Scenario> {};

TEST_P(Procedure, GoesAsScripted) {
  if (const std::string why = whyNoRoot(); !why.empty()) GTEST_SKIP() << why;
  check(GetParam(), updateExecutable(), linuxServer(), linuxTexts());
}

INSTANTIATE_TEST_SUITE_P(Version, Procedure, testing::ValuesIn(versionScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Package, Procedure, testing::ValuesIn(packageScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Definition, Procedure, testing::ValuesIn(definitionScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(DefinitionFault, Procedure, testing::ValuesIn(definitionFaults()), nameOf);
INSTANTIATE_TEST_SUITE_P(Commands, Procedure, testing::ValuesIn(commandScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Lock, Procedure, testing::ValuesIn(lockScenarios()), nameOf);

}  // namespace
