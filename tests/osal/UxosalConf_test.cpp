#include "base/osal/MacOS/UxosalConf.h"

#include <sys/file.h>
#include <sys/stat.h>

#include "FilesTest.h"
#include "PosixFaults.h"
#include "osal/osal_scoped.h"

namespace {

using namespace std::string_literals;

class UxosalConfTest : public FilesTest {
 protected:
  UxosalConfTest() : FilesTest("OSAL:2;") {}
};

TEST_F(UxosalConfTest, TheValueEndsAtTheFirstSeparatorAndMustFit) {
  constexpr unsigned int kAmple = 1024;
  const std::string tooShort = "-1 EL2 osal_getconfstr -> buffer too short";
  const struct {
    std::string file;
    unsigned int size;
    std::string value;
    std::string said = "0";
  } kCases[] = {{"", kAmple, ""},
                {"abc\n", kAmple, "abc"},
                {"abc\tdef", kAmple, "abc"},
                {"abc\r\n", kAmple, "abc"},
                {"abc\0def"s, kAmple, "abc"},
                {"\nabc", kAmple, ""},
                {" a b/c ", kAmple, " a b/c "},
                {"\xC3\xA9\v\f\x1F", kAmple, "\xC3\xA9\v\f\x1F"},
                {"abc", 4, "abc"},
                {"abc\nd", 4, "abc"},
                {"\0abc"s, 4, ""},
                {"abcd", 4, "", tooShort},
                {"abcd\n", 4, "", tooShort},
                {"abc", 1, "", tooShort},
                {std::string(65534, 'x'), 100000, std::string(65534, 'x')},
                {std::string(65535, 'x'), 65536, "", tooShort}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.file.substr(0, 80));
    writeFile(path, c.file);
    std::string value(c.size + 1, '?');
    EXPECT_EQ(said(osal_getconfstr(path.c_str(), value.data(), c.size)), c.said);
    EXPECT_EQ(std::string(value.c_str()), c.value);
    EXPECT_EQ(value.back(), '?');
  }
  char value[] = "dirty";
  EXPECT_EQ(osal_getconfstr(path.c_str(), value, 0), -1);
  EXPECT_STREQ(value, "dirty");
  EXPECT_EQ(osal_getconfstr(path.c_str(), nullptr, 10), -1);
}

TEST_F(UxosalConfTest, AMissingFileIsAnEmptyValueOthersFail) {
  fs::create_symlink("loop", folder / "loop");
  const std::pair<std::string, std::string> kCases[] = {
      {missing, "0"},
      {folder / "loop", "-1 ERR osal_exists : cannot check file " + code(ELOOP) +
                            " at path \"~/loop\" | ERR osal_getconfstr -> osal_exists failed"},
      {folder.path(),
       "-1 ERR Cannot read (21) from file (fd) | ERR osal_getconfstr -> osal_read failed"},
  };
  for (const auto& [where, expected] : kCases) {
    char value[] = "dirty";
    EXPECT_EQ(said(osal_getconfstr(where.c_str(), value, sizeof value)), expected);
    EXPECT_STREQ(value, "");
  }
}

TEST_F(UxosalConfTest, AStoredValueReplacesTheFormerOneAndItsPermissions) {
  constexpr struct {
    bool ownerOnly;
    bool allReadWrite;
    int created;  // with umask 022
    int existing;
  } kCases[] = {{false, false, 0755, 0640},
                {true, false, 0600, 0600},
                {false, true, 0666, 0666},
                {true, true, 0666, 0666}};
  const mode_t former = ::umask(022);
  for (const auto& c : kCases) {
    fs::remove(path);
    EXPECT_EQ(said(osal_setconfstr(path.c_str(), "a long value", c.ownerOnly, c.allReadWrite)),
              "0");
    EXPECT_EQ(permissionsOf(path), c.created);
    fs::permissions(path, fs::perms(0640));
    EXPECT_EQ(said(osal_setconfstr(path.c_str(), "x", c.ownerOnly, c.allReadWrite)), "0");
    EXPECT_EQ(permissionsOf(path), c.existing);
    EXPECT_EQ(content(path), "x");
  }
  ::umask(former);
}

TEST_F(UxosalConfTest, FailuresToStore) {
  EXPECT_EQ(said(osal_setconfstr((missing + "/x").c_str(), "v", false, false)),
            "-1 ERR Cannot open (2) file \"~/missing/x\" | "
            "ERR osal_setconfstr -> osal_open failed");
  EXPECT_EQ(said(osal_setconfstr("/dev/null", "v", false, false)),
            "-1 ERR Cannot truncate (22) file (fd) to size 0 | "
            "ERR osal_setconfstr -> osal_truncate failed");
  writeFile(path, "old");
  EXPECT_EQ(said(osal_setconfstr(path.c_str(), nullptr, false, false)), "-1 ERR Arguments error");
  EXPECT_EQ(content(path), "old");
}

