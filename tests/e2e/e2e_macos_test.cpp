// Whole runs of the program built for the macOS family, and of the one built for Synology, with
// stand-ins for the tools of those systems.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Scenario.h"

namespace {

/// The line for each folder that is asked before "/macosx".
std::string withFolders(const std::string& line) {
  std::string lines = fillIn(line, {{"{folder}", "/macosx/{Mac}"}});
  if (machineTexts()["{Mac}"] == "arm64") {
    lines += "\n" + fillIn(line, {{"{folder}", "/macosx-arm64"}});
  }
  return lines;
}

Texts macTexts() {
  Texts texts = machineTexts();
  texts.insert({
      {"{opening}", R"(
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
NFY Lock file is [{T}/upgrade_ovt.lock]
NFY OS is [Macosx]
NFY tempdir is [{T}]
NFY arch  is [{M}]
{definition})"},
      {"{definition}", R"(
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition)"},
      {"{no special folder}",
       withFolders("ERR Request {S}{folder}/version_long.txt failed : [404]")},
      {"{parameters}", R"(
NFY version url = {F}/version_long.txt
NFY setup url   = {F}/{P}
NFY setup path  = {local}
NFY hash url    = {F}/{P}.md5
NFY star cmd    = launchctl load /Library/LaunchDaemons/com.qdagent.plist
NFY stop cmd    = launchctl unload /Library/LaunchDaemons/com.qdagent.plist
NFY install cmd = {install})"},
      {"{F}", "{S}/macosx"},
      {"{P}", "TideKeeper.dmg"},
      {"{local}", "{T}/{P}"},
      {"{install}", "installer -target / -pkg{blank}"},
      {"{not the first four}", R"(
ERR Request {F}/setup.pkg failed : [404]
ERR Request {F}/setup.dmg failed : [404]
ERR Request {F}/Kesa_{Kesa}.pkg failed : [404]
ERR Request {F}/Kesa_{Kesa}.dmg failed : [404])"},
      {"{until download}", R"(
{parameters}
NFY Available version is 7.2.1.15
NFY Downloaded md5 is {D}
NFY File size for {F}/{P} is {B} bytes
{verified})"},
      {"{until size}", R"(
NFY Available version is 7.2.1.15
NFY Downloaded md5 is {D}
NFY File size for)"},
      {"{swapped}",
       "{attached}\nWRN Re-download setup file because current one has a wrong hash: " +
           md5Of("evil") + " vs {D}"},
      {"{verified}", R"(
NFY Setup downloaded [{B} bytes]
NFY Computed md5 is {D})"},
      {"{to the last candidate}", R"(
{opening}
{no special folder}
{not the first four}
{until download})"},
      {"{attached}", R"(
DBG Mounted device is /dev/disk4
DBG Mounted device is /dev/disk4s1
DBG PKG path is /Volumes/Tide Keeper/TideKeeper.pkg)"},
      {"{installed}", R"(
NFY Agent Stopping ....
NFY Agent Stopped
NFY Upgrading agent ...'
NFY Agent Installed
NFY Agent Started
NFY Agent Update done)"},
      {"{GET versions}", "GET /agent_setup_def.json\n" +
                             withFolders("GET {folder}/version_long.txt") +
                             "\nGET /macosx/version_long.txt"},
      {"{HEAD the first four}", R"(
HEAD /macosx/setup.pkg
HEAD /macosx/setup.dmg
HEAD /macosx/Kesa_{Kesa}.pkg
HEAD /macosx/Kesa_{Kesa}.dmg)"},
      {"{requests}", R"(
{GET versions}
{HEAD the first four}
HEAD /macosx/TideKeeper.dmg
GET /macosx/TideKeeper.dmg.md5
GET /macosx/TideKeeper.dmg)"},
      {"{unload}", "launchctl unload /Library/LaunchDaemons/com.qdagent.plist"},
      {"{load}", "launchctl load /Library/LaunchDaemons/com.qdagent.plist"},
      {"{all calls}", R"(
hdiutil attach {T}/TideKeeper.dmg -nobrowse
{unload}
installer -target / -pkg /Volumes/Tide Keeper/TideKeeper.pkg
hdiutil detach /dev/disk4s1
{load})"},
      {"{attach and detach}",
       "hdiutil attach {T}/TideKeeper.dmg -nobrowse\nhdiutil detach /dev/disk4s1"},
      {"{locked}", "agent_upd.log\nupgrade_ovt.lock"},
      {"{kept}", "TideKeeper.dmg\n{locked}"},
  });
  return texts;
}

/// A server with the last candidates only.
Script macServer() {
  return {{"/macosx/version_long.txt", {ok("7.2.1.15\n")}},
          {"/macosx/TideKeeper.dmg", {ok(goodPackage())}},
          {"/macosx/TideKeeper.dmg.md5", {ok(goodDigest() + " TideKeeper.dmg\n")}}};
}

/// A server with the first candidates.
Script firstCandidates() {
  return {{"/macosx/{Mac}/version_long.txt", {ok("7.2.1.15\n")}},
          {"/macosx/{Mac}/setup.pkg", {ok(goodPackage())}},
          {"/macosx/{Mac}/setup.pkg.md5", {ok(goodDigest() + " setup.pkg\n")}}};
}

void namesFirstCandidate(UpdateRun&, Texts& texts) {
  texts["{F}"] = "{S}/macosx/{Mac}";
  texts["{P}"] = "setup.pkg";
  texts["{install}"] = R"(installer -target / -pkg "{T}/setup.pkg")";
}

/// As the real one it attaches no image that somebody else has locked, and keeps its own lock as
/// long as the image is attached.
constexpr const char* kAttach =
    R"(if [ "$1" = detach ]; then rm -f "$calls.attached"; exit; fi
       exec 9< "$2" && flock -n -s 9 || exit 1
       touch "$calls.attached"
       (while [ -e "$calls.attached" ]; do sleep 0.1; done) > /dev/null 2>&1 &
       printf '%s\t%s\n%s\t%s\t\t%s \n' /dev/disk4 GUID_partition_scheme \
         /dev/disk4s1 Apple_HFS '/Volumes/Tide Keeper')";

