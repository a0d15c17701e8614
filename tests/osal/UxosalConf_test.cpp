#include "base/osal/MacOS/UxosalConf.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "Files.h"
#include "LogCapture.h"
#include "TempFolder.h"
#include "Text.h"
#include "logging/QDLog.h"
#include "osal/osal_scoped.h"

#if defined(__linux__)
#include "PosixFaults.h"
#endif

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

fs::perms permissions(const std::string& path) { return fs::status(path).permissions(); }

class UxosalConfTest : public testing::Test {
 protected:
  /// The records that the configuration strings themselves make.
  std::vector<std::string> ownLines() {
    std::vector<std::string> lines = log.lines();
    std::erase_if(lines, [](const std::string& line) {
      return line.find(" osal_getconfstr") == std::string::npos &&
             line.find(" osal_setconfstr") == std::string::npos;
    });
    log.clear();
    return lines;
  }

  const TempFolder folder;
  const std::string path = folder / "dbdir.cfg";
  const std::ptrdiff_t before = openDescriptors();
  LogCapture log{QDLOG_OSAL, 5};
};

TEST_F(UxosalConfTest, TheValueEndsAtTheFirstSeparator) {
  const struct {
    std::string file;
    std::string value;
  } kCases[] = {
      {"", ""},
      {"abc", "abc"},
      {"abc\n", "abc"},
      {"abc\tdef", "abc"},
      {"abc\r\n", "abc"},
      {"abc\0def"s, "abc"},
      {"\nabc", ""},
      {" a b/c ", " a b/c "},
      {"first\nsecond\n", "first"},
      {"\xC3\xA9t\xC3\xA9\n", "\xC3\xA9t\xC3\xA9"},
      {"a\vb\fc\x1F", "a\vb\fc\x1F"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.file);
    writeFile(path, c.file);
    char value[1024] = "dirty";
    EXPECT_EQ(osal_getconfstr(path.c_str(), value, sizeof value), 0);
    EXPECT_EQ(value, c.value);
    EXPECT_THAT(ownLines(), IsEmpty());
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(UxosalConfTest, TheValueAndItsTerminatorMustFit) {
  const struct {
    std::string file;
    int result;
    std::string value;
  } kCases[] = {
      {"ab", 0, "ab"},     {"abc", 0, "abc"},    {"abcd", -1, ""},   {"abcde", -1, ""},
      {"abc\n", 0, "abc"}, {"abc\nd", 0, "abc"}, {"abcd\n", -1, ""}, {"abc\0"s, 0, "abc"},
      {"a\0bc"s, 0, "a"},  {"\0abc"s, 0, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.file);
    writeFile(path, c.file);
    char value[5] = "dirt";
    EXPECT_EQ(osal_getconfstr(path.c_str(), value, 4), c.result);
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(value[4], '\0');
    if (c.result == 0) {
      EXPECT_THAT(ownLines(), IsEmpty());
    } else {
      EXPECT_THAT(ownLines(), ElementsAre("OSAL:EL2 osal_getconfstr -> buffer too short"));
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(UxosalConfTest, AtMost65535BytesOfTheBufferCount) {
  const struct {
    std::size_t length;
    int result;
  } kCases[] = {{65534, 0}, {65535, -1}, {65536, -1}};
  for (const auto& c : kCases) {
    for (const unsigned int size : {65535U, 65536U, 100000U}) {
      SCOPED_TRACE(text(c.length, " in ", size));
      writeFile(path, std::string(c.length, 'x'));
      std::string value(size, '?');
      EXPECT_EQ(osal_getconfstr(path.c_str(), value.data(), size), c.result);
      EXPECT_EQ(value.find('\0'), c.result == 0 ? c.length : 0);
    }
  }
}

TEST_F(UxosalConfTest, WithoutABufferNothingIsRead) {
  writeFile(path, "abc");
  char value[] = "dirty";
  EXPECT_EQ(osal_getconfstr(path.c_str(), value, 0), -1);
  EXPECT_STREQ(value, "dirty");
  EXPECT_EQ(osal_getconfstr(path.c_str(), nullptr, 10), -1);
  EXPECT_EQ(osal_getconfstr(path.c_str(), value, 1), -1);
  EXPECT_STREQ(value, "");
}

TEST_F(UxosalConfTest, AMissingFileIsAnEmptyValue) {
  char value[] = "dirty";
  EXPECT_EQ(osal_getconfstr(path.c_str(), value, sizeof value), 0);
  EXPECT_STREQ(value, "");
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:DBG osal_exists : check file (not exists) at path " +
                                       quoted(path)));
}

TEST_F(UxosalConfTest, FailuresToRead) {
  fs::create_symlink("loop", folder / "loop");
  fs::create_directory(folder / "folder");
  const struct {
    std::string path;
    std::string cause;
    std::string message;
  } kCases[] = {
      {folder / "loop", text("osal_exists : cannot check file (", ELOOP, ") at path "),
       "osal_exists"},
      {folder / "folder", text("Cannot read (", EISDIR, ") from file ("), "osal_read"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.message);
    log.clear();
    char value[] = "dirty";
    EXPECT_EQ(osal_getconfstr(c.path.c_str(), value, sizeof value), -1);
    EXPECT_STREQ(value, "");
    EXPECT_THAT(log.lines(), Contains(testing::StartsWith("OSAL:ERR " + c.cause)));
    EXPECT_THAT(ownLines(), ElementsAre("OSAL:ERR osal_getconfstr -> " + c.message + " failed"));
  }
  char value[] = "dirty";
  EXPECT_EQ(osal_getconfstr(nullptr, value, sizeof value), -1);
  EXPECT_STREQ(value, "");
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR osal_exists : NULL arg",
                                       "OSAL:ERR osal_getconfstr -> osal_exists failed"));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(UxosalConfTest, AStoredValueReplacesTheFormerOne) {
  for (const std::string value : {"/var/some long folder", "x", "", "/var/qd\nrest"}) {
    EXPECT_EQ(osal_setconfstr(path.c_str(), value.c_str(), false, false), 0);
    EXPECT_EQ(content(path), value);
  }
  EXPECT_THAT(ownLines(), IsEmpty());
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(UxosalConfTest, PermissionsAfterStoring) {
  constexpr struct {
    bool ownerOnly;
    bool allReadWrite;
    mode_t created;  // with umask 022
    mode_t existing;
  } kCases[] = {
      {false, false, 0755, 0640},
      {true, false, 0600, 0600},
      {false, true, 0666, 0666},
      {true, true, 0666, 0666},
  };
  const mode_t former = ::umask(022);
  for (const auto& c : kCases) {
    SCOPED_TRACE(text(c.ownerOnly, c.allReadWrite));
    fs::remove(path);
    EXPECT_EQ(osal_setconfstr(path.c_str(), "secret", c.ownerOnly, c.allReadWrite), 0);
    EXPECT_EQ(permissions(path), fs::perms(c.created));
    fs::permissions(path, fs::perms(0640));
    EXPECT_EQ(osal_setconfstr(path.c_str(), "secret", c.ownerOnly, c.allReadWrite), 0);
    EXPECT_EQ(permissions(path), fs::perms(c.existing));
  }
  ::umask(former);
}

TEST_F(UxosalConfTest, FailuresToStore) {
  EXPECT_EQ(osal_setconfstr((folder / "missing/x").c_str(), "v", false, false), -1);
  EXPECT_EQ(osal_setconfstr(nullptr, "v", false, false), -1);
  EXPECT_EQ(osal_setconfstr("/dev/null", "v", false, false), -1);
  EXPECT_THAT(ownLines(), ElementsAre("OSAL:ERR osal_setconfstr -> osal_open failed",
                                      "OSAL:ERR osal_setconfstr -> osal_open failed",
                                      "OSAL:ERR osal_setconfstr -> osal_truncate failed"));
  writeFile(path, "old");
  EXPECT_EQ(osal_setconfstr(path.c_str(), nullptr, false, false), -1);
  EXPECT_EQ(content(path), "old");
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Arguments error"));
  EXPECT_EQ(openDescriptors(), before);
}

#if defined(__linux__)
// This file takes the thread's name and refuses every other: no truncation, no permission bits.
constexpr char kThreadName[] = "/proc/thread-self/comm";

TEST_F(UxosalConfTest, APermissionThatCannotBeChangedIsAFailure) {
  const std::string name = content(kThreadName);
  EXPECT_EQ(osal_setconfstr(kThreadName, "before", true, false), -1);
  EXPECT_EQ(content(kThreadName), name);  // what must not be readable was not written
  EXPECT_EQ(osal_setconfstr(kThreadName, "after", false, true), -1);
  EXPECT_EQ(content(kThreadName), "after\n");
  EXPECT_EQ(osal_setconfstr(kThreadName, name.substr(0, name.size() - 1).c_str(), false, false), 0);
  const std::string message = text("OSAL:ERR osal_setconfstr -> chmod failed (", EPERM, ")");
  EXPECT_THAT(ownLines(), ElementsAre(message, message));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(UxosalConfTest, AFailedCloseIsNoFailure) {
  writeFile(path, "abc\n");
  char value[10] = "";
  {
    const PosixFault fault("close", EIO);
    EXPECT_EQ(osal_getconfstr(path.c_str(), value, sizeof value), 0);
  }
  {
    const PosixFault fault("close", EIO);
    EXPECT_EQ(osal_setconfstr(path.c_str(), "def", false, true), 0);
  }
  EXPECT_STREQ(value, "abc");
  EXPECT_EQ(content(path), "def");
  EXPECT_EQ(permissions(path), fs::perms(0666));
  EXPECT_THAT(ownLines(), ElementsAre("OSAL:EL2 osal_getconfstr -> osal_close failed",
                                      "OSAL:EL2 osal_setconfstr -> osal_close failed"));
  EXPECT_EQ(openDescriptors(), before);
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
    fs::remove(file);
    if (!wasThere) fs::remove(kFolder);
  }

  /// The file that holds the value `name`.
  static std::string fileOf(const std::string& name) { return kFolder + ("/" + name); }

  const std::string name = text("qdtest.", ::getpid());
  const std::string file = fileOf(name);
  bool wasThere = false;

 private:
  ScopedFd turn_;
};

TEST_F(UxosalConfTmpTest, StoresInTheTemporaryFolder) {
  const std::ptrdiff_t open = openDescriptors();
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "a first value"), 0);
  EXPECT_EQ(content(file), "a first value");
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "second"), 0);
  EXPECT_EQ(content(file), "second");
  EXPECT_THAT(ownLines(), IsEmpty());
  char value[10];
  EXPECT_EQ(osal_getconfstr(file.c_str(), value, sizeof value), 0);
  EXPECT_STREQ(value, "second");
  EXPECT_EQ(openDescriptors(), open);
}

