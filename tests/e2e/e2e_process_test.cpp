// The program as a process: its arguments, what it inherits and passes on, signals, and its log.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string/replace.hpp>
#include <filesystem>

#include "Scenario.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr const char* kUsage = "Usage : \nupdate [-D] <url> <version>\n";

// --- arguments

TEST(Arguments, WrongOnesPrintTheUsageAndTouchNothing) {
  const std::string hex = hexAddress("http://127.0.0.1:9");
  const std::vector<std::string> kCases[] = {
      {},
      {hex},
      {"-D", hex, "7.2.0.1", "more"},
      {"-X", hex, "7.2.0.1"},
      {"-d", hex, "7.2.0.1"},
      {"", hex, "7.2.0.1"},
      {"-DS", hex, "7.2.0.1"},
  };
  for (const auto& args : kCases) {
    SCOPED_TRACE(testing::PrintToString(args));
    UpdateRun run;
    run.user = ::geteuid() == 0 ? kNobody : 0;
    const Outcome outcome = run.run(args);
    EXPECT_EQ(outcome.ended, "exit 1");
    EXPECT_EQ(outcome.out, kUsage);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.files, IsEmpty());
  }
}

TEST(Arguments, AddressIsDecoded) {
  QD_NEEDS_ROOT();
  const ScriptedServer server({});
  const std::string& url = server.url();
  std::string upper = hexAddress(url);
  for (char& digit : upper) digit = static_cast<char>(::toupper(digit));
  const std::string longest = url + "/" + std::string(4095 - url.size() - 1, 'a');
  const struct {
    const char* name;
    std::string argument;
    std::string address;
  } kCases[] = {
      {"one slash at the end", hexAddress(url + "/"), url},
      {"two slashes at the end", hexAddress(url + "//"), url + "/"},
      {"capital and odd digits", upper + "2", url},
      {"up to what is no digit", hexAddress(url) + "/2f2f", url},
      {"up to NUL", hexAddress(url) + "002f", url},
      {"longest", hexAddress(longest), longest},
      {"longest and a slash less", hexAddress(longest.substr(1) + "/"), longest.substr(1)},
      {"plain text", url, ""},
      {"empty", "", ""},
      {"one slash", "2f", ""},
  };
  for (const auto& [name, argument, address] : kCases) {
    SCOPED_TRACE(name);
    UpdateRun run;
    const Outcome outcome = run.run({argument, "7.2.0.1"});
    EXPECT_EQ(outcome.ended, "exit 2");
    EXPECT_THAT(outcome.log, Contains("NFY Udpate server : " + address));
    EXPECT_THAT(outcome.log,
                Contains(HasSubstr("ERR Request " + address + "/agent_setup_def.json failed : [")));
  }
}

TEST(Arguments, AddressTooLongPrintsTheUsage) {
  QD_NEEDS_ROOT();
  const std::string start = "http://127.0.0.1:9/";
  for (const std::size_t size : {4096U, 5000U}) {
    SCOPED_TRACE(size);
    UpdateRun run;
    const std::string hex = hexAddress(start + std::string(size - start.size(), 'a'));
    const Outcome outcome = run.run({"-D", hex, "7.2.0.1"});
    EXPECT_EQ(outcome.ended, "exit 1");
    EXPECT_THAT(outcome.log, ElementsAre("EXCP:ERR NET: convertHexStrNullToBin: Buffer too small"));
    EXPECT_EQ(outcome.out, content(run.temp("agent_upd.log")) + kUsage);
  }
}

TEST(Arguments, EchoIsTheLog) {
  QD_NEEDS_ROOT();
  for (const char* option : {"", "-D", "-S"}) {
    SCOPED_TRACE(option);
    LinuxUpdate update;
    const Outcome outcome = update.go(option);
    EXPECT_EQ(outcome.ended, "exit 0");
    EXPECT_EQ(outcome.out, *option == '\0' ? "" : content(update.run.temp("agent_upd.log")));
  }
}

TEST(Arguments, NoTemporaryFolderIsToldOnStandardOutput) {
  LinuxUpdate update;
  update.run.env["TMPDIR"] = update.run.side("missing");
  const Outcome outcome = update.go();
  EXPECT_EQ(outcome.ended, "exit 0");
  EXPECT_THAT(outcome.out, HasSubstr("temp_directory_path"));
  EXPECT_THAT(outcome.out, Not(EndsWith("\n")));
  EXPECT_EQ(update.server.connections(), 0);
}

