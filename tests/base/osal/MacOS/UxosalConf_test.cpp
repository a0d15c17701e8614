#include "base/osal/MacOS/UxosalConf.h"

#include <fcntl.h>
#include <sys/file.h>

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
                {"\v\f\x1F\t", 9, "\v\f\x1F"},
                {"abc\nd", 4, "abc"},
                {"abcd\n", 4, "", tooShort},
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
  EXPECT_EQ(said(osal_getconfstr(missing.c_str(), value, sizeof value)), "0");
  EXPECT_STREQ(value, "");
}

TEST_F(UxosalConfTest, AValueIsForWhomItIsAsked) {
  writeFile(path, "a longer value");
  fs::permissions(path, fs::perms(0640));
  for (const bool forAll : {false, true}) {
    EXPECT_EQ(osal_setconfstr(path.c_str(), "x", true, forAll), 0);
    EXPECT_EQ(permissionsOf(path), forAll ? 0666 : 0600);
    EXPECT_EQ(content(path), "x");
  }
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
  EXPECT_TRUE(store("../.." + missing).starts_with("-1 ERR osal_setconfstrtmp -> snprintf failed"));
  if (!wasThere) fs::remove(kFolder);
}

}  // namespace
