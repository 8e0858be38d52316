// Temporary names, copies and removal.
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

DWORD Copy(const std::string& from, const std::string& to, BOOL failIfExists = FALSE) {
  SetLastError(0);
  return CopyFileA(from.c_str(), to.c_str(), failIfExists) ? 0 : GetLastError();
}

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

TEST(PosixTemporary, CopiesContentsPermissionsAndTimes) {
  Tree tree;
  std::string text;
  for (int i = 0; text.size() < 300'000; ++i) text += std::to_string(i);
  tree.File("from", text);
  tree.File("to", text + text);
  ASSERT_EQ(chmod(tree.Path("from").c_str(), 0640), 0);
  timespec times[] = {{1'000'000'007, 300}, {1'000'000'000, 123'456'700}};
  ASSERT_EQ(utimensat(AT_FDCWD, tree.Path("from").c_str(), times, 0), 0);
  for (const char* to : {"new", "to"}) {
    EXPECT_EQ(Copy(tree.Path("from"), tree.Path(to)), 0u);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_TRUE(tree.Read(to) == text) << to;
    struct stat facts;
    ASSERT_EQ(stat(tree.Path(to).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640u) << to;
    EXPECT_EQ(facts.st_mtim.tv_sec, times[1].tv_sec) << to;
    EXPECT_EQ(facts.st_mtim.tv_nsec, times[1].tv_nsec) << to;
  }
  // From another file system, and a file that does not know its size.
  EXPECT_EQ(Copy("/proc/version", tree.Path("version")), 0u);
  std::ifstream version("/proc/version");
  EXPECT_EQ(tree.Read("version"), std::string(std::istreambuf_iterator<char>(version), {}));
  if (std::filesystem::is_directory("/dev/shm") && access("/dev/shm", W_OK) == 0) {
    char far[MAX_PATH];
    ASSERT_NE(GetTempFileNameA("/dev/shm", "tvx", 0, far), 0u);
    EXPECT_EQ(Copy(tree.Path("from"), far), 0u);
    EXPECT_EQ(Copy(far, tree.Path("back"), TRUE), 0u);
    EXPECT_TRUE(tree.Read("back") == text);
    EXPECT_EQ(Delete(far), 0u);
  }
}

TEST(PosixTemporary, TellsWhyItCouldNotCopy) {
  Tree tree;
  tree.File("from", std::string(300'000, 'x'));
  tree.File("to", "old");
  std::filesystem::create_symlink("from", tree.root() / "link");
  EXPECT_EQ(Copy(tree.Path("none"), tree.Path("to")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("no/file")), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("to"), TRUE), ERROR_FILE_EXISTS);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path()), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Copy(tree.Path(), tree.Path("to")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("from")), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("link")), ERROR_SHARING_VIOLATION);
  EXPECT_EQ(tree.Read("from").size(), 300'000u) << "not copied to itself";
  HANDLE reader = CreateFileA(tree.Path("to").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("to")), ERROR_SHARING_VIOLATION);
  CloseHandle(reader);
  tree.SetReadOnly("to", true);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("to")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(tree.Read("to"), "old");
  tree.SetReadOnly("to", false);
  // No signal ends the process at the limit of a file.
  tavrix_test::Limit limit(RLIMIT_FSIZE, 100'000);
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("half")), ERROR_DISK_FULL);
  EXPECT_FALSE(tree.Exists("half"));
  EXPECT_EQ(Copy(tree.Path("from"), tree.Path("to")), ERROR_DISK_FULL);
  EXPECT_TRUE(tree.Exists("to"));
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
