// The backup of a file that is opened with FO_BACKUP, and FileRevert.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Open;
using tavrix_test::Tree;

TEST(Backup, WithoutOneRevertingCutsAndKeepsChangedBytes) {
  Tree tree;
  tree.File("f", "12345");
  EXPECT_EQ(FileRevert(), -1);
  EXPECT_EQ(ClearedTrail(), "01");
  static uint32_t reverted;
  FileMappedHook = [](FileObject* file) { reverted = file->nReverted; };
  Open(tree, "f", FO_MAPPED | 2)->pView[0] = '!';
  EXPECT_EQ(FileAppendf("678"), 3);
  EXPECT_EQ(FileRevert(), 0);
  FileMappedHook = nullptr;
  EXPECT_EQ(reverted, 1u);
  EXPECT_EQ(CurrentFile, nullptr);
  EXPECT_EQ(ClearedTrail(), "03.02");  // the end of a file without a handle
  EXPECT_EQ(tree.Read("f"), "!2345");
  // The path of the backup names no folder here, so there is no copy, and none is put back.
  FileObject* file = Open(tree, "f", FO_MAPPED | 2 | FO_BACKUP);
  EXPECT_EQ(ErrLine, 163);
  EXPECT_EQ(ErrCurrent->nCount, 0u);  // reported
  std::string folder(MAX_PATH, 0);
  folder.resize(GetTempPathA(MAX_PATH, folder.data()));
  std::string path = file->pszBackup;
  EXPECT_EQ(path.find(folder + folder), 0u) << path;
  EXPECT_FALSE(std::filesystem::exists(path.substr(folder.size())));
  tree.File("foreign", "foreign");
  strcpy(file->pszBackup, tree.Path("foreign").c_str());
  file->pView[1] = '!';
  EXPECT_EQ(FileRevert(), -2);
  EXPECT_EQ(ClearedTrail(), "02.03.02");
  EXPECT_EQ(tree.Read("f"), "!!345");
  EXPECT_EQ(tree.Read("foreign"), "foreign");
}

#ifndef _WIN32

// A temporary folder with a full path of its own in it, where backups can be made.
class BackupFolder : public testing::Test {
 protected:
  BackupFolder() : folder_(tree_.Path("t")), inside_("t" + folder_) {
    tree_.Dir(inside_);
    setenv("TMPDIR", folder_.c_str(), 1);
  }
  std::string Made() const {  // the contents of the only copy, or ""
    std::filesystem::directory_iterator all(tree_.Path(inside_));
    return all == end(all) ? "" : tree_.Read(inside_ + "/" + all->path().filename().string());
  }
  size_t Entries(const std::string& name) const {
    std::filesystem::directory_iterator all(tree_.Path(name));
    return static_cast<size_t>(std::distance(begin(all), end(all)));
  }

  Tree tree_;
  const std::string folder_, inside_;
};

