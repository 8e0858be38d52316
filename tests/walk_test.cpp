// The walk with a callback: codes and order, and counters that last.

#include "quern/cfile/walk.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

namespace quern {
namespace {

using tavrix_test::Tree;

std::string seen;

uint32_t Note(uint32_t code, const WIN32_FIND_DATAA* entry) {
  seen += entry ? std::to_string(code) + ":" + entry->cFileName + " " : std::to_string(code) + " ";
  return 7;
}

std::string Walked(const Tree& tree, const char* pattern,
                   int32_t (*walk)(char*, const char*, WalkCallback) = FileWalk) {
  char path[300];
  strcpy(path, tree.Path().c_str());
  seen.clear();
  EXPECT_EQ(walk(path, pattern, Note), 0);
  EXPECT_EQ(path, tree.Path());
  return seen;
}

TEST(Walk, OneLevelOfFiles) {
  Tree tree;
  tree.File("a.txt");
  tree.File("b.c");
  EXPECT_EQ(Walked(tree, "*"), "5 2:a.txt 2:b.c 6 ");
  EXPECT_EQ(Walked(tree, "*.c"), "5 2:b.c 6 ");
  EXPECT_EQ(Walked(tree, ""), "5 6 ");
  EXPECT_EQ(Walked(tree, nullptr, FileWalkB), "5 6 ");
  EXPECT_EQ(Walked(tree, "*", FileWalkB), "5 2:a.txt 2:b.c 6 ");
  char path[300];
  strcpy(path, tree.Path().c_str());
  EXPECT_EQ(FileWalk(path, "*", nullptr), 0);
  EXPECT_EQ(FileWalk(nullptr, "*", Note), -1);
  EXPECT_EQ(FileWalkB(nullptr, "*", Note), -1);
  tavrix_test::ClearedTrail();
}

TEST(Walk, APassForEveryLevelAndCountersThatStay) {
  Tree tree;
  tree.File("a.txt");
  tree.File("d/b.txt");
  tree.File("e/f/c.txt");
  // The first pass reports the top; the second one finds f in e, so that the third goes to its
  // files. The level stays for the siblings: with f found in e the files of e are behind.
  EXPECT_EQ(Walked(tree, "*.txt"),
            "5 2:a.txt 1:d 1:e 6 "
            "5 5 2:b.txt 6 5 1:f 6 5 5 2:c.txt 6 6 6 ");
  // A second walk begins at the level that the first one has left.
  EXPECT_EQ(Walked(tree, "*.txt"), "5 5 6 5 5 2:c.txt 6 6 6 ");
}

TEST(Walk, ReadOnlyDirectoriesAreEntries) {
  Tree tree;
  tree.Dir("ro");
  tree.File("ro/x");
  tree.SetReadOnly("ro", true);
  WIN32_FIND_DATAA entry;
  HANDLE search = FindFirstFileA(tree.Path("ro").c_str(), &entry);
  FindClose(search);
  if (entry.dwFileAttributes != 0x11) GTEST_SKIP() << "no read-only directories here";
  EXPECT_EQ(Walked(tree, "*"), "5 2:ro 6 ");
  tree.SetReadOnly("ro", false);
}

TEST(Walk, CalledDeeperThanItsLevelIsAFailure) {
  Tree tree;
  tree.File("a");
  static char inner[300];
  strcpy(inner, tree.Path().c_str());
  static int32_t result;
  char path[300];
  strcpy(path, inner);
  FileWalk(path, "*", [](uint32_t code, const WIN32_FIND_DATAA*) {
    if (code == WALK_FILE) result = FileWalk(inner, "*", Note);
    return 0u;
  });
  EXPECT_EQ(result, -2);
  EXPECT_EQ(tavrix_test::ClearedTrail(), "02");
}

}  // namespace
}  // namespace quern
