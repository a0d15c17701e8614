// The temporary folder is everybody's: what another user puts there must not be followed, written
// to, waited for or installed, and a run that dies there must not block those after it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "Scenario.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr const char* kCanaryText = "1\nthe canary\n";  // as a lock it would be an old one

/// What a neighbour may put at a name, given a file that must stay as it is.
struct Obstacle {
  const char* name;
  void (*place)(const std::string& path, const std::string& canary);
};

const Obstacle kObstacles[] = {
    {"link",
     [](const std::string& path, const std::string& canary) { fs::create_symlink(canary, path); }},
    {"dangling link", [](const std::string& path,
                         const std::string& canary) { fs::create_symlink(canary + ".new", path); }},
    {"link to a folder",
     [](const std::string& path, const std::string& canary) {
       fs::create_symlink(fs::path(canary).parent_path(), path);
     }},
    {"link to itself",
     [](const std::string& path, const std::string&) { fs::create_symlink(path, path); }},
    {"link to a device that never ends",
     [](const std::string& path, const std::string&) { fs::create_symlink("/dev/zero", path); }},
    {"hard link", [](const std::string& path,
                     const std::string& canary) { fs::create_hard_link(canary, path); }},
    {"fifo", [](const std::string& path, const std::string&) { ::mkfifo(path.c_str(), 0666); }},
    {"socket", [](const std::string& path,
                  const std::string&) { ::mknod(path.c_str(), S_IFSOCK | 0666, 0); }},
    {"file of another user",
     [](const std::string& path, const std::string&) {
       writeFile(path, kCanaryText);
       if (::geteuid() != 0 || ::chown(path.c_str(), kNobody, kNobody) != 0) fs::remove(path);
     }},
    {"file that others may write to",
     [](const std::string& path, const std::string&) {
       writeFile(path, kCanaryText);
       fs::permissions(path, fs::perms(0666));
     }},
};

constexpr struct {
  const char* name;
  mode_t mode;
} kOurFiles[] = {{"agent_upd.log", 0600}, {"upgrade_ovt.lock", 0644}, {"setup.deb", 0600}};

struct stat statOf(const std::string& path) {
  struct stat info {};
  ::lstat(path.c_str(), &info);
  return info;
}

void expectOurOwn(const std::string& path, mode_t mode) {
  const struct stat info = statOf(path);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(info.st_uid, ::geteuid());
  EXPECT_EQ(info.st_nlink, 1U);
  EXPECT_EQ(info.st_mode & 07777, mode);
}

TEST(SharedFolder, WhatIsInTheWayIsNeitherFollowedNorUsed) {
  QD_NEEDS_ROOT();
  for (const auto& [target, mode] : kOurFiles) {
    for (const auto& [name, place] : kObstacles) {
      SCOPED_TRACE(std::string(name) + " at " + target);
      LinuxUpdate update;
      update.run.timeoutSeconds = 20;
      const std::string canary = update.run.side("canary");
      writeFile(canary, kCanaryText);
      const struct stat before = statOf(canary);
      place(update.run.temp(target), canary);
      // A neighbour who keeps the file open could change it after it was verified.
      const struct stat kept = statOf(update.run.temp(target));
      const ScopedFd held(S_ISREG(kept.st_mode) ? ::open(update.run.temp(target).c_str(), O_RDWR)
                                                : -1);

      expectUpdated(update.go(), update.run);

      // A log of our own is kept, out of others' reach from now on.
      const bool keptLog = target == kOurFiles[0].name && (kept.st_mode & 0777) == 0666 &&
                           kept.st_uid == ::geteuid() && held && kept.st_nlink == 1;
      expectOurOwn(update.run.temp(target), keptLog ? 0644 : mode);
      EXPECT_EQ(held && statOf(update.run.temp(target)).st_ino == kept.st_ino, keptLog);
      EXPECT_EQ(content(canary), kCanaryText);
      EXPECT_EQ(statOf(canary).st_mode, before.st_mode);
      EXPECT_EQ(statOf(canary).st_mtim.tv_nsec, before.st_mtim.tv_nsec);
      EXPECT_FALSE(fs::exists(canary + ".new"));
    }
  }
}

TEST(SharedFolder, NewFilesAreOurOwn) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  update.run.inChild = [] { ::umask(0); };
  expectUpdated(update.go(), update.run);
  for (const auto& [name, mode] : kOurFiles) {
    SCOPED_TRACE(name);
    expectOurOwn(update.run.temp(name), mode);
  }
}

