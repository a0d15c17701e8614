// A tree of 100,000 entries: walked through, and removed.

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <unistd.h>

#include <array>

#include "ground/osal_scoped.h"
#include "measure.h"
#include "tools/QDDir.h"

namespace {

constexpr int kFolders = 100;
constexpr int kFilesInEach = 999;
constexpr std::size_t kEntries = kFolders * (kFilesInEach + 1);

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.c_str());
}

std::string nameOf(const char* kind, int number) { return kind + std::to_string(number); }

void createTree(const std::string& root) {
  for (int folder = 0; folder < kFolders; ++folder) {
    const std::string path = root + "/" + nameOf("folder", folder);
    std::filesystem::create_directories(path);
    for (int file = 0; file < kFilesInEach; ++file) {
      ScopedFd(::open((path + "/" + nameOf("file", file)).c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    }
  }
}

// --- Walks: count entries that are files or folders ----------------------------------------------

std::size_t walkProject(const std::string& root) {
  struct Count : QSDir_cbArgBrowse {
    std::size_t entries = 0;
    bool processItem(const unsigned char* /*path*/, QDFileType type) override {
      if (type == QD_FILETYPE_REG || type == QD_FILETYPE_DIR) ++entries;
      return true;
    }
  } count;
  QDDir::browse(bytesOf(root), true, false, false, count, false, false);
  return count.entries;
}

std::size_t walkFts(const std::string& root) {
  std::string path = root;
  std::array<char*, 2> roots{path.data(), nullptr};
  FTS* const walk = ::fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR, nullptr);
  std::size_t entries = 0;
  while (const FTSENT* const entry = ::fts_read(walk)) {
    const bool counts = entry->fts_info == FTS_F || entry->fts_info == FTS_D;
    if (counts && entry->fts_level > 0) ++entries;
  }
  ::fts_close(walk);
  return entries;
}

bool isDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

std::size_t walkReaddir(const std::string& root) {
  DIR* const folder = ::opendir(root.c_str());
  std::size_t entries = 0;
  while (const dirent* const entry = ::readdir(folder)) {
    if (isDot(entry->d_name)) continue;
    if (entry->d_type == DT_REG || entry->d_type == DT_DIR) ++entries;
    if (entry->d_type == DT_DIR) entries += walkReaddir(root + "/" + entry->d_name);
  }
  ::closedir(folder);
  return entries;
}

void walk(benchmark::State& state, std::size_t (*count)(const std::string&)) {
  const std::string root = measure::scratch("walk");
  if (!std::filesystem::exists(root)) createTree(root);
  for (auto _ : state) {
    measure::timed(state, [&] {
      if (count(root) != kEntries) state.SkipWithError("the walk missed entries");
    });
  }
}

void often(benchmark::internal::Benchmark* bench) {
  bench->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(walk, project, walkProject)->Name("walk/project")->Apply(often);
BENCHMARK_CAPTURE(walk, fts, walkFts)->Name("walk/peer fts")->Apply(often);
BENCHMARK_CAPTURE(walk, readdir, walkReaddir)->Name("walk/limit readdir and d_type")->Apply(often);

// --- Removals ------------------------------------------------------------------------------------

void removeProject(const std::string& root) { QDDir::removeRec(bytesOf(root)); }

void removeCommand(const std::string& root) { measure::run({"rm", "-rf", root}); }

void removeStandard(const std::string& root) { std::filesystem::remove_all(root); }

/// The names are known already.
void removeNames(const std::string& root) {
  for (int folder = 0; folder < kFolders; ++folder) {
    const std::string path = root + "/" + nameOf("folder", folder);
    const ScopedFd open(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int file = 0; file < kFilesInEach; ++file) {
      ::unlinkat(open.get(), nameOf("file", file).c_str(), 0);
    }
    ::unlinkat(AT_FDCWD, path.c_str(), AT_REMOVEDIR);
  }
  ::unlinkat(AT_FDCWD, root.c_str(), AT_REMOVEDIR);
}

void removal(benchmark::State& state, void (*remove)(const std::string&)) {
  const std::string root = measure::scratch("removal");
  for (auto _ : state) {
    createTree(root);
    measure::timed(state, [&] { remove(root); });
    if (std::filesystem::exists(root)) state.SkipWithError("the tree is still there");
  }
}

BENCHMARK_CAPTURE(removal, project, removeProject)->Name("removal/project")->Apply(measure::once);
BENCHMARK_CAPTURE(removal, rm, removeCommand)->Name("removal/peer rm -rf")->Apply(measure::once);
BENCHMARK_CAPTURE(removal, standard, removeStandard)
    ->Name("removal/peer std::filesystem::remove_all")
    ->Apply(measure::once);
BENCHMARK_CAPTURE(removal, unlinkat, removeNames)
    ->Name("removal/limit unlinkat")
    ->Apply(measure::once);

}  // namespace