TEST_F(UxosalConfTmpTest, NamesThatAreRefusedBeforeAnyFileIsTouched) {
  const std::size_t room = 1024 - (sizeof kFolder - 1) - 1;
  const std::string tooLong(room + 1, 'x');
  const std::string outside = folder / "outside";
  const std::string climbing = "../.." + outside;
  const struct {
    std::string name;
    std::size_t length;
  } kCases[] = {
      {tooLong, 1025},
      {std::string(5000, 'x'), 5000 + 1024 - room},
      {climbing, fileOf(climbing).size()},
      {"sub/name", fileOf("sub/name").size()},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(osal_setconfstrtmp(c.name.c_str(), "value"), -1);
    EXPECT_THAT(
        ownLines(),
        ElementsAre(text("OSAL:ERR osal_setconfstrtmp -> snprintf failed (lg=", c.length, ")")));
  }
  EXPECT_FALSE(fs::exists(outside));

  // One character less passes this check, and is then too much for a file's name.
  EXPECT_EQ(osal_setconfstrtmp(std::string(room, 'x').c_str(), "value"), -1);
  EXPECT_THAT(ownLines(), ElementsAre("OSAL:ERR osal_setconfstrtmp -> osal_open failed"));
}

TEST_F(UxosalConfTmpTest, ALinkInTheFolderIsReplacedNotFollowed) {
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "value"), 0);
  fs::remove(file);
  fs::create_symlink(victim, file);
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "value"), 0);
  EXPECT_EQ(content(victim), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file)));
  EXPECT_EQ(content(file), "value");
}