const std::vector<Scenario>& discoveryScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "FirstCandidate",
       .script = firstCandidates(),
       .prepare = namesFirstCandidate,
       .log = "{opening}\n{until download}\n{installed}",
       .requests = R"(
GET /agent_setup_def.json
GET /macosx/{Mac}/version_long.txt
HEAD /macosx/{Mac}/setup.pkg
GET /macosx/{Mac}/setup.pkg.md5
GET /macosx/{Mac}/setup.pkg)",
       .calls = "{unload}\ninstaller -target / -pkg {T}/setup.pkg\n{load}",
       .files = "agent_upd.log\nsetup.pkg\nupgrade_ovt.lock"},
      {.name = "LastCandidate",
       .commands = {{"hdiutil", kAttach}},
       .log = "{to the last candidate}\n{attached}\n{installed}",
       .requests = "{requests}",
       .calls = "{all calls}",
       .files = "{kept}"},
      {.name = "UpToDate",
       .args = {"{H}", "7.2.1.15"},
       .prepare = [](UpdateRun&, Texts& texts) { texts["{V}"] = "7.2.1.15"; },
       .log = R"(
{opening}
{no special folder}
{not the first four}
{parameters}
NFY Available version is 7.2.1.15
NFY Current version is up to date. Nothing to do)",
       .files = "{locked}"},
      {.name = "NoFolder",
       .script = {{"/macosx/version_long.txt", {}}},
       .ended = "exit 11",
       .log = R"(
{opening}
{no special folder}
ERR Request {S}/macosx/version_long.txt failed : [404]
ERR Failed to get any correct setup paths
ERR Exception : Failed to get any correct setup paths)",
       .requests = "{GET versions}"},
      {.name = "NoLengthOfTheCandidate",
       .script = {{"HEAD /macosx/TideKeeper.dmg", {Answer{.length = ""}}}},
       .ended = "exit 11",
       .log = R"(
{opening}
{no special folder}
{not the first four}
ERR Failed to get any correct setup paths
ERR Exception : Failed to get any correct setup paths)"},
      {.name = "NoPackage",
       .script = {{"/macosx/TideKeeper.dmg", {}}},
       .prepare =
           [](UpdateRun&, Texts& texts) {
             texts["{P}"] = "";
             texts["{local}"] = "{T}";
           },
       .ended = "exit 2",
       .log = R"(
{opening}
{no special folder}
{not the first four}
ERR Request {F}/TideKeeper.dmg failed : [404]
{parameters}
NFY Available version is 7.2.1.15
ERR Request {F}/.md5 failed : [404]
ERR No file signature available (skip verification): [404]
ERR Request {F}/ failed : [404]
ERR Fail to get HEAD for {F}/: [404 ]
NFY Remove lock file)",
       .requests = R"(
{GET versions}
{HEAD the first four}
HEAD /macosx/TideKeeper.dmg
GET /macosx/.md5
HEAD /macosx/)"},
      {.name = "NotRoot",
       .prepare = [](UpdateRun& run, Texts&) { run.user = kNobody; },
       .ended = "exit 1",
       .log = R"(
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
NFY Lock file is [{T}/upgrade_ovt.lock]
NFY OS is [Macosx]
ERR Need priveledged user or root user
NFY Remove lock file)",
       .files = "agent_upd.log"},
  };
  return kScenarios;
}

