// Temporary names and removal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>

#include "platform/win32.h"
#include "tests/support/call.h"
#include "tests/support/limit.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;

DWORD Delete(const std::string& name) { return DeleteFileA(name.c_str()) ? 0 : GetLastError(); }

TEST(PosixTemporary, NamesTheFolder) {
  char buffer[300];
  auto folder = [&](const char* variable) {
    variable ? setenv("TMPDIR", variable, 1) : unsetenv("TMPDIR");
    DWORD length = GetTempPathA(sizeof buffer, buffer);
    return std::string(buffer, length);
  };
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(folder(nullptr), "/tmp/");
  EXPECT_EQ(folder(""), "/tmp/");
  EXPECT_EQ(folder("/var//tmp"), "/var/tmp/");
  EXPECT_EQ(folder("/var/tmp/"), "/var/tmp/");
  EXPECT_EQ(folder("/"), "/");
  EXPECT_EQ(folder("share"), "/usr/share/");
  EXPECT_EQ(folder(std::string(300, 'n').c_str()), "/tmp/");
  strcpy(buffer, "as it was");
  EXPECT_EQ(GetTempPathA(5, buffer), 6u);
  EXPECT_STREQ(buffer, "as it was");
  EXPECT_EQ(GetTempPathA(6, nullptr), 6u);
  EXPECT_EQ(GetTempPathA(6, buffer), 5u);
}

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

TEST(PosixTemporary, DeletesFilesThatNobodyHolds) {
  Tree tree;
  tree.File("dir/file", "text");
  EXPECT_EQ(Delete(tree.Path("dir")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Delete(tree.Path("dir/none")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Delete(tree.Path("none/file")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Delete(std::string(260, 'n')), ERROR_FILENAME_EXCED_RANGE);
  tree.SetReadOnly("dir/file", true);
  EXPECT_EQ(Delete(tree.Path("dir/file")), ERROR_ACCESS_DENIED);
  tree.SetReadOnly("dir/file", false);
  HANDLE file = CreateFileA(tree.Path("dir/file").c_str(), GENERIC_READ, 3, nullptr, OPEN_EXISTING,
                            0, nullptr);
  HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
  EXPECT_EQ(Delete(tree.Path("dir/file")), ERROR_SHARING_VIOLATION);
  CloseHandle(file);
  EXPECT_EQ(Delete(tree.Path("dir/file")), ERROR_ACCESS_DENIED) << "mapped";
  CloseHandle(mapping);
  std::filesystem::create_symlink("file", tree.root() / "dir/link");
  EXPECT_EQ(Delete(tree.Path("dir/link")), 0u);
  EXPECT_TRUE(tree.Exists("dir/file"));
  EXPECT_EQ(Delete(tree.Path("dir\\file")), 0u);
  EXPECT_FALSE(tree.Exists("dir/file"));
}

}  // namespace
