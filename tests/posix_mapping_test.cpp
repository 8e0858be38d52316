// Mapped files and probes of memory: where views lie, and what is not allowed.
#include "tests/support/test.h"

namespace {

using tavrix_test::Tree;

constexpr DWORD kGranule = 65536;

HANDLE Open(const std::string& name, DWORD access = GENERIC_READ | GENERIC_WRITE) {
  return CreateFileA(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                     0, nullptr);
}

// A view whose mapping has no handle any more; null with the last error.
char* View(HANDLE file, DWORD protection, DWORD size, DWORD access, void* base = nullptr) {
  SetLastError(0);
  HANDLE mapping = CreateFileMappingA(file, nullptr, protection, 0, size, nullptr);
  if (!mapping) return nullptr;
  void* view = MapViewOfFileEx(mapping, access, 0, 0, 0, base);
  CloseHandle(mapping);
  return static_cast<char*>(view);
}

TEST(PosixMapping, PlacesViewsWhereTheyAreAskedFor) {
  Tree tree;
  HANDLE file = Open(tree.Path("file"));
  tavrix_test::CallFault fault("fallocate64", EOPNOTSUPP);  // as some file systems have it
  std::vector<char*> views;
  for (DWORD size : {1u, 4096u, kGranule, kGranule + 1, 3 * kGranule}) {
    views.push_back(View(file, PAGE_READWRITE, size, FILE_MAP_WRITE));
    ASSERT_TRUE(views.back());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(views.back()) % kGranule, 0u) << size;
    views.back()[size - 1] = 'x';
  }
  for (char* view : views) EXPECT_TRUE(UnmapViewOfFile(view)) << "each has a place of its own";
  char* view = View(file, PAGE_READONLY, 0, FILE_MAP_READ);
  for (char* bad : {view, view + 2 * kGranule, view + 4096, view + 8 * kGranule + 1}) {
    EXPECT_EQ(View(file, PAGE_READONLY, 0, FILE_MAP_READ, bad), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS) << bad - view;
  }
  EXPECT_TRUE(!UnmapViewOfFile(view + kGranule) && UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(View(file, PAGE_READONLY, 0, FILE_MAP_READ, view), view) << "free again";
}

TEST(PosixMapping, RefusesWhatAFileDoesNotAllow) {
  Tree tree;
  tree.File("file", "text");
  HANDLE empty = Open(tree.Path("empty"));
  HANDLE reader = Open(tree.Path("file"), GENERIC_READ);
  HANDLE writer = Open(tree.Path("file"), GENERIC_WRITE);
  const struct {
    HANDLE file;
    DWORD protection, size, access, error;
  } kRows[] = {{reader, PAGE_READWRITE, 0, FILE_MAP_READ, ERROR_ACCESS_DENIED},
               {writer, PAGE_READWRITE, 0, FILE_MAP_WRITE, ERROR_ACCESS_DENIED},
               {empty, PAGE_READWRITE, 0, FILE_MAP_WRITE, ERROR_FILE_INVALID},
               {reader, PAGE_READONLY, 5, FILE_MAP_READ, ERROR_NOT_ENOUGH_MEMORY},
               {INVALID_HANDLE_VALUE, PAGE_READONLY | SEC_RESERVE, 0, 0, ERROR_INVALID_PARAMETER},
               {reader, PAGE_READONLY, 0, FILE_MAP_WRITE, ERROR_ACCESS_DENIED},
               {reader, PAGE_WRITECOPY, 0, FILE_MAP_WRITE, ERROR_ACCESS_DENIED}};
  for (const auto& row : kRows) {
    EXPECT_EQ(View(row.file, row.protection, row.size, row.access), nullptr) << &row - kRows;
    EXPECT_EQ(GetLastError(), row.error) << &row - kRows;
  }
  EXPECT_TRUE(IsBadWritePtr(View(reader, PAGE_WRITECOPY, 0, FILE_MAP_READ), 1));
  char* copy = View(reader, PAGE_WRITECOPY, 0, FILE_MAP_COPY);
  copy[0] = 'n';
  EXPECT_EQ(copy + tree.Read("file"), "nexttext") << "copies are their own";
}

// Pages in a row: plain, read-only, without any right, plain, behind the end of the mapped file.
TEST(PosixMemory, ProbesTellEveryProtectionAndTouchNothing) {
  constexpr size_t kPage = 4096;
  FILE* file = tmpfile();
  ASSERT_EQ(ftruncate(fileno(file), 4 * kPage), 0);
  void* block = mmap(nullptr, 5 * kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file), 0);
  char *plain = static_cast<char*>(block), *readOnly = plain + kPage, *shut = readOnly + kPage;
  char *last = shut + kPage, *missing = last + kPage;
  memset(plain, 'a', 4 * kPage);
  ASSERT_EQ(mprotect(readOnly, kPage, PROT_READ) | mprotect(shut, kPage, PROT_NONE), 0);
  void* top = reinterpret_cast<void*>(~uintptr_t{0} - 3);
  const struct {
    void* at;
    UINT_PTR size;
    bool badRead, badWrite;
  } kRows[] = {{plain, 2 * kPage, false, true},
               {plain, 2 * kPage + 1, true, true},
               {plain, 4 * kPage, true, true},  // a hole inside
               {readOnly - 1, 2, false, true},
               {missing - 3, 3, false, false},
               {missing - 3, 4, true, true},
               {plain, ~UINT_PTR{0}, true, true},  // runs over the end of memory
               {top, 4, true, true}};
  // The kernel's answers; its list of mappings; without a descriptor for either.
  for (auto [descriptors, refused] : {std::pair(1000, ""), {1000, "ioctl"}, {0, ""}}) {
    tavrix_test::Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(descriptors));
    tavrix_test::CallFault fault(refused, ENOTTY);
    for (const auto& row : kRows)
      EXPECT_TRUE(IsBadReadPtr(row.at, row.size) == row.badRead &&
                  IsBadWritePtr(row.at, row.size) == row.badWrite)
          << &row - kRows;
    EXPECT_EQ(plain[0] + last[kPage - 1], 2 * 'a');
  }
  for (const char* refused : {"", "process_vm_readv"}) {
    tavrix_test::CallFault fault(refused, EPERM);
    last[kPage - 1] = 'a';
    EXPECT_TRUE(IsBadStringPtrA(last, kPage + 1)) << "no terminator before the end";
    EXPECT_FALSE(IsBadStringPtrA(last, kPage));
    last[kPage - 1] = 0;
    EXPECT_FALSE(IsBadStringPtrA(last + 10, ~UINT_PTR{0}));
    EXPECT_TRUE(IsBadStringPtrA(plain, 2 * kPage + 1)) << "runs into a page without rights";
    EXPECT_FALSE(IsBadStringPtrA(plain, 2 * kPage)) << "goes on over pages";
    EXPECT_EQ(fault.Hit(), *refused != 0);
  }
}

}  // namespace
