// The enumeration where the system refuses: descriptors, permissions, loops of links.

#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;
using Names = std::vector<std::string>;

Names List(const std::string& roots, uint32_t flags) {
  Names names;
  char name[262];
  while (XFileList(name, roots.c_str(), nullptr, flags)) names.push_back(name);
  return names;
}

TEST(PosixList, SixteenDescriptorsAreEnough) {
  Tree tree;
  std::string dir;
  for (int level = 0; level < 30; ++level) {
    for (const char* file : {"a", "b"}) tree.File(dir + file);
    tree.File(dir + "side/c");
    dir += "d/";
  }
  Names wanted = List(tree.Path() + "/*", FL_RECURSE);
  ASSERT_EQ(wanted.size(), 90u);
  {
    tavrix_test::Limit few(RLIMIT_NOFILE, 16);
    EXPECT_EQ(List(tree.Path() + "/*", FL_RECURSE), wanted);
  }
  {
    tavrix_test::Limit none(RLIMIT_NOFILE, 3);  // every directory is as good as unreadable
    EXPECT_EQ(List(tree.Path() + "/*", FL_RECURSE), Names{});
  }
  EXPECT_EQ(quern::ErrCurrent, nullptr);
}

TEST(PosixList, LinksToDirectoriesAreListedAndNotEntered) {
  Tree tree;
  tree.File("a/1");
  std::filesystem::create_directory_symlink(tree.root(), tree.root() / "a" / "loop");
  EXPECT_EQ(List(tree.Path() + "/*", FL_RECURSE), (Names{tree.Path("a/1"), tree.Path("a/loop")}));
  EXPECT_EQ(List(tree.Path("a/loop"), FL_DIRS | FL_AS_FOUND).size(),
            3u);  // as a root it is a directory
  EXPECT_EQ(List(tree.Path("a/loop/a") + "/1", 0), (Names{tree.Path("a/loop/a/1")}));
}

}  // namespace
