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
  EXPECT_EQ(FileWalkB(path, "*", nullptr), 0);
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

// The other walk lists the matches in every pass. It ends when the last folder has gone.
TEST(Walk, TheOtherWalkEndsWithItsFolders) {
  static Tree tree;
  static int passes;
  tree.File("a.txt");
  tree.File("d/b.txt");
  tree.File("d/e/c.txt");
  char path[300];
  strcpy(path, tree.Path().c_str());
  seen.clear();
  EXPECT_EQ(FileWalkB(path, "*.txt",
                      [](uint32_t code, const WIN32_FIND_DATAA* entry) {
                        Note(code, entry);
                        bool top = code == WALK_DIRECTORY && strcmp(entry->cFileName, "d") == 0;
                        if (top && ++passes == 3) tree.Remove("d");
                        return 0u;
                      }),
            0);
  EXPECT_EQ(path, tree.Path());
  // The inner walk goes one level deeper at its second pass, and begins there the next time.
  EXPECT_EQ(seen,
            "5 2:a.txt 1:d 5 2:b.txt 1:e 6 5 5 2:c.txt 6 6 6 "
            "5 2:a.txt 1:d 5 5 2:c.txt 6 6 6 "
            "5 2:a.txt 1:d 5 6 6 "
            "5 2:a.txt 6 ");
  // Each has counters of its own, which stay.
  EXPECT_EQ(Walked(tree, "*.txt", FileWalkB), "5 2:a.txt 6 ");
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
  static int32_t (*walk)(char*, const char*, WalkCallback);
  for (auto each : {FileWalk, FileWalkB}) {
    walk = each;
    result = 0;
    char path[300];
    strcpy(path, inner);
    walk(path, "*", [](uint32_t code, const WIN32_FIND_DATAA*) {
      if (code == WALK_FILE) result = walk(inner, "*", Note);
      return 0u;
    });
    EXPECT_EQ(result, -2);
  }
  EXPECT_EQ(tavrix_test::ClearedTrail(), "02.02");
}

#ifndef _WIN32

#endif

}  // namespace
}  // namespace quern