/// A definition file's only entry for this machine, with its files in "/i".
Script definedIn(const std::string& jsonName, const std::string& name) {
  return {{"/agent_setup_def.json",
           {ok(R"([{"name": "", "path": "/i", "setup": ")" + jsonName +
               R"(", "version": "v", "hash": "h", "os": 2, "arch": {N}, "enable": true}])")}},
          {"/i/v", {ok("7.2.1.15")}},
          {"/i/h", {ok(goodDigest() + " ")}},
          {"/i/" + name, {ok(goodPackage())}}};
}

void namesDefinition(UpdateRun&, Texts& texts) {
  texts["{definition}"] = "DBG Use agent setup definition file";
  texts["{F}"] = "{S}/i";
}

/// Puts another file in the place of the image that is being attached.
constexpr const char* kSwap =
    R"(; [ "$1" = detach ] || { printf evil > "$tmp/new"; mv "$tmp/new" "$2"; })";

const std::vector<Scenario>& imageScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "AttachFails",
       .commands = {{"hdiutil", "echo /dev/disk4; exit 1"}},
       .ended = "exit 9",
       .log = "{to the last candidate}\nERR Unable to attach setup",
       .calls = "hdiutil attach {T}/TideKeeper.dmg -nobrowse"},
      {.name = "NoDevice",
       .commands = {{"hdiutil", "echo hello"}},
       .ended = "exit 9",
       .log = "{to the last candidate}\nERR Unable to attach setup"},
      {.name = "DeviceWithoutVolumeIsDetached",
       .commands = {{"hdiutil", R"([ "$1" = detach ] && exit 1; echo /dev/disk4)"}},
       .ended = "exit 9",
       .log = R"(
{to the last candidate}
DBG Mounted device is /dev/disk4
ERR Unable to attach setup)",
       .calls = "hdiutil attach {T}/TideKeeper.dmg -nobrowse\nhdiutil detach /dev/disk4"},
      {.name = "EverythingAfterAttachingFails",
       .commands = {{"hdiutil", std::string("[ $1 = attach ] || exit 1\n") + kAttach},
                    {"launchctl", "exit 1"},
                    {"installer", "exit 2"}},
       .log = R"(
{to the last candidate}
{attached}
NFY Agent Stopping ....
ERR Fail to stop agent: [256]
NFY Upgrading agent ...'
ERR Fail to install agent : [512]
ERR Fail to re-start agent : [256]
NFY Agent Update done)",
       .calls = "{all calls}"},
      {.name = "StillAttachedByTheRunBefore",
       .commands = {{"hdiutil", std::string("[ $1 = attach ] || exit 1\n") + kAttach}},
       .prepare =
           [](UpdateRun& run, Texts&) {
             run.launcher = {"/bin/sh", "-c",
                             R"("$0" "$@"; rm "$TMPDIR/upgrade_ovt.lock"; exec "$0" "$@")"};
           },
       .log = "{to the last candidate}\n{attached}\n{installed}\n"
              "{to the last candidate}\n{attached}\n{installed}",
       .calls = "{all calls}\n{all calls}",
       .files = "{kept}",
       .connections = 2},
      {.name = "OnlyRestart",
       .args = {"-S", "{H}", "{V}"},
       .commands = {{"hdiutil", kAttach}},
       .log = R"(
{to the last candidate}
{attached}
NFY Agent Stopping ....
NFY Agent Stopped
NFY Agent Started
NFY Agent Update done
NFY Remove lock file)",
       .calls = R"(
