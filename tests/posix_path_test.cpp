// Full names, attributes and kinds of drives.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "tests/support/name_model.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;

std::string Full(const std::string& name) {
  char buffer[2 * PATH_MAX];
  DWORD length = GetFullPathNameA(name.c_str(), sizeof buffer, buffer, nullptr);
  return std::string(buffer, length);
}

TEST(PosixPath, MakesNamesFull) {
  std::mt19937 random(4);
  constexpr const char* kPieces[] = {"/",   "\\", ".", "..", "a", "long component",
                                     "...", "C:", "/", "/"};
  for (const char* home : {"/usr", "/"}) {
    ASSERT_EQ(chdir(home), 0);
    for (int i = 0; i < 50000; ++i) {
      std::string name;
      for (int pieces = static_cast<int>(random() % 9) + 1; pieces > 0; --pieces) {
        name += kPieces[random() % std::size(kPieces)];
      }
      ASSERT_EQ(Full(name), tavrix_test::ModelFull(name, home)) << name;
    }
  }
  EXPECT_EQ(Full("//a//b/./c/../d"), "/a/b/d");
  EXPECT_EQ(Full("a\\..\\.."), "/");
}

TEST(PosixPath, ObeysTheBuffer) {
  char buffer[300] = "x";
  char* part = buffer;
  EXPECT_EQ(GetFullPathNameA("/abc", 4, buffer, &part), 5u);
  EXPECT_STREQ(buffer, "x");
  EXPECT_EQ(GetFullPathNameA("/abc", 5, buffer, &part), 4u);
  EXPECT_EQ(part, buffer + 1);
  for (const char* open : {"/abc/", "C:"}) {
    GetFullPathNameA(open, 300, buffer, &part);
    EXPECT_EQ(part, nullptr) << open;
  }
  EXPECT_EQ(GetFullPathNameA("C:abc", 300, buffer, &part), 5u);
  EXPECT_STREQ(part, "abc");
  EXPECT_EQ(GetFullPathNameA("", 300, buffer, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
  EXPECT_EQ(Full(std::string(260, 'a')), "");
  EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
  // A name within the limit whose full form is not.
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(Full(std::string(259, 'a')).size(), 264u);
}

TEST(PosixPath, StandsInADeepFolder) {
  Tree tree;
  std::string full = tree.Path(), folder(200, 'd');
  for (int i = 0; i < 5; ++i) full += "/" + folder;
  std::filesystem::create_directories(full);
  ASSERT_EQ(chdir(full.c_str()), 0);
  EXPECT_EQ(Full("name"), full + "/name");
  WIN32_FIND_DATAA data;
  ASSERT_EQ(symlink(".", "here"), 0);
  EXPECT_TRUE(FindClose(FindFirstFileA("her?", &data))) << "names count as the caller spells them";
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT);
  ASSERT_EQ(chdir("/"), 0);
}

TEST(PosixPath, TellsAttributesAndWhyThereAreNone) {
  Tree tree;
  tree.File("file");
  tree.File("fixed");
  tree.SetReadOnly("fixed", true);
  tree.Dir("folder");
  ASSERT_EQ(symlink("folder", tree.Path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", tree.Path("dead").c_str()), 0);
  auto attributes = [&](const char* name) { return GetFileAttributesA(tree.Path(name).c_str()); };
  EXPECT_EQ(attributes("file"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(attributes("fixed"), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(attributes("folder\\"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(attributes("link"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
  const std::pair<DWORD, std::vector<std::string>> kMissing[] = {
      {ERROR_FILE_NOT_FOUND, {tree.Path("missing/"), "missing", tree.Path("dead")}},
      {ERROR_PATH_NOT_FOUND, {tree.Path("missing/name"), tree.Path("file/name"), ""}},
      {ERROR_INVALID_NAME, {tree.Path("file/"), tree.Path("*.txt")}},
      {ERROR_FILENAME_EXCED_RANGE, {std::string(260, 'a'), std::string(256, 'a')}},
  };
  for (const auto& [error, names] : kMissing) {
    for (const std::string& name : names) {
      EXPECT_EQ(GetFileAttributesA(name.c_str()), INVALID_FILE_ATTRIBUTES) << name;
      EXPECT_EQ(GetLastError(), error) << name;
    }
  }
  SetLastError(77);
  for (const std::string& name : {tree.Path("file"), std::string(), std::string("C:\\")}) {
    EXPECT_EQ(GetDriveTypeA(name.c_str()), DRIVE_NO_ROOT_DIR) << name;
  }
  EXPECT_GE(GetDriveTypeA("/"), DRIVE_REMOVABLE);
  EXPECT_GE(GetDriveTypeA(nullptr), DRIVE_REMOVABLE);
  EXPECT_EQ(GetLastError(), 77u);
}

}  // namespace