TEST_F(BackupFolder, PutsBackWhatItCopied) {
  tree_.File("f", std::string(200'000, 'f'));
  std::string name = tree_.Path("f");
  chmod(name.c_str(), 0640);
  auto written = std::filesystem::last_write_time(name) - std::chrono::hours(30);
  std::filesystem::last_write_time(name, written);
  FileObject* file = Open(tree_, "f", FO_MAPPED | 2 | FO_BACKUP);
  EXPECT_EQ(ErrLine, 0);
  std::string backup = file->pszBackup;
  EXPECT_TRUE(backup.starts_with(folder_ + "/" + folder_ + "/")) << backup;
  struct stat facts;
  ASSERT_EQ(stat(backup.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0600u);  // for its owner alone
  EXPECT_EQ(Entries("t"), 1u) << "no temporary file stays";
  // Whoever can write to the folder puts another file in its place.
  std::filesystem::rename(backup, backup + ".moved");
  tree_.File(inside_ + "/" + std::filesystem::path(backup).filename().string(), "foreign");
  memset(file->pView, '!', 10);
  EXPECT_EQ(FileAppendf("678"), 3);
  EXPECT_EQ(FileRevert(), 0);
  EXPECT_EQ(ClearedTrail(), "03.02");
  EXPECT_TRUE(tree_.Read("f") == std::string(200'000, 'f'));
  ASSERT_EQ(stat(name.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0640u);
  EXPECT_LT(written - std::filesystem::last_write_time(name), std::chrono::microseconds(1));
  EXPECT_FALSE(std::filesystem::exists(backup));
}

// Something that is there already is neither written to nor taken for the backup.
TEST_F(BackupFolder, IsANewFile) {
  tree_.File("f", "12345");
  tree_.File("victim", "victim");
  int links = 0;
  tavrix_test::StandIn<int(const char*, int, unsigned)> prepare(
      "open", [&](const char* name, int flags, unsigned mode) {
        if (strstr(name + 1, folder_.c_str()) && flags & O_CREAT)
          links += symlink(tree_.Path("victim").c_str(), name) == 0;
        return open(name, flags, mode);
      });
  FileObject* file = Open(tree_, "f", FO_MAPPED | 2 | FO_BACKUP);
  EXPECT_EQ(links, 1);
  EXPECT_EQ(ErrLine, 163);
  file->pView[0] = '!';
  EXPECT_EQ(FileRevert(), -2);
  EXPECT_EQ(ClearedTrail(), "02.03.02");
  EXPECT_EQ(tree_.Read("victim"), "victim");
  EXPECT_EQ(tree_.Read("f"), "!2345");
}

TEST_F(BackupFolder, ThatIsMissingOrTooLong) {
  tree_.File("f", "12345");
  for (size_t length : {259, 258}) {
    std::string none = folder_ + "/";
    none.resize(length, 'n');
    setenv("TMPDIR", none.c_str(), 1);
    EXPECT_EQ(Open(tree_, "f", FO_MAPPED | 2 | FO_BACKUP)->pszBackup == nullptr, length == 259);
    EXPECT_EQ(Close(), "");  // reported
  }
}

// Whatever fails: the old bytes are in the file or in the copy, and nothing is lost or left. Some
// failures of the reserve end the process.
TEST_F(BackupFolder, EveryStepMayFail) {
  constexpr int kDone = 100, kFailed = 101, kUnhit = 102, kLost = 103;
  for (bool calls : {false, true}) {
    int code = 0;
    for (int64_t number = 1; code != kUnhit; ++number) {
      ASSERT_LT(number, 100);
      tree_.File("f", "12345");
      for (const auto& old : std::filesystem::directory_iterator(tree_.Path(inside_)))
        std::filesystem::remove(old);
      code = tavrix_test::InChild([&] {
        std::string name = tree_.Path("f");
        FileOpen(nullptr, (name + "x").c_str(), FO_MAPPED | 2);  // what the process keeps is there
        FileClass(0);
        FileOpen(nullptr, name.c_str(), FO_MAPPED | 2);
        FileClass(0);
        int64_t descriptors = tavrix_test::OpenDescriptors(), blocks = tavrix_test::LiveBlocks();
        bool hit, done = false;
        {
          std::optional<tavrix_test::CallFault> call;
          std::optional<tavrix_test::AllocationFault> allocation;
          calls ? void(call.emplace(number)) : void(allocation.emplace(number));
          FileObject* file = FileOpen(nullptr, name.c_str(), FO_MAPPED | 2 | FO_BACKUP);
          if (file) file->pView[0] = '!';
          if (CurrentFile) done = FileRevert() == 0 && file;
          FileClass(0);
          hit = calls ? call->Hit() : allocation->Hit();
        }
        ErrClear();
        bool kept =
            tavrix_test::OpenDescriptors() == descriptors && tavrix_test::LiveBlocks() == blocks;
        return !kept ? kLost : !hit ? (done ? kUnhit : kLost) : done ? kDone : kFailed;
      });
      SCOPED_TRACE(std::to_string(number) + (calls ? " call " : " block ") + std::to_string(code));
      std::string text = tree_.Read("f"), made = Made();
      if (code == kDone || code == kUnhit) {
        EXPECT_EQ(text.substr(0, 5) + made, "12345");
      } else {
        EXPECT_TRUE(code == kFailed || code == 15 || code == 16);
        EXPECT_TRUE(made == "12345" || text.substr(1, 4) == "2345") << text;
      }
    }
  }
}

#endif

}  // namespace
}  // namespace quern