TEST(SharedFolder, FolderInTheWayCostsThatFileOnly) {
  QD_NEEDS_ROOT();
  constexpr struct {
    const char* name;
    const char* ended;
    const char* echoed;
  } kCases[] = {
      {"agent_upd.log", "exit 0", "NFY Agent Update done"},
      {"upgrade_ovt.lock", "exit 0", "ERR Failed to open lock file"},
      {"setup.deb", "exit 2", "ERR 'Fail to download setup file: [-1]"},
  };
  for (const auto& [name, ended, echoed] : kCases) {
    SCOPED_TRACE(name);
    LinuxUpdate update;
    fs::create_directories(update.run.temp(name) + "/inner");
    const Outcome outcome = update.go("-D");
    EXPECT_EQ(outcome.ended, ended);
    EXPECT_THAT(logRecords(outcome.out), Contains(echoed));
    EXPECT_TRUE(fs::is_directory(update.run.temp(name) + "/inner"));
  }
}

TEST(SharedFolder, BackupOfTheLogIsNotFollowed) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  const std::string canary = update.run.side("canary");
  writeFile(canary, kCanaryText);
  writeFile(update.run.temp("agent_upd.log"), std::string(0x500000, 'x'));
  fs::permissions(update.run.temp("agent_upd.log"), fs::perms(0600));
  fs::create_symlink(canary, update.run.temp("agent_upd.bak"));
  const Outcome outcome = update.go();
  expectUpdated(outcome, update.run);
  EXPECT_EQ(outcome.log.front(), "NFY Check Update");
  EXPECT_EQ(content(canary), kCanaryText);
  EXPECT_EQ(fs::file_size(update.run.temp("agent_upd.bak")), 0x500000U);
}

// --- the verified package is the installed one

struct Swap {
  const char* name;
  void (*act)(const std::string& package);
};

const Swap kSwaps[] = {
    {"another file",
     [](const std::string& package) {
       writeFile(package + ".new", "evil");
       fs::rename(package + ".new", package);
     }},
    {"another file of the same size and time",
     [](const std::string& package) {
       std::string evil = content(package);
       evil[0] = static_cast<char>(evil[0] + 1);
       writeFile(package + ".new", evil);
       fs::last_write_time(package + ".new", fs::last_write_time(package));
       fs::rename(package + ".new", package);
     }},
    {"link to another file",
     [](const std::string& package) {
       writeFile(package + ".new", "evil");
       fs::remove(package);
       fs::create_symlink(package + ".new", package);
     }},
    {"changed in place",
     [](const std::string& package) {
       std::string evil = content(package);
       evil[0] = static_cast<char>(evil[0] + 1);
       writeFile(package, evil);
     }},
    {"longer", [](const std::string& package) { fs::resize_file(package, 30000); }},
    {"removed", [](const std::string& package) { fs::remove(package); }},
};

TEST(VerifiedPackage, SwappedAfterItsCheckIsNotInstalled) {
  QD_NEEDS_ROOT();
  for (const char* moment : {"NFY Setup downloaded", "NFY Computed md5 is"}) {
    for (const auto& [name, act] : kSwaps) {
      SCOPED_TRACE(std::string(name) + " at " + moment);
      LinuxUpdate update;
      update.run.command("dpkg", R"(cp "$2" "$calls.installed")");
      LineGate gate;
      update.run.stdoutFd = gate.writeEnd();
      update.run.start(update.args("-D"));
      EXPECT_TRUE(gate.holdAt(update.run, moment));
      ::usleep(20000);  // the clock of files has coarse ticks
      act(update.package());
      gate.release();
      const Outcome outcome = update.run.finish();
      EXPECT_THAT(
          outcome.log,
          Contains(HasSubstr("WRN Re-download setup file because current one has a wrong hash: ")));
      // The next attempt brings the good package.
      expectUpdated(outcome, update.run);
      EXPECT_TRUE(content(update.run.side("calls.installed")) == goodPackage());
    }
  }
}

/// Puts everything in the way that another user can, over and over. Plain system calls only.
[[noreturn]] void disturb(const std::vector<std::string>& names, const std::string& canary) {
  const std::string own = names.front() + ".own";
  for (;;) {
    for (const std::string& name : names) {
      const int fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_NONBLOCK, 0666);
      if (fd >= 0 && ::write(fd, "evil", 4) == 4) ::fchmod(fd, 0644);
      if (fd >= 0) ::close(fd);
      ::unlink(name.c_str());
      if (::symlink(canary.c_str(), own.c_str()) == 0) ::rename(own.c_str(), name.c_str());
      if (::link(name.c_str(), own.c_str()) == 0) ::rename(own.c_str(), name.c_str());
      ::mkfifo(name.c_str(), 0666);
      ::unlink(name.c_str());
      ::unlink(own.c_str());
    }
  }
}