// --- what is inherited, and what the commands get

struct Start {
  std::string name;
  std::function<void(UpdateRun&)> arrange;
  std::string probe;  ///< shell text of the installing command; its output is compared
  std::string expected;
};

/// Prints the bits of `signals` in a signal mask of /proc, of the command or of the program.
/// Whoever starts a command blocks signals until it runs, so bits that are set are looked at again
/// for up to 10 s.
std::string maskProbe(const char* process, const char* line, const std::vector<int>& signals) {
  unsigned long long bits = 0;
  for (const int number : signals) bits |= 1ULL << (number - 1);
  return std::string(
             "read -r _ _ _ _ group _ < /proc/$$/stat; for n in $(seq 200); do mask=$((0x$(sed -n "
             "'s/") +
         line + ":[[:space:]]*//p' /proc/" + process + "/status) & " + std::to_string(bits) +
         ")); [ $mask = 0 ] && break; sleep 0.05; done; echo $mask";
}

std::vector<Start> starts() {
  std::vector<Start> rows = {
      {"SIGCHLD ignored", [](UpdateRun& run) { run.inChild = [] { ::signal(SIGCHLD, SIG_IGN); }; },
       maskProbe("$$", "SigIgn", {SIGCHLD, SIGPIPE}), "0\n"},
      {"SIGPIPE ignored", [](UpdateRun& run) { run.inChild = [] { ::signal(SIGPIPE, SIG_IGN); }; },
       maskProbe("$$", "SigIgn", {SIGCHLD, SIGPIPE}), "0\n"},
      {"signals blocked",
       [](UpdateRun& run) {
         run.inChild = [] {
           sigset_t all;
           ::sigfillset(&all);
           ::sigprocmask(SIG_SETMASK, &all, nullptr);
         };
       },
       maskProbe("$group", "SigBlk", {SIGHUP, SIGINT, SIGTERM, SIGPIPE}), "0\n"},
      {"no umask", [](UpdateRun& run) { run.inChild = [] { ::umask(0); }; },
       ": > \"$calls.new\"; stat -c %a \"$calls.new\"", "644\n"},
      {"strict umask", [](UpdateRun& run) { run.inChild = [] { ::umask(077); }; },
       ": > \"$calls.new\"; stat -c %a \"$calls.new\"", "600\n"},
      {"PATH without the system's", [](UpdateRun& run) { run.env["PATH"] = run.side("bin"); },
       "echo \"$PATH\"", "{bin}:/usr/sbin:/usr/bin:/sbin:/bin\n"},
      {"PATH without sbin",
       [](UpdateRun& run) { run.env["PATH"] = run.side("bin") + ":/bin:/usr/sbin2:/usr/bin"; },
       "echo \"$PATH\"", "{bin}:/bin:/usr/sbin2:/usr/bin:/usr/sbin:/sbin\n"},
      {"no frontend chosen", [](UpdateRun&) {}, "echo \"$DEBIAN_FRONTEND\"", "noninteractive\n"},
      {"frontend chosen", [](UpdateRun& run) { run.env["DEBIAN_FRONTEND"] = "readline"; },
       "echo \"$DEBIAN_FRONTEND\"", "readline\n"},
      {"a shell's start-up files",
       [](UpdateRun& run) { run.env["ENV"] = run.env["BASH_ENV"] = "/nowhere"; },
       "echo \"${ENV-none} ${BASH_ENV-none}\"", "none none\n"},
      {"group of its own", [](UpdateRun&) {},
       "read -r _ _ _ _ group _ < /proc/$$/stat; echo $group", "{pid}\n"},
      {"nothing of ours is passed on",
       [](UpdateRun& run) { run.inChild = [] { ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC); }; },
       "ls /proc/self/fd", "0\n1\n2\n3\n"},
  };
  for (unsigned closed = 1; closed < 8; ++closed) {
    rows.push_back({"descriptors closed: " + std::to_string(closed),
                    [closed](UpdateRun& run) {
                      run.inChild = [closed] {
                        for (int fd = 0; fd < 3; ++fd) {
                          if ((closed >> fd & 1U) != 0) ::close(fd);
                        }
                      };
                    },
                    "for n in 0 1 2; do [ -e /proc/$$/fd/$n ] || echo no $n; done; echo noise >&2; "
                    "echo all there",
                    "all there\n"});
  }
  return rows;
}