#if defined(__linux__)
TEST_F(UxosalConfTest, APermissionThatCannotBeChangedIsAFailure) {
  // This file takes the thread's name and refuses every other: no truncation, no permission bits.
  constexpr char kThreadName[] = "/proc/thread-self/comm";
  const std::string name = content(kThreadName);
  const std::string failure = "-1 ERR osal_setconfstr -> chmod failed (1)";
  EXPECT_EQ(said(osal_setconfstr(kThreadName, "before", true, false)), failure);
  EXPECT_EQ(content(kThreadName), name);  // what must not be readable was not written
  EXPECT_EQ(said(osal_setconfstr(kThreadName, "after", false, true)), failure);
  EXPECT_EQ(content(kThreadName), "after\n");
  EXPECT_EQ(osal_setconfstr(kThreadName, name.substr(0, name.size() - 1).c_str(), false, false), 0);
}

TEST_F(UxosalConfTest, AFailedCloseIsNoFailure) {
  writeFile(path, "abc\n");
  char value[10] = "";
  const auto closing = [](const std::string& function) {
    return "0 EL2 Cannot close (5) file (fd) | EL2 " + function + " -> osal_close failed";
  };
  {
    const PosixFault fault("close", EIO);
    EXPECT_EQ(said(osal_getconfstr(path.c_str(), value, 10)), closing("osal_getconfstr"));
  }
  EXPECT_STREQ(value, "abc");
  const PosixFault fault("close", EIO);
  EXPECT_EQ(said(osal_setconfstr(path.c_str(), "def", false, true)), closing("osal_setconfstr"));
  EXPECT_EQ(content(path), "def");
  EXPECT_EQ(permissionsOf(path), 0666);
}
#endif

/// The temporary folder is one for the machine: tests take turns, and remove it when they made it.
class UxosalConfTmpTest : public UxosalConfTest {
 protected:
  static constexpr char kFolder[] = "/tmp/.quietstore\r";

  UxosalConfTmpTest() : turn_(::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    ::flock(turn_.get(), LOCK_EX);
    wasThere = fs::exists(fs::symlink_status(kFolder));
  }
  ~UxosalConfTmpTest() override {
    std::error_code ignored;
    fs::remove(file, ignored);
    if (!wasThere) fs::remove(kFolder, ignored);
  }

  std::string store(const std::string& as) { return said(osal_setconfstrtmp(as.c_str(), "value")); }

  const std::string name = text("qdtest.", ::getpid());
  const std::string file = kFolder + ("/" + name);
  bool wasThere = false;

 private:
  ScopedFd turn_;
};

TEST_F(UxosalConfTmpTest, StoresInTheTemporaryFolderAndFollowsNoLinkThere) {
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "a first value"), 0);
  EXPECT_EQ(store(name), "0");
  EXPECT_EQ(content(file), "value");
  fs::remove(file);
  writeFile(path, "precious");
  fs::create_symlink(path, file);
  EXPECT_EQ(store(name), "0");
  EXPECT_EQ(content(path), "precious");
  EXPECT_EQ(content(file), "value");
}

TEST_F(UxosalConfTmpTest, RefusesNamesBeforeAnyFileIsTouched) {
  const std::size_t room = 1024 - sizeof kFolder;  // for a name, behind the slash
  const std::string outside = folder / "outside";
  for (const std::string& wrong :
       {std::string(room + 1, 'x'), std::string(5000, 'x'), "../.." + outside, "sub/name"s}) {
    EXPECT_EQ(store(wrong), text("-1 ERR osal_setconfstrtmp -> snprintf failed (lg=",
                                 sizeof kFolder + wrong.size(), ")"));
  }
  EXPECT_FALSE(fs::exists(outside));
  for (const std::string& noFile : {std::string(room, 'x'), ""s, "."s, ".."s}) {
    const std::string failure = store(noFile);
    EXPECT_TRUE(failure.starts_with("-1 ERR Cannot open ("));
    EXPECT_TRUE(failure.ends_with(" | ERR osal_setconfstrtmp -> osal_open failed"));
  }
  EXPECT_EQ(said(osal_setconfstrtmp(nullptr, "value")), "-1 ERR Arguments error");
  EXPECT_EQ(said(osal_setconfstrtmp(name.c_str(), nullptr)), "-1 ERR Arguments error");
}

TEST_F(UxosalConfTmpTest, WhatIsNoFolderItselfIsAFailureToMakeIt) {
  if (wasThere) GTEST_SKIP() << "the folder exists on this machine";
  const std::string failure = "-1 ERR osal_setconfstrtmp -> osal_mkdir failed";
  fs::create_directory_symlink(folder.path(), kFolder);
  EXPECT_EQ(store(name), failure);
  fs::remove(kFolder);
  writeFile(kFolder, "");
  EXPECT_EQ(store(name), failure);
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

#if defined(__linux__)
TEST_F(UxosalConfTmpTest, AFailedCloseIsNoFailureEither) {
  const PosixFault fault("close", EIO, 1);  // the folder is closed before the file
  EXPECT_TRUE(store(name).ends_with("| EL2 osal_setconfstrtmp -> osal_close failed"));
  EXPECT_EQ(content(file), "value");
}
#endif

}  // namespace