TEST(VerifiedPackage, IsInstalledOrNothingIsWhateverAnotherUserDoes) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to be another user, too";
  constexpr int kRuns = 12;
  LinuxUpdate update;
  const std::string canary = update.run.side("canary");
  writeFile(canary, kCanaryText);
  writeFile(update.run.side("good"), goodPackage());
  update.run.command("dpkg",
                     "cmp \"$2\" '" + update.run.side("good") + "' || echo evil >> \"$calls\"");
  std::vector<std::string> names;
  for (const auto& [name, mode] : kOurFiles) names.push_back(update.run.temp(name));
  const pid_t neighbour = ::fork();
  if (neighbour == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(1);
    disturb(names, canary);
  }
  for (int run = 0; run < kRuns; ++run) {
    const Outcome outcome = update.go();
    EXPECT_THAT(outcome.ended, testing::AnyOf("exit 0", "exit 2", "exit 6", "exit 7", "exit 11"));
    EXPECT_THAT(outcome.calls, Not(Contains("evil")));
    EXPECT_EQ(content(canary), kCanaryText);
    ::unlink(update.run.temp("upgrade_ovt.lock").c_str());
  }
  ::kill(neighbour, SIGKILL);
  ::waitpid(neighbour, nullptr, 0);
}

TEST(VerifiedPackage, IsLockedUntilItIsInstalled) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  update.run.command("dpkg", R"(flock -n "$2" true && echo unlocked >> "$calls")");
  update.run.command(
      "systemctl",
      R"([ "$1" = start ] || flock -n "$tmp/setup.deb" true && echo free >> "$calls"; true)");
  const Outcome outcome = update.go();
  EXPECT_THAT(outcome.calls, Not(Contains("unlocked")));
}

TEST(VerifiedPackage, LockedByAnotherRunIsLeftToIt) {
  QD_NEEDS_ROOT();
  LinuxUpdate update;
  writeFile(update.package(), "of the other run");
  fs::permissions(update.package(), fs::perms(0600));
  const ScopedFd other(::open(update.package().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  const Outcome outcome = update.go();
  EXPECT_EQ(outcome.ended, "exit 2");
  EXPECT_THAT(outcome.log, Contains("ERR 'Fail to download setup file: [-1]"));
  EXPECT_THAT(outcome.calls, IsEmpty());
  EXPECT_EQ(content(update.package()), "of the other run");
}

// --- the lock is written whole

TEST(Lock, IsNeverLeftEmpty) {
  QD_NEEDS_ROOT();
  constexpr struct {
    const char* name;
    bool killed;  // at its first write to a file; else every write fails as on a full disk
    const char* before;
    const char* after;  // null: no lock
    const char* ended;
  } kCases[] = {
      {"killed with no lock before", true, nullptr, nullptr, "signal 25"},
      {"killed with a stale lock before", true, "1\n", "1\n", "signal 25"},
      {"disk full with no lock before", false, nullptr, nullptr, "exit 2"},
      {"disk full with a stale lock before", false, "1\n", nullptr, "exit 2"},
  };
  for (const auto& [name, killed, before, after, ended] : kCases) {
    SCOPED_TRACE(name);
    LinuxUpdate update;
    const std::string lock = update.run.temp("upgrade_ovt.lock");
    if (before != nullptr) writeFile(lock, before);
    fs::create_directory(update.run.temp("agent_upd.log"));  // no log: the lock is written first
    update.run.inChild = [killed = killed] {
      const rlimit none{0, 0};
      ::setrlimit(RLIMIT_FSIZE, &none);
      ::signal(SIGXFSZ, killed ? SIG_DFL : SIG_IGN);
    };
    const Outcome outcome = update.go();
    EXPECT_EQ(outcome.ended, ended);
    EXPECT_EQ(fs::exists(lock), after != nullptr);
    EXPECT_EQ(content(lock), after != nullptr ? after : "");

    // The next run is not blocked by what this one left.
    update.run.inChild = nullptr;
    expectUpdated(update.go(), update.run);
    EXPECT_THAT(content(lock), testing::MatchesRegex("[0-9]{13}\n"));
  }
}

}  // namespace