TEST(Start, IsMadeGoodWhateverWasInherited) {
  QD_NEEDS_ROOT();
  for (const auto& [name, arrange, probe, expected] : starts()) {
    SCOPED_TRACE(name);
    LinuxUpdate update;
    arrange(update.run);
    update.run.command("systemctl", "echo noise; echo noise >&2");
    update.run.command("dpkg", "{ " + probe + "; } > \"$calls.seen\"");
    const Outcome outcome = update.go("-D");
    expectUpdated(outcome, update.run);
    EXPECT_EQ(outcome.log.back(), "NFY Agent Update done");
    EXPECT_EQ(std::count(outcome.log.begin(), outcome.log.end(), "NFY Check Update"), 1);
    EXPECT_THAT(outcome.log, Not(Contains(HasSubstr("noise"))));
    EXPECT_EQ(content(update.run.side("calls.seen")),
              fillIn(expected, {{"{bin}", update.run.side("bin")},
                                {"{pid}", std::to_string(update.run.pid())}}));
  }
}

TEST(Start, TerminalOfTheForegroundIsNotWaitedFor) {
  QD_NEEDS_ROOT();
  int master = -1;
  int slave = -1;
  ASSERT_EQ(::openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const ScopedFd masterFd(master);
  const ScopedFd slaveFd(slave);
  LinuxUpdate update;
  update.run.timeoutSeconds = 20;
  // A shell leads the session and the foreground; the program's own group is in the background.
  update.run.launcher = {"/bin/sh", "-c", "\"$@\"; exit $?", "sh"};
  update.run.inChild = [slave] {
    ::setsid();
    ::ioctl(slave, TIOCSCTTY, 0);
    ::dup2(slave, 0);
  };
  update.run.command("dpkg", "head -n 1");
  expectUpdated(update.go(), update.run);
}

TEST(Start, EchoThatNobodyReadsDoesNoHarm) {
  QD_NEEDS_ROOT();
  for (const bool full : {false, true}) {
    SCOPED_TRACE(full ? "disk full" : "reader gone");
    LinuxUpdate update;
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    const ScopedFd pipe(ends[1]);
    const ScopedFd device(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    update.run.stdoutFd = full ? device.get() : pipe.get();
    update.run.command("dpkg", "echo noise; exit 0");
    update.run.command("systemctl", "echo noise; exit 0");
    const Outcome outcome = update.go("-D");
    expectUpdated(outcome, update.run);
    EXPECT_EQ(outcome.log.back(), "NFY Agent Update done");
    EXPECT_THAT(outcome.log, Not(Contains(HasSubstr("ERR Fail to"))));
  }
}

// --- signals

TEST(Signals, BetweenStopAndStartLeaveTheAgentRunning) {
  QD_NEEDS_ROOT();
  const std::string ours = "read -r _ _ _ _ group _ < /proc/$$/stat; kill -{signal} $group";
  const std::string group = "kill -{signal} 0";  // the command itself goes, too
  // While it waits for a command, system() ignores SIGINT.
  const struct {
    const char* signal;
    std::string how;
    const char* during;
    const char* ended;
  } kCases[] = {
      {"TERM", ours, "systemctl", "signal 15"}, {"TERM", ours, "dpkg", "signal 15"},
      {"HUP", ours, "systemctl", "signal 1"},   {"HUP", ours, "dpkg", "signal 1"},
      {"PIPE", ours, "systemctl", "exit 0"},    {"PIPE", ours, "dpkg", "exit 0"},
      {"TERM", group, "dpkg", "signal 15"},     {"INT", group, "dpkg", "exit 0"},
      {"ALRM", ours, "dpkg", "signal 14"},      {"USR1", ours, "dpkg", "signal 10"},
      {"USR2", ours, "systemctl", "signal 12"}, {"XCPU", ours, "dpkg", "signal 24"},
      {"XFSZ", ours, "dpkg", "signal 25"},
  };
  for (const auto& [signal, how, during, ended] : kCases) {
    SCOPED_TRACE(std::string(signal) + " during " + during + ": " + how);
    LinuxUpdate update;
    std::string body = fillIn(how, {{"{signal}", signal}});
    if (std::string(during) == "systemctl") body = "[ \"$1\" = start ] || { " + body + "; }";
    update.run.command(during, body);
    const Outcome outcome = update.go();
    EXPECT_THAT(outcome.calls, ElementsAre("systemctl stop qdagent", "dpkg -i " + update.package(),
                                           "systemctl start qdagent"));
    EXPECT_THAT(outcome.log, Contains("NFY Agent Started"));
    EXPECT_EQ(outcome.ended, ended);
  }
}

TEST(Signals, BeforeTheStopEndTheRunAtOnce) {
  QD_NEEDS_ROOT();
  const UpdateRun* running = nullptr;
  LinuxUpdate update(
      {{"GET /linux/{A}/setup.deb",
        {Answer{.body = goodPackage(), .paced = [&](int) { ::kill(running->pid(), SIGTERM); }}}}});
  running = &update.run;
  const Outcome outcome = update.go();
  EXPECT_EQ(outcome.ended, "signal 15");
  EXPECT_THAT(outcome.calls, IsEmpty());
}

// --- the agent's own unit

TEST(AgentUnit, IsNotStoppedByWhomItWouldTakeAlong) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  const std::string groups = update.run.side("groups");
  writeFile(groups, "0::/system.slice/qdagent.service\n");
  update.run.command("busctl", "exit 1");
  update.run.inChild = [&] {
    const std::string own = "/proc/" + std::to_string(::getpid()) + "/cgroup";
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
        ::mount(groups.c_str(), own.c_str(), "", MS_BIND, "") != 0 ||
        ::mount("tmpfs", "/sys/fs/cgroup", "tmpfs", 0, "") != 0) {
      ::_exit(99);
    }
  };
  const Outcome outcome = update.go();
  if (outcome.ended == "exit 99") GTEST_SKIP() << "needs a mount namespace";
  EXPECT_EQ(outcome.ended, "exit 11");
  EXPECT_EQ(outcome.log.front(), "WRN Cannot leave the agent's unit : busctl ended with 1");
  EXPECT_EQ(outcome.log.back(), "ERR Cannot stop the agent from within its own unit");
  EXPECT_THAT(outcome.calls, ElementsAre(HasSubstr("busctl")));
}

