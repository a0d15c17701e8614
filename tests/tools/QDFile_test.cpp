#include "tools/QDFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Files.h"
#include "LogCapture.h"
#include "MaskAddresses.h"
#include "Refusal.h"
#include "TempFolder.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class QDFileTest : public testing::Test {
 protected:
  ~QDFileTest() override { EXPECT_EQ(openDescriptors(), before); }

  std::string quoted(const std::string& name) const { return '"' + (folder / name) + '"'; }
  std::string readAll(QDFile& file) const {
    std::string text(100, '#');
    return text.substr(0, file.read(text.data(), 100));
  }

  const TempFolder folder;
  const std::ptrdiff_t before = openDescriptors();
};

TEST_F(QDFileTest, WritesAndReads) {
  QDFile file;
  file.open(bytes(folder / "file"), QD_OPENMODE_RWNOTEXISTING, 0);
  file.writeFix("0123456789", 10);
  EXPECT_EQ(file.getSize(), 10U);
  file.reset();
  char text[4] = {};
  file.readFix(text, 3);
  EXPECT_STREQ(text, "012");
  file.seekSet(8);
  EXPECT_EQ(readAll(file), "89");
  EXPECT_EQ(readAll(file), "");
  file.truncate(3);
  file.sync();
  file.reset();
  EXPECT_EQ(refusal([&] { file.readFix(text, 4); }), refused("Read size (3) != asked size (4)"));
  file.close();
  EXPECT_EQ(content(folder / "file"), "012");
}

TEST_F(QDFileTest, CreatesParentsOnlyWhereItMayCreateAndIsAskedTo) {
  constexpr unsigned short kParents = QDFILE_OPEN_PARENTS;
  const struct {
    QDOpenMode mode;
    unsigned short options;
    bool creates;
  } kCases[] = {
      {QD_OPENMODE_RWCANCREATE, kParents, true},
      {QD_OPENMODE_RWNOTEXISTING, kParents | OSAL_OPEN_LOCK, true},
      {QD_OPENMODE_RWCANCREATE, 0, false},
      {QD_OPENMODE_RWEXISTING, kParents, false},
      {QD_OPENMODE_RDONLY, kParents, false},
  };
  for (const auto& [mode, options, creates] : kCases) {
    SCOPED_TRACE(testing::Message() << mode << ", " << options);
    const std::string path = folder / "d1/d2/f";
    QDFile file;
    const std::string answer =
        refusal([&, m = mode, o = options] { file.open(bytes(path), m, o); });
    EXPECT_EQ(answer, creates ? "nothing" : refused("Cannot open file " + quoted("d1/d2/f")));
    EXPECT_EQ(fs::exists(path), creates);
    EXPECT_EQ(fs::exists(folder / "d1"), creates);
    if (creates) file.close();
    fs::remove_all(folder / "d1");
  }
}

TEST_F(QDFileTest, SaysTwiceThatItCannotOpenOnlyWithoutParents) {
  fs::create_directory(folder / "taken");
  const LogCapture log("OSAL:4;EXCP:5;");
  QDFile file;
  EXPECT_THROW(file.open(bytes(folder / "taken"), QD_OPENMODE_RWNOTEXISTING, QDFILE_OPEN_PARENTS),
               QDException);
  EXPECT_THAT(maskAddresses(log.lines()),
              ElementsAre("OSAL:ERR Cannot open (17) file " + quoted("taken"),
                          "EXCP:ERR NET: Cannot open file " + quoted("taken"), "EXCP:ERR ECT - @"));
}

TEST_F(QDFileTest, ClosesTheFormerFileFirst) {
  writeFile(folder / "first", "1");
  writeFile(folder / "second", "2");
  QDFile file;
  file.open(bytes(folder / "first"), QD_OPENMODE_RDONLY, 0);
  const LogCapture log("OSAL:3;EXCP:5;");
  file.open(bytes(folder / "second"), QD_OPENMODE_RDONLY, 0);
  EXPECT_THAT(log.lines(), ElementsAre("OSAL:ERR File handle already in use, close it"));
  EXPECT_EQ(readAll(file), "2");
}

TEST_F(QDFileTest, RefusesToWorkOnAFileThatIsNotOpen) {
  char c = 0;
  QDFile file;
  const struct {
    std::function<void()> operation;
    const char* name;
  } kCases[] = {
      {[&] { file.read(&c, 1); }, "read"},
      {[&] { file.readFix(&c, 1); }, "readFix"},
      {[&] { file.writeFix(&c, 1); }, "writeFix"},
      {[&] { file.truncate(0); }, "truncate"},
      {[&] { file.reset(); }, "reset"},
      {[&] { file.seekSet(0); }, "seekSet"},
      {[&] { file.sync(); }, "sync"},
      {[&] { file.getSize(); }, "getSize"},
  };
  for (const auto& [operation, name] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(refusal(operation), refused("File not opened (" + std::string(name) + ")"));
  }
  const LogCapture log("OSAL:3;EXCP:5;");
  file.close();
  EXPECT_THAT(log.lines(),
              ElementsAre("OSAL:ERR Invalid handle (close)", "OSAL:EL2 Cannot close file !"));
}

