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
  return CloseHandle(mapping), static_cast<char*>(view);
}

std::string Error(HANDLE file, DWORD protection, DWORD size, DWORD access, void* base = nullptr) {
  return View(file, protection, size, access, base) ? "" : std::to_string(GetLastError()) + " ";
}

TEST(PosixMapping, PlacesViewsWhereTheyAreAskedFor) {
  Tree tree;
  HANDLE file = Open(tree.Path("file"));
  tavrix_test::CallFault fault("fallocate64", EOPNOTSUPP);  // as some file systems have it
  std::vector<char*> views;
  for (DWORD size : {1u, kGranule, kGranule + 1, 3 * kGranule}) {
    views.push_back(View(file, PAGE_READWRITE, size, FILE_MAP_WRITE));
    ASSERT_TRUE(views.back() && reinterpret_cast<uintptr_t>(views.back()) % kGranule == 0) << size;
    views.back()[size - 1] = 'x';
  }
  for (char* view : views) EXPECT_TRUE(UnmapViewOfFile(view)) << "each has a place of its own";
  char* view = View(file, PAGE_READONLY, 0, FILE_MAP_READ);
  for (char* bad : {view, view + 2 * kGranule, view + 8 * kGranule + 4096,
                    reinterpret_cast<char*>(~uintptr_t{0} - kGranule + 1)})
    EXPECT_EQ(Error(file, PAGE_READONLY, 0, FILE_MAP_READ, bad), "487 ") << bad - view;
  EXPECT_EQ(view[0] + view[3 * kGranule - 1], 'x' + 'x') << "the attempts left it alone";
  EXPECT_TRUE(!UnmapViewOfFile(view + kGranule) && UnmapViewOfFile(view) && !UnmapViewOfFile(view));
  EXPECT_EQ(View(file, PAGE_READONLY, 0, FILE_MAP_READ, view), view) << "free again";
}

TEST(PosixMapping, RefusesWhatAFileDoesNotAllow) {
  Tree tree;
  tree.File("file", "text");
  HANDLE reader = Open(tree.Path("file"), GENERIC_READ);
  EXPECT_EQ(Error(Open(tree.Path("file"), GENERIC_WRITE), PAGE_READWRITE, 0, FILE_MAP_WRITE) +
                Error(reader, PAGE_READWRITE, 0, FILE_MAP_READ) +
                Error(reader, PAGE_WRITECOPY, 0, FILE_MAP_WRITE) +
                Error(reader, PAGE_WRITECOPY, 5, FILE_MAP_COPY) +
                Error(Open(tree.Path("empty")), PAGE_READWRITE, 0, FILE_MAP_WRITE),
            "5 5 5 8 1006 ");
  EXPECT_TRUE(IsBadWritePtr(View(reader, PAGE_WRITECOPY, 0, FILE_MAP_READ), 1));
  *View(reader, PAGE_READONLY, 0, FILE_MAP_COPY) = 'n';
  EXPECT_EQ(tree.Read("file"), "text") << "copies are their own";
}

// Pages in a row: plain, read-only, without any right, plain, behind the end of the mapped file.
TEST(PosixMemory, ProbesTellEveryProtectionAndTouchNothing) {
  constexpr size_t kPage = 4096;
  FILE* file = tmpfile();
  ASSERT_EQ(ftruncate(fileno(file), 4 * kPage), 0);
  void* block = mmap(nullptr, 5 * kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file), 0);
  char *plain = static_cast<char*>(block), *shut = plain + 2 * kPage, *last = shut + kPage;
  memset(plain, 'a', 4 * kPage);
  ASSERT_EQ(mprotect(plain + kPage, kPage, PROT_READ) | mprotect(shut, kPage, PROT_NONE), 0);
  auto bad = [](void* at, UINT_PTR size) {
    return std::to_string(IsBadReadPtr(at, size)) + std::to_string(IsBadWritePtr(at, size)) + " ";
  };
  // The kernel's answers; its list of mappings; without a descriptor for either.
  for (auto [descriptors, refused] : {std::pair(1000, ""), {1000, "ioctl"}, {0, ""}}) {
    tavrix_test::Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(descriptors));
    tavrix_test::CallFault fault(refused, ENOTTY);
    EXPECT_EQ(bad(plain, 2 * kPage) + bad(plain, 2 * kPage + 1) + bad(plain, 4 * kPage) +
                  bad(shut - kPage - 1, 1) + bad(shut - kPage - 1, 2) + bad(last + kPage - 3, 3) +
                  bad(last + kPage - 3, 4) + bad(nullptr, 1) + bad(nullptr, 0) +
                  bad(plain, ~UINT_PTR{0}),
              "01 11 11 00 01 00 11 11 00 11 ");
  }
  EXPECT_EQ(std::count(plain, shut, 'a') + std::count(last, last + kPage, 'a'), 3 * kPage);
  for (const char* refused : {"", "process_vm_readv"}) {
    tavrix_test::CallFault fault(refused, EPERM);
    last[kPage - 1] = 'a';
    EXPECT_TRUE(IsBadStringPtrA(last, kPage + 1) && !IsBadStringPtrA(last, kPage));
    last[kPage - 1] = 0;
    EXPECT_FALSE(IsBadStringPtrA(last + 10, ~UINT_PTR{0}));
    EXPECT_TRUE(IsBadStringPtrA(plain, 2 * kPage + 1) && !IsBadStringPtrA(plain, 2 * kPage));
    EXPECT_EQ(fault.Hit(), *refused != 0);
  }
}

}  // namespace