// --- where the log is

TEST(Log, IsInTheDataFolderOfTheInstance) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give the run an /etc of its own";
  if (std::string(QD_CONF_DIR).rfind("/etc/", 0) != 0) GTEST_SKIP() << "built for " QD_CONF_DIR;
  const std::string tooLong(1024, 'x');
  const struct {
    const char* name;
    const char* instance;  // null: unset
    const char* folder;    // that has the data folder's name, behind the configuration folder's
    const char* log;       // in the run's own folder
  } kCases[] = {
      {"no instance", nullptr, "", "data/UpdLogs/agent_upd.log"},
      {"empty instance", "", "", "data/UpdLogs/agent_upd.log"},
      {"instance", "a2", ".a2", "data/UpdLogs/agent_upd.log"},
      {"other instance", "a3", ".a2", "tmp/agent_upd.log"},
      {"instance elsewhere", "x/../../conf", "", "tmp/agent_upd.log"},
      {"instance too long to be read", tooLong.c_str(), "", "data/UpdLogs/agent_upd.log"},
  };
  for (const auto& [name, instance, folder, log] : kCases) {
    SCOPED_TRACE(name);
    UpdateRun run;
    run.env.erase("QD_AGENT_INSTANCE");
    if (instance != nullptr) run.env["QD_AGENT_INSTANCE"] = instance;
    const std::string data = run.side("data");
    fs::create_directory(data);
    const std::string configuration = std::string(QD_CONF_DIR) + folder;
    run.inChild = [&] {
      if (::unshare(CLONE_NEWNS) != 0 || ::mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
          ::mount("tmpfs", "/etc", "tmpfs", 0, "") != 0) {
        ::_exit(99);
      }
      fs::create_directories(configuration);
      fs::create_directories(std::string(QD_CONF_DIR) + ".x");
      writeFile(configuration + "/dbdir.cfg", data);
    };
    const Outcome outcome = run.run({"", "none"});
    if (outcome.ended == "exit 99") GTEST_SKIP() << "needs a mount namespace";
    EXPECT_EQ(outcome.ended, "exit 4");
    EXPECT_THAT(logRecords(content(run.side(log))), Contains("NFY Check Update"));
  }
}

TEST(Log, IsAppendedTo) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  update.go();
  const std::string first = content(update.run.temp("agent_upd.log"));
  update.go();  // held by the first run's lock
  const std::string both = content(update.run.temp("agent_upd.log"));
  EXPECT_EQ(both.substr(0, first.size()), first);
  EXPECT_EQ(logRecords(both.substr(first.size())).size(), 5U);
}

}  // namespace
