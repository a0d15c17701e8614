#include "base/osal/MacOS/UxosalConf.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "FolderTest.h"
#include "ground/osal_scoped.h"

namespace {

using namespace std::string_literals;

class UxosalConfTest : public SaidTest {
 protected:
  UxosalConfTest() : SaidTest("OSAL:2;") {}
};

TEST_F(UxosalConfTest, TheValueEndsAtTheFirstSeparatorAndMustFit) {
  const std::string tooShort = "-1 EL2 osal_getconfstr -> buffer too short";
  const struct {
    std::string file;
    unsigned int size;
    std::string value;
    std::string said = "0";
  } kCases[] = {{"", 9, ""},
                {"abc\r\n", 9, "abc"},
                {"abc\0def"s, 9, "abc"},
                {"\xC3\xA9\v\f\x1F", 9, "\xC3\xA9\v\f\x1F"},
                {"abc\nd", 4, "abc"},
                {"abcd\n", 4, "", tooShort},
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
  for (const auto& [where, expected] : std::initializer_list<std::pair<std::string, std::string>>{
           {missing, "0"}, {root(), " | ERR osal_getconfstr -> osal_read failed"}}) {
    char value[] = "dirty";
    EXPECT_TRUE(said(osal_getconfstr(where.c_str(), value, sizeof value)).ends_with(expected));
    EXPECT_STREQ(value, "");
  }
}

TEST_F(UxosalConfTest, AStoredValueReplacesTheFormerOneAndItsPermissions) {
  constexpr struct {
    bool ownerOnly;
    bool allReadWrite;
    int created;  // with umask 022
    int existing;
  } kCases[] = {{false, false, 0755, 0640}, {true, false, 0600, 0600}, {true, true, 0666, 0666}};
  const mode_t former = ::umask(022);
  for (const auto& c : kCases) {
    fs::remove(path);
    EXPECT_EQ(osal_setconfstr(path.c_str(), "a long value", c.ownerOnly, c.allReadWrite), 0);
    EXPECT_EQ(permissionsOf(path), c.created);
    fs::permissions(path, fs::perms(0640));
    EXPECT_EQ(osal_setconfstr(path.c_str(), "x", c.ownerOnly, c.allReadWrite), 0);
    EXPECT_EQ(permissionsOf(path), c.existing);
    EXPECT_EQ(content(path), "x");
  }
  ::umask(former);
  EXPECT_EQ(said(osal_setconfstr("/dev/null", "v", false, false)),
            "-1 ERR Cannot truncate (22) file (fd) to size 0 | "
            "ERR osal_setconfstr -> osal_truncate failed");
#if defined(__linux__)
  // This file takes the thread's name and refuses every other: no truncation, no permission bits.
  constexpr char kThreadName[] = "/proc/thread-self/comm";
  const std::string name = content(kThreadName);
  EXPECT_EQ(said(osal_setconfstr(kThreadName, "secret", true, false)),
            "-1 ERR osal_setconfstr -> chmod failed (1)");
  EXPECT_EQ(content(kThreadName), name);  // what must not be readable was not written
#endif
}

// The temporary folder is one for the machine: tests take turns, and remove it when they made it.
TEST_F(UxosalConfTest, StoresPlainNamesInTheTemporaryFolderAndFollowsNoLinkThere) {
  constexpr char kFolder[] = "/tmp/.quietstore\r";
  const ScopedFd turn(::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ::flock(turn.get(), LOCK_EX);
  const bool wasThere = fs::exists(fs::symlink_status(kFolder));
  const std::string name = text("qdtest.", ::getpid());
  const std::string file = kFolder + ("/" + name);
  const auto store = [&](const std::string& as) {
    return said(osal_setconfstrtmp(as.c_str(), "value"));
  };
  writeFile(path, "precious");
  EXPECT_EQ(store(name), "0");
  fs::remove(file);
  fs::create_symlink(path, file);
  EXPECT_EQ(store(name), "0");
  EXPECT_EQ(content(path), "precious");
  EXPECT_EQ(content(file), "value");
  fs::remove(file);
  const std::size_t room = 1024 - sizeof kFolder;  // for a name, behind the slash
  for (const std::string& wrong : {std::string(room + 1, 'x'), "../.." + missing, "sub/name"s}) {
    EXPECT_EQ(store(wrong), text("-1 ERR osal_setconfstrtmp -> snprintf failed (lg=",
                                 sizeof kFolder + wrong.size(), ")"));
  }
  for (const std::string& noFile : {std::string(room, 'x'), ".."s}) {
    EXPECT_TRUE(store(noFile).ends_with(" | ERR osal_setconfstrtmp -> osal_open failed"));
  }
  EXPECT_FALSE(fs::exists(missing));
  if (wasThere) return;
  fs::remove(kFolder);
  fs::create_directory_symlink(folder.path(), kFolder);
  EXPECT_EQ(store(name), "-1 ERR osal_setconfstrtmp -> osal_mkdir failed");
  fs::remove(kFolder);
}

}  // namespace
