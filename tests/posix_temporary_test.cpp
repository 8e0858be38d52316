// Temporary names and removal.
#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;

TEST(PosixTemporary, MakesFilesWithNamesOfTheirOwn) {
  Tree tree;
  tree.Dir("dir");
  std::set<std::string> names;
  for (int i = 0; i < 300; ++i) {
    // As the library calls it: the name comes directly behind the folder's text.
    char block[2 * MAX_PATH];
    strcpy(block, tree.Path("dir").c_str());
    char* name = block + strlen(block);
    UINT number = GetTempFileNameA(block, i % 2 ? "prefix" : nullptr, 0, name);
    ASSERT_NE(number, 0u);
    char expected[16];
    snprintf(expected, sizeof expected, "/%s%X.tmp", i % 2 ? "pre" : "", number);
    EXPECT_EQ(name, tree.Path("dir") + expected);
    EXPECT_TRUE(std::filesystem::is_empty(name));
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 300u);
  char name[MAX_PATH];
  EXPECT_EQ(GetTempFileNameA("/a\\b/", "x", 0x12345, name), 0x2345u);
  EXPECT_STREQ(name, "/a/b/x2345.tmp");
  for (const char* folder : {"none", "dir/none", "file", ""}) {
    tree.File("file");
    std::string path = *folder ? tree.Path(folder) : "";
    EXPECT_EQ(GetTempFileNameA(path.c_str(), "x", 0, name), 0u) << folder;
    EXPECT_EQ(GetLastError(), ERROR_DIRECTORY) << folder;
  }
  EXPECT_EQ(GetTempFileNameA(nullptr, "x", 1, name), 0u);
  EXPECT_EQ(GetTempFileNameA("/", "x", 1, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  for (auto [number, error] :
       {std::pair(EEXIST, ERROR_FILE_EXISTS), std::pair(EACCES, ERROR_ACCESS_DENIED)}) {
    tavrix_test::CallFault fault("open", number);  // EEXIST: under every number
    EXPECT_EQ(GetTempFileNameA(tree.Path("dir").c_str(), "x", 0, name), 0u);
    EXPECT_EQ(GetLastError(), error);
  }
  // The longest name has 259 bytes.
  EXPECT_EQ(GetTempFileNameA(std::string(247, 'n').c_str(), "pre", 0xFFFF, name), 0xFFFFu);
  EXPECT_EQ(strlen(name), 259u);
  for (size_t length : {248, 259, 260, 500}) {
    EXPECT_EQ(GetTempFileNameA(std::string(length, 'n').c_str(), "pre", 0xFFFF, name), 0u);
    EXPECT_EQ(GetLastError(), ERROR_BUFFER_OVERFLOW) << length;
  }
}

}  // namespace