hdiutil attach {T}/TideKeeper.dmg -nobrowse
{unload}
hdiutil detach /dev/disk4s1
{load})",
       .files = "TideKeeper.dmg\nagent_upd.log"},
      {.name = "NamesInTheImageRunNothing",
       .commands = {{"hdiutil",
                     R"([ "$1" = detach ] || printf '%s\t%s\n' '/dev/disk4;touch pwned' \
                          '/Volumes/$(touch pwned)`touch pwned`"\')"},
                    {"installer", R"(printf '%s\n' "$#" >> "$calls")"}},
       .log = R"(
{to the last candidate}
DBG Mounted device is /dev/disk4;touch pwned
DBG PKG path is /Volumes/$(touch pwned)`touch pwned`"\/TideKeeper.pkg
{installed})",
       .calls = R"(
hdiutil attach {T}/TideKeeper.dmg -nobrowse
{unload}
installer -target / -pkg /Volumes/$(touch pwned)`touch pwned`"\/TideKeeper.pkg
4
hdiutil detach /dev/disk4;touch pwned
{load})",
       .files = "{kept}"},
      {.name = "SwappedWhileItIsAttached",
       .commands = {{"hdiutil", std::string(kAttach) + kSwap}},
       .ended = "exit 7",
       .log = R"(
{to the last candidate}
{swapped}
{verified}
{swapped}
{verified}
{swapped}
ERR Invalid setup md5)",
       .requests = "{requests}\nGET /macosx/TideKeeper.dmg\nGET /macosx/TideKeeper.dmg",
       .calls = "{attach and detach}\n{attach and detach}\n{attach and detach}",
       .files = "{locked}",
       .connections = 3},
      {.name = "ImageFromTheDefinitionFile",
       .script = definedIn("a.b.dmg", "a.b.dmg"),
       .commands = {{"hdiutil", kAttach}},
       .prepare = namesDefinition,
       .log = R"(
{opening}
NFY version url = {F}/v
NFY setup url   = {F}/a.b.dmg
NFY setup path  = {T}/a.b.dmg
NFY hash url    = {F}/h
NFY star cmd    = {load}
NFY stop cmd    = {unload}
NFY install cmd = {install}
{until size} {F}/a.b.dmg is {B} bytes
{verified}
DBG Mounted device is /dev/disk4
DBG Mounted device is /dev/disk4s1
DBG PKG path is /Volumes/Tide Keeper/a.b.pkg
{installed})",
       .requests = R"(
GET /agent_setup_def.json
GET /i/v
GET /i/h
HEAD /i/a.b.dmg
GET /i/a.b.dmg)",
       .calls = R"(
hdiutil attach {T}/a.b.dmg -nobrowse
{unload}
installer -target / -pkg /Volumes/Tide Keeper/a.b.pkg
hdiutil detach /dev/disk4s1
{load})",
       .files = "a.b.dmg\n{locked}"},
      {.name = "PackageFromTheDefinitionFile",
       .script = definedIn(R"(a\"$(touch${IFS}pwned)`.pkg)", R"(a"$(touch${IFS}pwned)`.pkg)"),
       .commands = {{"installer", R"(printf '%s\n' "$#" >> "$calls")"}},
       .prepare = namesDefinition,
       .log = R"(
{opening}
NFY version url = {F}/v
NFY setup url   = {F}/a"$(touch${IFS}pwned)`.pkg
NFY setup path  = {T}/a"$(touch${IFS}pwned)`.pkg
NFY hash url    = {F}/h
NFY star cmd    = {load}
NFY stop cmd    = {unload}
NFY install cmd = installer -target / -pkg "{T}/a\"\$(touch\${IFS}pwned)\`.pkg"
{until size} {F}/a"$(touch${IFS}pwned)`.pkg is {B} bytes
{verified}
{installed})",
       .calls = R"(
{unload}
installer -target / -pkg {T}/a"$(touch${IFS}pwned)`.pkg
4
{load})",
       .files = "a\"$(touch${IFS}pwned)`.pkg\n{locked}"},
  };
  return kScenarios;
}

