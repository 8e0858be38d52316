// What the enumeration of names stands on: the steps of the walk and the kinds of drives.

#include "quern/cfile/find.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "platform/win32.h"
#include "quern/cfile/list.h"
#include "quern/cmem/split.h"
#include "tests/support/call.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#endif

namespace quern {
namespace {

using tavrix_test::Tree;

// The walk itself, step by step.
TEST(Find, StepsOfTheWalk) {
  Tree tree;
  for (const char* file : {"a/1", "b/2.x", "3"}) tree.File(file);
  char dir[kDirRoom];
  strcpy(dir, tree.Path().c_str());
  const FindEntry* entry;
  auto step = [&](const char* pattern) {
    uint32_t state = FileFindStep(dir, pattern, &entry);
    return std::to_string(state) + (entry ? " " + std::string(entry->name) : "") + " " +
           (strlen(dir) < tree.Path().size() ? "-" : dir + tree.Path().size());
  };
  std::string sep(1, kPathSeparator);
  EXPECT_EQ(FileFindStep(nullptr, nullptr, nullptr), FIND_RESET);
  EXPECT_EQ(step("3"), "2 " + tree.Path("3") + " " + sep);
  EXPECT_EQ(entry->attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(step("3"), "4 " + sep);
  EXPECT_EQ(FileFindStep(dir, nullptr, &entry), FIND_NEXT_PATTERN);
  EXPECT_EQ(step("a"), "1 " + tree.Path("a") + " " + sep);
  EXPECT_NE(entry->attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(step("a"), "4 " + sep);
  EXPECT_EQ(step("*"), "5 a " + sep + "a");
  EXPECT_EQ(step("q"), "4 " + sep + "a" + sep);
  EXPECT_EQ(step("q"), "6 " + sep);
  EXPECT_EQ(step("*"), "5 b " + sep + "b");
  EXPECT_NE(entry->attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(step("*.x"), "2 " + tree.Path("b/2.x") + " " + sep + "b" + sep);
  EXPECT_EQ(FileFindStep(dir, "*", nullptr), FIND_UP);
  EXPECT_EQ(dir, tree.Path("b"));  // its separator goes alone
  EXPECT_EQ(step("*"), "6 " + sep);
  EXPECT_EQ(step("*"), "8 " + sep);  // above the root
  // A reset in the middle closes the searches: the walk begins anew.
  for (int round = 0; round < 3; ++round) {
    FileFindStep(nullptr, nullptr, nullptr);
    strcpy(dir, tree.Path().c_str());
    EXPECT_EQ(step("b"), "1 " + tree.Path("b") + " " + sep);
  }
  FileFindStep(nullptr, nullptr, nullptr);
  // A name alone is a directory in the current one.
  std::filesystem::current_path(tree.root());
  strcpy(dir, "a");
  EXPECT_EQ(FileFindStep(dir, "1", &entry), FIND_FILE);
  EXPECT_EQ(entry->name, "a" + sep + "1");
  EXPECT_EQ(FileFindStep(dir, "1", &entry), FIND_END_PATTERN);
  EXPECT_EQ(FileFindStep(dir, "1", &entry), FIND_UP);
  EXPECT_STREQ(dir, "");
  EXPECT_EQ(FileFindStep(dir, "1", &entry), FIND_DONE);
  FileFindStep(nullptr, nullptr, nullptr);
  strcpy(dir, "a");
  EXPECT_EQ(FileFindStep(dir, "1", &entry), FIND_FILE);
  EXPECT_EQ(FileFindStep(dir, "1", nullptr), FIND_UP);
  EXPECT_STREQ(dir, "a");
  FileFindStep(nullptr, nullptr, nullptr);
  std::filesystem::current_path(tree.root().parent_path());
}

#ifndef _WIN32

TEST(Find, NoWayDownFromTheRootAndNoneUp) {
  tavrix_test::CallFault fault("open", EACCES);
  char dir[kDirRoom] = "/";
  const FindEntry* entry;
  EXPECT_EQ(FileFindStep(dir, "*", &entry), FIND_END_PATTERN);
  EXPECT_EQ(FileFindStep(dir, "*", &entry), FIND_UP);
  EXPECT_STREQ(dir, "");
  EXPECT_EQ(FileFindStep(dir, "*", &entry), FIND_DONE);
  FileFindStep(nullptr, nullptr, nullptr);
}

TEST(Find, KindsOfDrives) {
  using Statfs = struct statfs64;
  FileFinderSelect(nullptr);
  CurrentFinder->pDrives = MemSplitInit(nullptr, "", 0, "", 0);
  Tree tree;
  uint32_t kind = 0;
  char removable = '0';
  tavrix_test::StandIn<int(const char*, Statfs*)> system("statfs64",
                                                         [&](const char*, Statfs* facts) {
                                                           facts->f_type = kind;
                                                           return kind ? 0 : -1;
                                                         });
  tavrix_test::StandIn<int(const char*, int, unsigned)> disk(
      "open", [](const char*, int flags, unsigned) { return open("/dev/zero", flags); });
  tavrix_test::StandIn<ssize_t(int, void*, size_t)> flag("read", [&](int, void* to, size_t) {
    memcpy(to, &removable, 1);
    return 1;
  });
  auto drive = [](const std::string& roots, uint32_t mask = ~0u) {
    FileListDrives(nullptr, 0);
    uint32_t first = FileListDrives(roots.c_str(), mask);
    EXPECT_EQ(FileListDrives(roots.c_str(), mask), first);  // asking again changes nothing
    return first;
  };
  const struct {
    uint32_t kind, bit;
    char removable;
  } rows[] = {{0, 0x80000000, '0'},      {0xEF53, 0x40000000, '1'}, {0xEF53, 0x20000000, '0'},
              {0x6969, 0x10000000, '0'}, {0x9660, 0x08000000, '0'}, {0x01021994, 0x04000000, '0'}};
  for (const auto& row : rows) {
    kind = row.kind;
    removable = row.removable;
    EXPECT_EQ(drive(tree.Path()), row.bit);
    EXPECT_EQ(drive(tree.Path(), ~row.bit), 0u);
    EXPECT_EQ(drive(tree.Path("none")), 0u);
    EXPECT_EQ(FileListDrives(nullptr, ~0u), 0u);
    EXPECT_EQ(FileListDrives(tree.Path().c_str(), row.bit), row.bit);
  }
  // The list of its own begins with A:, and stays there.
  std::string asked;
  auto* builtIn = reinterpret_cast<const char*>(~uintptr_t{0});
  using Look = int(int, const char*, int, unsigned, struct statx*);
  tavrix_test::StandIn<Look> look("statx",
                                  [&](int, const char* name, int, unsigned, struct statx* facts) {
                                    asked += name;
                                    facts->stx_mode = S_IFDIR;
                                    return 0;
                                  });
  FileListDrives(nullptr, 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(FileListDrives(builtIn, ~0u), 0x04000000u);
  EXPECT_EQ(asked, "A:/A:/A:/");
}

#endif

}  // namespace
}  // namespace quern