TEST_F(UxosalConfTmpTest, ALinkInTheFoldersPlaceIsNotFollowed) {
  if (wasThere) GTEST_SKIP() << "the folder exists on this machine";
  fs::create_directory_symlink(folder.path(), kFolder);
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "value"), -1);
  fs::remove(kFolder);
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_THAT(ownLines(), ElementsAre("OSAL:ERR osal_setconfstrtmp -> osal_mkdir failed"));
}

TEST_F(UxosalConfTmpTest, NamesThatAreNoFile) {
  const std::ptrdiff_t open = openDescriptors();
  for (const char* const wrong : {"", ".", ".."}) {
    SCOPED_TRACE(wrong);
    EXPECT_EQ(osal_setconfstrtmp(wrong, "value"), -1);
    EXPECT_THAT(ownLines(), ElementsAre("OSAL:ERR osal_setconfstrtmp -> osal_open failed"));
  }
  EXPECT_EQ(osal_setconfstrtmp(nullptr, "value"), -1);
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), nullptr), -1);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR Arguments error", "OSAL:ERR Arguments error"));
  EXPECT_EQ(openDescriptors(), open);
}

#if defined(__linux__)
TEST_F(UxosalConfTmpTest, AFailedCloseIsNoFailureEither) {
  const PosixFault fault("close", EIO, 1);  // the folder is closed before the file
  EXPECT_EQ(osal_setconfstrtmp(name.c_str(), "value"), 0);
  EXPECT_EQ(content(file), "value");
  EXPECT_THAT(ownLines(), ElementsAre("OSAL:EL2 osal_setconfstrtmp -> osal_close failed"));
}
#endif

}  // namespace
