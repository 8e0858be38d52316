// Full names, attributes and kinds of drives.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::Tree;

std::string Full(const std::string& name) {
  char buffer[2 * PATH_MAX];
  DWORD length = GetFullPathNameA(name.c_str(), sizeof buffer, buffer, nullptr);
  return std::string(buffer, length);
}

std::string Home() {
  char text[PATH_MAX];
  return getcwd(text, sizeof text) ? text : "";
}

// The rules with vectors of components.
std::string ModelFull(const std::string& name, const std::string& home) {
  auto separates = [](char c) { return c == '/' || c == '\\'; };
  std::string text = separates(name[0]) ? name : home + "/" + name;
  std::vector<std::string> components;
  std::string component;
  for (char c : text + "/") {
    if (!separates(c)) {
      component += c;
      continue;
    }
    if (component == ".." && !components.empty()) components.pop_back();
    if (component != "" && component != "." && component != "..") components.push_back(component);
    component.clear();
  }
  std::string result;
  for (const std::string& each : components) result += "/" + each;
  return result.empty() || separates(name.back()) ? result + "/" : result;
}

TEST(PosixPath, MakesNamesFull) {
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(Full("a"), "/usr/a");
  EXPECT_EQ(Full("."), "/usr");
  EXPECT_EQ(Full(".."), "/");
  EXPECT_EQ(Full("../.."), "/");
  EXPECT_EQ(Full("a\\b/"), "/usr/a/b/");
  EXPECT_EQ(Full("//a//b/./c/../d"), "/a/b/d");
  EXPECT_EQ(Full("/.hidden/..more"), "/.hidden/..more");
  EXPECT_EQ(Full("C:\\a\\..\\b"), "C:\\a\\..\\b");
  EXPECT_EQ(Full("\\\\server\\share\\..\\x"), "\\\\server\\share\\..\\x");
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(Full("a"), "/a");
  EXPECT_EQ(Full("."), "/");
}

TEST(PosixPath, AgreesWithTheModelOnRandomNames) {
  std::mt19937 random(4);
  ASSERT_EQ(chdir("/usr"), 0);
  constexpr const char* kPieces[] = {"/", "\\", ".", "..", "a", "long component", "...", "/", "/"};
  for (int i = 0; i < 100000; ++i) {
    std::string name;
    for (int pieces = static_cast<int>(random() % 9) + 1; pieces > 0; --pieces) {
      name += kPieces[random() % std::size(kPieces)];
    }
    if (name.rfind("\\\\", 0) == 0) continue;
    ASSERT_EQ(Full(name), ModelFull(name, "/usr")) << name;
  }
}

TEST(PosixPath, ObeysTheBuffer) {
  char buffer[300];
  memset(buffer, 'x', sizeof buffer);
  char* part = buffer;
  EXPECT_EQ(GetFullPathNameA("/abc", 4, buffer, &part), 5u);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_EQ(GetFullPathNameA("/abc", 5, buffer, &part), 4u);
  EXPECT_EQ(part, buffer + 1);
  EXPECT_EQ(GetFullPathNameA("/abc/", 300, buffer, &part), 5u);
  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(GetFullPathNameA("C:abc", 300, buffer, &part), 5u);
  EXPECT_STREQ(part, "abc");
  EXPECT_EQ(GetFullPathNameA("C:", 300, buffer, &part), 2u);
  EXPECT_EQ(part, nullptr);
  SetLastError(0);
  EXPECT_EQ(GetFullPathNameA("", 300, buffer, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
  EXPECT_EQ(GetFullPathNameA(std::string(260, 'a').c_str(), 300, buffer, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
  // A name within the limit whose full form is not.
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(GetFullPathNameA(std::string(259, 'a').c_str(), 260, buffer, nullptr), 265u);
  EXPECT_EQ(GetFullPathNameA(std::string(259, 'a').c_str(), 300, buffer, nullptr), 264u);
}

TEST(PosixPath, StandsInADeepFolder) {
  Tree tree;
  ASSERT_EQ(chdir(tree.Path().c_str()), 0);
  std::string folder(200, 'd');
  for (int i = 0; i < 5; ++i) {
    std::filesystem::create_directory(folder);
    ASSERT_EQ(chdir(folder.c_str()), 0);
  }
  std::string full = Full("name");
  EXPECT_EQ(full, Home() + "/name");
  EXPECT_GT(full.size(), 1000u);
  WIN32_FIND_DATAA data;
  ASSERT_EQ(symlink(".", "here"), 0);
  HANDLE search = FindFirstFileA("her?", &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE) << "names count as the caller spells them";
  EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_TRUE(FindClose(search));
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
  EXPECT_EQ(GetFileAttributesA(tree.Path("file").c_str()), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesA(tree.Path("fixed").c_str()),
            FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(GetFileAttributesA((tree.Path("folder") + "\\").c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesA(tree.Path("link").c_str()),
            FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);

  auto error = [&](const std::string& path) -> DWORD {
    SetLastError(0);
    EXPECT_EQ(GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES) << path;
    return GetLastError();
  };
  EXPECT_EQ(error(tree.Path("missing")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error(tree.Path("missing/")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error("missing"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error(tree.Path("dead")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error(tree.Path("missing/name")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(error(tree.Path("file/name")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(error(tree.Path("file/")), ERROR_INVALID_NAME);
  EXPECT_EQ(error(tree.Path("*.txt")), ERROR_INVALID_NAME);
  EXPECT_EQ(error(""), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(error(std::string(260, 'a')), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_EQ(error(std::string(256, 'a')), ERROR_FILENAME_EXCED_RANGE);
}

TEST(PosixPath, TellsKindsOfDrives) {
  Tree tree;
  tree.File("file");
  SetLastError(77);
  EXPECT_EQ(GetDriveTypeA(tree.Path("file").c_str()), DRIVE_NO_ROOT_DIR);
  EXPECT_EQ(GetDriveTypeA(tree.Path("missing").c_str()), DRIVE_NO_ROOT_DIR);
  EXPECT_EQ(GetDriveTypeA(""), DRIVE_NO_ROOT_DIR);
  EXPECT_EQ(GetDriveTypeA("C:\\"), DRIVE_NO_ROOT_DIR);
  EXPECT_GE(GetDriveTypeA("/"), DRIVE_REMOVABLE);
  EXPECT_GE(GetDriveTypeA(nullptr), DRIVE_REMOVABLE);
  EXPECT_EQ(GetLastError(), 77u);
}

}  // namespace
