// Mapped files: where views lie, what they outlive, growth, and a disk that is full.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/limit.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::CallFault;
using tavrix_test::Tree;

constexpr DWORD kGranule = 65536;
constexpr DWORD kReserve = PAGE_READONLY | SEC_RESERVE;

HANDLE Open(const std::string& name, DWORD access = GENERIC_READ | GENERIC_WRITE) {
  return CreateFileA(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                     0, nullptr);
}

HANDLE Mapping(HANDLE file, DWORD protection, DWORD size = 0) {
  return CreateFileMappingA(file, nullptr, protection, 0, size, nullptr);
}

char* View(HANDLE mapping, DWORD access, void* base = nullptr) {
  return static_cast<char*>(MapViewOfFileEx(mapping, access, 0, 0, 0, base));
}

// A view whose mapping has no handle any more; null with the last error.
char* ViewOf(HANDLE file, DWORD protection, DWORD size, DWORD access, void* base = nullptr) {
  HANDLE mapping = Mapping(file, protection, size);
  if (!mapping) return nullptr;
  char* view = View(mapping, access, base);
  CloseHandle(mapping);
  return view;
}

bool CutTo(HANDLE file, LONG size) {
  SetFilePointer(file, size, nullptr, FILE_BEGIN);
  return SetEndOfFile(file);
}

