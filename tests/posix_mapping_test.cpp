// Mapped files: where views lie, and what a file does not allow.
#include "tests/support/test.h"

namespace {

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

}  // namespace