constexpr const char* kSynologyDefinition =
    R"([{"name": "", "path": "/s", "setup": "agent.spk", "version": "v", "hash": "h", "os": 3,
         "arch": {N}, "enable": true}])";

const std::vector<Scenario>& synologyScenarios() {
  static const std::vector<Scenario> kScenarios = {
      {.name = "NoBuiltInParameters", .ended = "exit 11", .log = R"(
{opening}
ERR Request {S}/agent_setup_def.json failed : [404]
WRN Failed to get agent setup definition file - use legacy definition
ERR Exception : Unsupported distribution)"},
      // The command after the installation finds no privilege file on this machine.
      {.name = "FromTheDefinitionFile",
       .script = {{"/agent_setup_def.json", {ok(kSynologyDefinition)}},
                  {"/s/v", {ok("7.2.1.15")}},
                  {"/s/h", {ok(goodDigest() + " ")}},
                  {"/s/agent.spk", {ok(goodPackage())}}},
       .log = R"(
{opening}
DBG Use agent setup definition file
NFY version url = {S}/s/v
NFY setup url   = {S}/s/agent.spk
NFY setup path  = {T}/agent.spk
NFY hash url    = {S}/s/h
NFY star cmd    = synopkg start kesa
NFY stop cmd    = synopkg stop kesa
NFY install cmd = synopkg install {T}/agent.spk
NFY Available version is 7.2.1.15
NFY Downloaded md5 is {D}
NFY File size for {S}/s/agent.spk is {B} bytes
NFY Setup downloaded [{B} bytes]
NFY Computed md5 is {D}
NFY Agent Stopping ....
NFY Agent Stopped
NFY Upgrading agent ...'
NFY Agent Installed
ERR Fail to run post install command: [512]
NFY Agent Started
NFY Agent Update done)",
       .requests = R"(
GET /agent_setup_def.json
GET /s/v
GET /s/h
HEAD /s/agent.spk
GET /s/agent.spk)",
       .calls = R"(
synopkg stop kesa
synopkg install {T}/agent.spk
synopkg start kesa)"},
  };
  return kScenarios;
}

Texts synologyTexts() {
  Texts texts = machineTexts();
  texts.insert({{"{opening}", R"(
NFY Check Update
NFY Current version : {V}
NFY Udpate server : {S}
NFY Lock file is [{T}/upgrade_ovt.lock]
NFY OS is [Linux]
NFY distrib is [spk]
NFY tempdir is [{T}]
NFY arch  is [{M}])"},
                {"{locked}", "agent_upd.log\nupgrade_ovt.lock"}});
  return texts;
}

std::string whyNot(const std::string& executable) {
  if (::access(executable.c_str(), X_OK) != 0) return "not built: " + executable;
  if (machineTexts().empty()) return "no packages for this machine";
  return whyNoRoot();
}

class MacOS : public testing::TestWithParam<Scenario> {};
class Synology : public testing::TestWithParam<Scenario> {};

TEST_P(MacOS, GoesAsScripted) {
  if (const auto why = whyNot(updateExecutableMacOS()); !why.empty()) GTEST_SKIP() << why;
  check(GetParam(), updateExecutableMacOS(), macServer(), macTexts());
}

TEST_P(Synology, GoesAsScripted) {
  if (const auto why = whyNot(updateExecutableSynology()); !why.empty()) GTEST_SKIP() << why;
  check(GetParam(), updateExecutableSynology(), {}, synologyTexts());
}

INSTANTIATE_TEST_SUITE_P(Discovery, MacOS, testing::ValuesIn(discoveryScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Image, MacOS, testing::ValuesIn(imageScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Package, Synology, testing::ValuesIn(synologyScenarios()), nameOf);

}  // namespace