TEST_F(QDFileTest, TellsWhatTheSystemRefused) {
  writeFile(folder / "file", "text");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  QDFile readOnly;
  readOnly.open(bytes(folder / "file"), QD_OPENMODE_RDONLY, 0);
  QDFile directory;
  directory.open(bytes(folder.path().string()), QD_OPENMODE_RDONLY, 0);
  QDFile fifo;
  fifo.open(bytes(folder / "fifo"), QD_OPENMODE_RWEXISTING, 0);
  char c = 0;
  const struct {
    std::function<void()> operation;
    const char* text;
  } kCases[] = {
      {[&] { directory.read(&c, 1); }, "Cannot read file"},
      {[&] { directory.readFix(&c, 1); }, "Cannot read file"},
      {[&] { readOnly.writeFix("x", 1); }, "Cannot write to file"},
      {[&] { readOnly.truncate(1); }, "Cannot truncate file"},
      {[&] { fifo.reset(); }, "Cannot go to beginning of file"},
      {[&] { fifo.seekSet(1); }, "Cannot make seekSet"},
      {[&] { fifo.sync(); }, "Cannot sync"},
  };
  for (const auto& [operation, text] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(refusal(operation), refused(text));
  }
}

TEST_F(QDFileTest, TellsWhichPathFailed) {
  fs::create_symlink("loop", folder / "loop");
  const std::string loop = folder / "loop/x";
  const std::string missing = folder / "missing";
  const struct {
    std::function<void()> operation;
    std::string text;
  } kCases[] = {
      {[&] { QDFile::exists(bytes(loop)); }, "Cannot check if file exists : " + quoted("loop/x")},
      {[&] { QDFile::createEmpty(bytes(loop)); },
       "Cannot check if file exists : " + quoted("loop/x")},
      {[] { QDFile::exists(nullptr); }, "Cannot check if file exists : \"(null)\""},
      {[&] { QDFile::getType(bytes(missing)); }, "Cannot get type of path : " + quoted("missing")},
      {[&] { QDFile::setAllRights(bytes(missing), true); },
       "Cannot set all rights at path : " + quoted("missing")},
      {[&] { QDFile::setTimes(bytes(missing), 1, 1); }, "Cannot set times"},
      {[] {
         QDFile file;
         file.open(nullptr, QD_OPENMODE_RWCANCREATE, QDFILE_OPEN_PARENTS);
       },
       "Cannot open file \"(null)\""},
      {[] { QDFile::getType(bytes("")); }, "Cannot get type of path : \"(root)\""},
  };
  for (const auto& [operation, text] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(refusal(operation), refused(text));
  }
}

TEST_F(QDFileTest, WorksOnPaths) {
  const std::string path = folder / "a/b/file";
  EXPECT_FALSE(QDFile::exists(bytes(path)));
  EXPECT_TRUE(QDFile::createEmpty(bytes(path)));
  EXPECT_TRUE(QDFile::exists(bytes(path)));
  EXPECT_EQ(QDFile::getType(bytes(path)), QD_FILETYPE_REG);
  EXPECT_EQ(QDFile::getType(bytes(folder / "a")), QD_FILETYPE_DIR);
  writeFile(path, "kept");
  EXPECT_FALSE(QDFile::createEmpty(bytes(path)));
  EXPECT_EQ(content(path), "kept");
  QDFile::setAllRights(bytes(path), false);
  QDFile::setTimes(bytes(path), 1'500'000'000'123'456'789, 1'600'000'000'000'001'999);
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0777U);
  EXPECT_EQ(info.st_mtime, 1'600'000'000);
}

/// "/a/a/..." of this length.
std::string pathOfLength(std::size_t length) {
  std::string path = "/";
  while (path.size() < length) path += path.back() == '/' ? 'a' : '/';
  return path;
}

TEST_F(QDFileTest, CleansPathsUp) {
  const struct {
    std::string in;
    std::string out;
  } kCases[] = {
      {"/", "/"},
      {"///", "/"},
      {"//a///b/", "/a/b"},
      {"/a", "/a"},
      {"/a/", "/a"},
      {"/./a/../b//", "/./a/../b"},
      {pathOfLength(4096), pathOfLength(4096)},
      {pathOfLength(4096) + "////", pathOfLength(4096)},
      {"//" + pathOfLength(4096), pathOfLength(4096)},
  };
  for (const auto& [in, out] : kCases) {
    SCOPED_TRACE(in.substr(0, 20));
    std::vector<unsigned char> buffer(4098, '#');
    EXPECT_EQ(QDFile::cleanupPath(bytes(in), buffer.data()), buffer.data());
    EXPECT_EQ(reinterpret_cast<char*>(buffer.data()), out);
    EXPECT_EQ(buffer[4097], '#');
    std::string inPlace = in + std::string(10, '\0');
    QDFile::cleanupPath(bytes(inPlace), reinterpret_cast<unsigned char*>(inPlace.data()));
    EXPECT_EQ(inPlace.c_str(), out);
  }
  std::vector<unsigned char> buffer(4098, '#');
  EXPECT_EQ(QDFile::cleanupPath(nullptr, buffer.data()), nullptr);
  const unsigned char* const empty = QDFile::cleanupPath(bytes(""), buffer.data());
  EXPECT_EQ(*empty, '\0');
  EXPECT_NE(empty, buffer.data());
  EXPECT_EQ(refusal([&] { QDFile::cleanupPath(bytes("a/b"), buffer.data()); }),
            refused("Not an absolute path: \"a/b\""));
  const std::string tooLong = pathOfLength(4096) + "a";
  EXPECT_EQ(refusal([&] { QDFile::cleanupPath(bytes(tooLong), buffer.data()); }),
            refused("Path too long: \"" + tooLong + '"'));
}

}  // namespace
