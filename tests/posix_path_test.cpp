// Full names, attributes and kinds of drives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "tests/support/call.h"
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
  EXPECT_EQ(GetFullPathNameA("/abc", 300, nullptr, &part), 5u);
  EXPECT_EQ(GetFullPathNameA("C:abc", 300, buffer, &part), 5u);
  EXPECT_STREQ(part, "abc");
  for (const char* none : {"", static_cast<const char*>(nullptr)}) {
    SetLastError(0);
    EXPECT_EQ(GetFullPathNameA(none, 300, buffer, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
    EXPECT_EQ(GetFileAttributesA(none), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  }
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

TEST(PosixPath, StandsInAFolderThatIsGone) {
  Tree tree;
  tree.Dir("gone");
  ASSERT_EQ(chdir(tree.Path("gone").c_str()), 0);
  tree.Remove("gone");
  EXPECT_EQ(Full("name"), "");
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Full("/a/../b"), "/b");
  char buffer[MAX_PATH];
  for (const char* folder : {"folder", "C:folder"}) {  // names that lead to no full one
    setenv("TMPDIR", folder, 1);
    EXPECT_EQ(GetTempPathA(sizeof buffer, buffer), 5u);
    EXPECT_STREQ(buffer, "/tmp/");
  }
  ASSERT_EQ(chdir("/"), 0);
}

TEST(PosixPath, NamesAProgramThatWasReplaced) {
  using Link = ssize_t(const char*, char*, size_t);
  Tree tree;
  tree.File("kept (deleted)");
  for (const std::string& link :
       {tree.Path("gone (deleted)"), tree.Path("kept (deleted)"), std::string("/any")}) {
    tavrix_test::StandIn<Link> self("readlink", [&](const char*, char* text, size_t) {
      return static_cast<ssize_t>(link.copy(text, link.size()));
    });
    char buffer[MAX_PATH];
    DWORD length = GetModuleFileNameA(nullptr, buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, length),
              link == tree.Path("gone (deleted)") ? tree.Path("gone") : link);
    EXPECT_EQ(GetModuleFileNameA(nullptr, buffer, 0), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  }
}

TEST(PosixPath, TellsKindsOfDrives) {
  using Read = ssize_t(int, void*, size_t);
  using Facts = int(const char*, struct statfs64*);
  const std::pair<UINT, std::vector<unsigned>> kRows[] = {
      {DRIVE_RAMDISK, {0x01021994, 0x858458F6}},
      {DRIVE_REMOTE, {0x6969, 0x517B, 0xFE534D42, 0xFF534D42, 0x73757245, 0x00C36400}},
      {DRIVE_CDROM, {0x9660, 0x15013346}},
      {DRIVE_FIXED, {0xEF53}},
  };
  for (const auto& [kind, types] : kRows) {
    for (unsigned type : types) {
      tavrix_test::StandIn<Facts> disk("statfs64", [&](const char*, struct statfs64* facts) {
        facts->f_type = static_cast<decltype(facts->f_type)>(type);
        return 0;
      });
      EXPECT_EQ(GetDriveTypeA("/"), kind) << std::hex << type;
    }
  }
  EXPECT_EQ(GetDriveTypeA("/proc"), DRIVE_FIXED) << "on no device";
  {
    tavrix_test::CallFault fault("statfs64", EIO);
    EXPECT_EQ(GetDriveTypeA("/"), DRIVE_UNKNOWN);
  }
  // The flag of a disk stands one folder above that of its partition, where there is none.
  int flags = open("/dev/zero", O_RDONLY);
  for (char flag : {'1', '0'}) {
    tavrix_test::StandIn<int(const char*, int, unsigned)> opens(
        "open", [flags, first = true](const char*, int, unsigned) mutable {
          return std::exchange(first, false) ? -1 : dup(flags);
        });
    tavrix_test::StandIn<Read> reads("read", [flag](int, void* bytes, size_t) {
      *static_cast<char*>(bytes) = flag;
      return ssize_t{1};
    });
    EXPECT_EQ(GetDriveTypeA("/"), flag == '1' ? DRIVE_REMOVABLE : DRIVE_FIXED);
  }
  close(flags);
}

TEST(PosixPath, TellsAttributesAndWhyThereAreNone) {
  Tree tree;
  tree.File("file");
  tree.File("fixed");
  tree.SetReadOnly("fixed", true);
  tree.Dir("folder");
  ASSERT_EQ(symlink("folder", tree.Path("link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", tree.Path("dead").c_str()), 0);
  ASSERT_EQ(symlink("file", tree.Path("alias").c_str()), 0);
  ASSERT_EQ(symlink("loop", tree.Path("loop").c_str()), 0);
  auto attributes = [&](const char* name) { return GetFileAttributesA(tree.Path(name).c_str()); };
  EXPECT_EQ(attributes("file"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(attributes("alias"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(attributes("fixed"), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(attributes("folder\\"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(attributes("link"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
  const std::pair<DWORD, std::vector<std::string>> kMissing[] = {
      {ERROR_FILE_NOT_FOUND,
       {tree.Path("missing/"), "missing", tree.Path("dead"), tree.Path("loop")}},
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