TEST(PosixMapping, PlacesViewsWhereTheyAreAskedFor) {
  Tree tree;
  HANDLE file = Open(tree.Path("file"));
  HANDLE mapping = Mapping(file, PAGE_READWRITE, 200'000);
  std::vector<char*> views;
  for (DWORD size : {1u, 4096u, kGranule, kGranule + 1, 200'000u, 1u, 3 * kGranule}) {
    views.push_back(ViewOf(file, PAGE_READWRITE, size, FILE_MAP_WRITE));
    ASSERT_TRUE(views.back());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(views.back()) % kGranule, 0u) << size;
    views.back()[size - 1] = 'x';
  }
  for (char* view : views) EXPECT_TRUE(UnmapViewOfFile(view)) << "each has a place of its own";
  char* view = View(mapping, FILE_MAP_READ);
  for (char* bad :
       {view, view + kGranule, view + 2 * kGranule, view + 4096, view + 8 * kGranule + 1,
        reinterpret_cast<char*>(~uintptr_t{0} - kGranule + 1)}) {
    SetLastError(0);
    EXPECT_EQ(View(mapping, FILE_MAP_READ, bad), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS) << bad - view;
  }
  EXPECT_EQ(view[0] + view[200'000 - 1], 'x' + 'x') << "the attempts left it alone";
  EXPECT_FALSE(UnmapViewOfFile(view + kGranule));
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
  EXPECT_EQ(View(mapping, FILE_MAP_READ, view), view) << "free again";
  // On a kernel that takes the address as a wish, and has no memory at last: nothing stays mapped.
  {
    using Map = void*(void*, size_t, int, int, int, off_t);
    size_t mapped = 0;
    tavrix_test::StandIn<Map> maps(
        "mmap", [&mapped](void*, size_t size, int access, int flags, int descriptor, off_t offset) {
          if (flags & MAP_FIXED) return errno = ENOMEM, MAP_FAILED;
          mapped += size;
          return mmap(nullptr, size, access, flags & ~MAP_FIXED_NOREPLACE, descriptor, offset);
        });
    tavrix_test::StandIn<int(void*, size_t)> unmaps("munmap", [&mapped](void* at, size_t size) {
      mapped -= size;
      return munmap(at, size);
    });
    EXPECT_EQ(View(mapping, FILE_MAP_READ, view + 64 * kGranule), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(View(mapping, FILE_MAP_READ), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(mapped, 0u);
  }
  for (auto [number, error] :
       {std::pair(EPERM, ERROR_INVALID_ADDRESS), std::pair(EINVAL, ERROR_INVALID_ADDRESS),
        std::pair(EAGAIN, ERROR_NOT_ENOUGH_MEMORY)}) {
    CallFault fault("mmap", number);
    EXPECT_EQ(View(mapping, FILE_MAP_READ, view + 64 * kGranule), nullptr);
    EXPECT_EQ(GetLastError(), error);
  }
}

TEST(PosixMapping, ViewsOutliveHandlesAndNothingElseDoes) {
  Tree tree;
  tree.File("file", "some text");
  CloseHandle(Open(tree.Path("file")));  // the table of handles stays
  int64_t blocks = tavrix_test::LiveBlocks();
  int64_t descriptors = tavrix_test::OpenDescriptors();
  HANDLE file = Open(tree.Path("file"), GENERIC_READ);
  HANDLE mapping = Mapping(file, PAGE_READONLY);
  EXPECT_TRUE(CloseHandle(file));
  char* first = View(mapping, FILE_MAP_READ);
  char* second = View(mapping, FILE_MAP_READ);
  EXPECT_TRUE(CloseHandle(mapping));
  EXPECT_EQ(tavrix_test::OpenDescriptors(), descriptors);
  tree.Remove("file");
  EXPECT_TRUE(UnmapViewOfFile(first));
  EXPECT_STREQ(second, "some text");
  EXPECT_TRUE(UnmapViewOfFile(second));
  EXPECT_TRUE(IsBadReadPtr(second, 1));
  EXPECT_EQ(tavrix_test::LiveBlocks(), blocks);
}

TEST(PosixMapping, RefusesWhatAFileDoesNotAllow) {
  Tree tree;
  tree.File("file", "text");
  HANDLE both = Open(tree.Path("file")), empty = Open(tree.Path("empty"));
  HANDLE reader = Open(tree.Path("file"), GENERIC_READ);
  HANDLE writer = Open(tree.Path("file"), GENERIC_WRITE);
  struct {
    HANDLE file;
    DWORD protection, size, error;
  } const kRows[] = {{nullptr, PAGE_READONLY, 0, ERROR_INVALID_HANDLE},
                     {both, 3, 0, ERROR_INVALID_PARAMETER},
                     {reader, PAGE_READWRITE, 0, ERROR_ACCESS_DENIED},
                     {writer, PAGE_READONLY, 0, ERROR_ACCESS_DENIED},
                     {writer, PAGE_READWRITE, 0, ERROR_ACCESS_DENIED},
                     {empty, PAGE_READWRITE, 0, ERROR_FILE_INVALID},
                     {reader, PAGE_READONLY, 5, ERROR_NOT_ENOUGH_MEMORY},
                     {both, PAGE_WRITECOPY, 5, ERROR_NOT_ENOUGH_MEMORY},
                     {INVALID_HANDLE_VALUE, kReserve, 0, ERROR_INVALID_PARAMETER}};
  for (const auto& row : kRows) {
    SetLastError(0);
    EXPECT_EQ(Mapping(row.file, row.protection, row.size), nullptr) << &row - kRows;
    EXPECT_EQ(GetLastError(), row.error) << &row - kRows;
  }
  for (DWORD protection : {PAGE_READONLY, PAGE_WRITECOPY}) {
    EXPECT_EQ(ViewOf(reader, protection, 0, FILE_MAP_WRITE), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(IsBadWritePtr(ViewOf(reader, protection, 0, FILE_MAP_READ), 1));
    char* copy = ViewOf(reader, protection, 0, FILE_MAP_COPY);
    ASSERT_TRUE(copy);
    copy[0] = 'n';
    EXPECT_STREQ(copy, "next");
  }
  EXPECT_EQ(ViewOf(reader, PAGE_READONLY, 0, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  HANDLE mapping = Mapping(reader, PAGE_READONLY);
  EXPECT_FALSE(CreateFileMappingA(reader, nullptr, PAGE_READONLY, 1, 0, nullptr));
  EXPECT_FALSE(MapViewOfFileEx(mapping, FILE_MAP_READ, 1, 0, 0, nullptr) ||
               MapViewOfFileEx(mapping, FILE_MAP_READ, 0, kGranule, 0, nullptr) ||
               MapViewOfFileEx(mapping, FILE_MAP_READ, 0, 0, 1, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(View(nullptr, FILE_MAP_READ), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(tree.Read("file"), "text") << "copies are their own";
}

TEST(PosixMapping, CutsNoFileBelowWhatIsMapped) {
  Tree tree;
  tree.File("file", std::string(10'000, 'x'));
  HANDLE file = Open(tree.Path("file"));
  HANDLE mapping = Mapping(file, PAGE_READONLY, 9'000);
  char* view = nullptr;
  for (int holder = 0; holder < 2; ++holder) {  // the mapping, then a view of it
    EXPECT_FALSE(CutTo(file, 8'999));
    EXPECT_EQ(GetLastError(), ERROR_USER_MAPPED_FILE);
    for (DWORD disposition : {CREATE_ALWAYS, TRUNCATE_EXISTING}) {
      EXPECT_EQ(CreateFileA(tree.Path("file").c_str(), GENERIC_WRITE, 3, nullptr, disposition, 0,
                            nullptr),
                INVALID_HANDLE_VALUE);
      EXPECT_EQ(GetLastError(), ERROR_USER_MAPPED_FILE);
    }
    EXPECT_FALSE(OpenStream(tree.Path("file").c_str(), "wb"));
    EXPECT_EQ(GetFileSize(file, nullptr), 10'000u - static_cast<DWORD>(holder) * 1'000);
    EXPECT_TRUE(CutTo(file, 9'000));
    if (!view) view = View(mapping, FILE_MAP_READ);
    CloseHandle(mapping);
  }
  {
    CallFault untold("lseek64", EIO);
    EXPECT_FALSE(CutTo(file, 8'999));
    EXPECT_EQ(GetLastError(), ERROR_USER_MAPPED_FILE);
    EXPECT_EQ(Mapping(file, PAGE_READONLY), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
  }
  ASSERT_EQ(truncate(tree.Path("file").c_str(), 100), 0);  // as another process may
  EXPECT_TRUE(CutTo(file, 5'000)) << "cuts nothing off";
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_TRUE(CutTo(file, 0));
}

TEST(PosixMapping, SharesMemoryBetweenViews) {
  HANDLE mapping = Mapping(INVALID_HANDLE_VALUE, PAGE_READWRITE, 10'000);
  char* first = View(mapping, FILE_MAP_WRITE);
  strcpy(first + 9'000, "text");
  EXPECT_TRUE(UnmapViewOfFile(first));
  char* second = View(mapping, FILE_MAP_READ);
  CloseHandle(mapping);
  EXPECT_STREQ(second + 9'000, "text");
  EXPECT_TRUE(UnmapViewOfFile(second));
}

// Errors in the middle of a growth, also of the way around what a file system does not know.
TEST(PosixMapping, EveryStepOfAGrowthMayFail) {
  Tree tree;
  HANDLE file = Open(tree.Path("file"));
  for (int unknown : {0, EOPNOTSUPP, ENOSYS}) {
    for (const char* call : {"fallocate64", "lseek64", "write", "ftruncate64"}) {
      EXPECT_TRUE(CutTo(file, 0));
      CallFault first(unknown ? "fallocate64" : "", unknown), second(call, ENOSPC);
      char* view = ViewOf(file, PAGE_READWRITE, 5'000, FILE_MAP_WRITE);
      if (view) {
        EXPECT_FALSE(second.Hit());
        view[4'999] = 'x';
        EXPECT_TRUE(UnmapViewOfFile(view));
      } else {
        EXPECT_EQ(GetLastError(), ERROR_DISK_FULL) << call;
        EXPECT_EQ(std::filesystem::file_size(tree.root() / "file"), 0u) << call;
      }
    }
  }
  // A growth that fails and cannot be taken back.
  CallFault grows("fallocate64", ENOSPC), shrinks("ftruncate64", EROFS);
  EXPECT_EQ(Mapping(file, PAGE_READWRITE, 6'000), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_WRITE_PROTECT);
}

constexpr int kSkipped = 77;

// Runs checks in a child, for which signals mean death, and gives what it ended with.
template <typename Checks>
int ChecksInChild(Checks checks) {
  fflush(nullptr);
  return tavrix_test::InChild(
      [&] { return checks() ? static_cast<int>(testing::Test::HasFailure()) : kSkipped; });
}

// Mounts a file system of a kind in a name space of this process; false when that is not allowed.
bool Mount(const char* kind, const char* options, const std::string& folder) {
  std::string user = "0 " + std::to_string(getuid()) + " 1";
  std::string group = "0 " + std::to_string(getgid()) + " 1";
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/uid_map") << user;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/gid_map") << group;
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", folder.c_str(), kind, 0, options) == 0;
}

// Lets a file grow until there is no room. What it then has can be written to, and is as it was.
void ExpectGrowthToTheEnd(const std::string& name) {
  HANDLE file = Open(name);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  DWORD size = 0;
  for (char* view;; UnmapViewOfFile(view)) {
    view = ViewOf(file, PAGE_READWRITE, size + 100'000, FILE_MAP_WRITE);
    if (!view) break;
    size += 100'000;
    ASSERT_LT(size, 2'000'000u) << "no room for that";
    memset(view + size - 100'000, static_cast<int>(size / 100'000), 100'000);
  }
  EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
  EXPECT_EQ(GetFileSize(file, nullptr), size);
  ASSERT_GE(size, 500'000u);
  char* view = ViewOf(file, PAGE_READWRITE, 0, FILE_MAP_WRITE);
  ASSERT_TRUE(view);
  for (DWORD i = 0; i < size; ++i) ASSERT_EQ(view[i]++, static_cast<char>(i / 100'000 + 1)) << i;
  UnmapViewOfFile(view);
  EXPECT_TRUE(CutTo(file, 0));
  CloseHandle(file);
}

TEST(PosixMapping, MeetsTheLimitOfAFile) {
  Tree tree;
  auto checks = [&] {
    tavrix_test::Limit limit(RLIMIT_FSIZE, 1'000'000);
    ExpectGrowthToTheEnd(tree.Path("file"));
    HANDLE file = Open(tree.Path("file"));
    EXPECT_FALSE(CutTo(file, 1'000'001));
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_EQ(Mapping(INVALID_HANDLE_VALUE, PAGE_READWRITE, 1'000'001), nullptr);
    return true;
  };
  EXPECT_EQ(ChecksInChild(checks), 0);
}

TEST(PosixMapping, MeetsAFullDisk) {
  Tree tree;
  auto checks = [&] {
    if (!Mount("tmpfs", "size=1m", tree.Path())) return false;
    ExpectGrowthToTheEnd(tree.Path("file"));
    // A file may have its size without the room for it.
    HANDLE file = Open(tree.Path("holes"));
    DWORD written;
    EXPECT_TRUE(WriteFile(file, "start", 5, &written, nullptr));
    EXPECT_TRUE(CutTo(file, 2'000'000));
    EXPECT_EQ(Mapping(file, PAGE_READWRITE), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_EQ(GetFileSize(file, nullptr), 2'000'000u);
    char* view = ViewOf(file, PAGE_READONLY, 0, FILE_MAP_READ);
    EXPECT_STREQ(view, "start");
    UnmapViewOfFile(view);
    EXPECT_TRUE(CutTo(file, 900'000));
    view = ViewOf(file, PAGE_READWRITE, 0, FILE_MAP_WRITE);
    memset(view, 'x', 900'000);
    return true;
  };
  int result = ChecksInChild(checks);
  if (result == kSkipped) GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(result, 0);
}

TEST(PosixMapping, GrowsWhereTheFileSystemReservesNothing) {
  Tree tree;
  auto checks = [&] {
    if (!Mount("ramfs", nullptr, tree.Path())) return false;
    tavrix_test::Limit limit(RLIMIT_FSIZE, 950'000);  // in the middle of a growth
    ExpectGrowthToTheEnd(tree.Path("file"));
    return true;
  };
  int result = ChecksInChild(checks);
  if (result == kSkipped) GTEST_SKIP() << "no file system can be mounted here";
  EXPECT_EQ(result, 0);
}

}  // namespace
