// Walks through a tree with a callback, and kinds of drives.
#include "quern/cmem/split.h"
#include "tests/support/opened.h"

#ifndef _WIN32
#include <sys/statfs.h>
#endif

namespace quern {
namespace {

using namespace tavrix_test;

std::string seen;
void (*also)(uint32_t code);

uint32_t Note(uint32_t code, const WIN32_FIND_DATAA* entry) {
  seen += std::to_string(code) + (entry ? std::string(":") + entry->cFileName : "") + " ";
  if (also) also(code);
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

TEST(Walk, ReportsMatchesOfOneLevel) {
  Tree tree;
  tree.File("a.txt");
  tree.File("b.c");
#ifndef _WIN32  // where folders can be read-only, and are no folders then
  tree.Dir("ro");
  tree.SetReadOnly("ro", true);
  const std::string readOnly = "2:ro ";
#else
  const std::string readOnly;
#endif
  for (auto walk : {FileWalk, FileWalkB}) {
    EXPECT_EQ(Walked(tree, "*", walk), "5 2:a.txt 2:b.c " + readOnly + "6 ");
    EXPECT_EQ(Walked(tree, "*.c", walk), "5 2:b.c 6 ");
    EXPECT_EQ(Walked(tree, "", walk) + Walked(tree, nullptr, walk), "5 6 5 6 ");
  }
  static char path[300] = ".";
  also = [](uint32_t) {
    also = nullptr;
    EXPECT_EQ(FileWalk(path, "*", Note), -2) << "deeper than its level";
  };
  Walked(tree, "*");
}

TEST(Walk, APassForEveryLevelAndCountersThatStay) {
  Tree tree;
  for (const char* file : {"a.txt", "d/b.txt", "e/f/c.txt"}) tree.File(file);
  // The first pass reports the top; the second one finds f in e, so that the third goes to its
  // files. The level stays for the siblings: with f found in e the files of e are behind.
  EXPECT_EQ(Walked(tree, "*.txt"),
            "5 2:a.txt 1:d 1:e 6 "
            "5 5 2:b.txt 6 5 1:f 6 5 5 2:c.txt 6 6 6 ");
  // A second walk begins at the level that the first one has left.
  EXPECT_EQ(Walked(tree, "*.txt"), "5 5 6 5 5 2:c.txt 6 6 6 ");
}

// The other walk lists the matches in every pass. It ends when the last folder has gone. Its inner
// walk goes one level deeper at its second pass, and begins there the next time.
TEST(Walk, TheOtherWalkEndsWithItsFolders) {
  static Tree tree;
  static int passes = 0;
  for (const char* file : {"a.txt", "d/b.txt", "d/e/c.txt"}) tree.File(file);
  also = [](uint32_t code) {
    if (code == WALK_DIRECTORY && seen.ends_with(":d ") && ++passes == 3) tree.Remove("d");
  };
  EXPECT_EQ(Walked(tree, "*.txt", FileWalkB),
            "5 2:a.txt 1:d 5 2:b.txt 1:e 6 5 5 2:c.txt 6 6 6 "
            "5 2:a.txt 1:d 5 5 2:c.txt 6 6 6 "
            "5 2:a.txt 1:d 5 6 6 "
            "5 2:a.txt 6 ");
}

#ifndef _WIN32

TEST(Find, TellsTheKindsOfDrives) {
  Tree tree;
  FileFinderSelect(nullptr);
  CurrentFinder->pDrives = MemSplitInit(nullptr, "", 0, "", 0);
  StandIn<int(const char*, struct statfs64*)> system(
      "statfs64", [&](const char*, struct statfs64* facts) { return facts->f_type = 0x9660, 0; });
  const uint32_t kCdRom = 0x08000000;
  EXPECT_EQ(FileListDrives(nullptr, ~0u), 0u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(FileListDrives(tree.Path().c_str(), ~0u), kCdRom);
  EXPECT_EQ(FileListDrives(tree.Path().c_str(), ~kCdRom), 0u);
  EXPECT_EQ(FileListDrives(tree.Path("none").c_str(), ~0u), 0u);
}

#endif

}  // namespace
}  // namespace quern
