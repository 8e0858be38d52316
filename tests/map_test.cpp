// Files mapped into memory that grow in place.
#include "tests/support/opened.h"

namespace quern {
namespace {

using namespace tavrix_test;

TEST(Map, GrowsAtOneAddressToTheLargestFile) {
  Tree tree;
  FileObject* file = Open(tree, "large", FO_MAPPED | 18 | FO_GROW_1M);
  char* base = file->pView;
  FileAppendf("first");
  for (int32_t step : {70'000, 1'000'001, 88'929'994, 100'000'000}) {
    ASSERT_EQ(FileResize(step), 0);
    ASSERT_EQ(file->pView, base);
    base[file->nSize - 1] = 'e';
  }
  EXPECT_EQ(std::string(base, 5), "first");
  EXPECT_EQ(FileResize(9'999'999), -4);  // with its growth beyond what can be mapped
  char report[1024] = "";
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  EXPECT_TRUE(strstr(report, "File is growing beyond it's limit (>200000kB)")) << report;
  EXPECT_EQ(FileAppendf("x"), 0);  // nothing is mapped any more
  ErrClear();
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(std::filesystem::file_size(tree.Path("large")), 190'000'000u);
}

TEST(Map, KeepsItsRangeAndMapsByItsAccess) {
  Tree tree;
  tree.File("f", "12345");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2);
  EXPECT_EQ(FileMap(0), 0);
  // The file's view and the reserve take the whole range: nothing else gets in.
  HANDLE granule = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY | SEC_RESERVE, 0,
                                      65536, nullptr);
  file->nMaxSize = 1'000'000;
  for (uint32_t size : {5u, 200'000u}) {
    EXPECT_EQ(FileMap(size), 0);
    for (uint32_t at = 0; at < 1'000'000; at += 65536)
      EXPECT_FALSE(MapViewOfFileEx(granule, FILE_MAP_READ, 0, 0, 0, file->pView + at)) << at;
  }
  CloseHandle(granule);
  EXPECT_EQ(FileMap(0), 0);
  file->fFlags = FO_MAPPED | FO_ZERO_END;  // neither reading nor writing: a copy of one's own
  EXPECT_EQ(FileMap(5), 0);
  file->pView[0] = 'c';
  EXPECT_EQ(tree.Read("f").substr(0, 5), "12345");
  EXPECT_EQ(Close(), "");
}

TEST(Map, FaultsGrowTheFile) {
  Tree tree;
  tree.File("r", std::string(20'000, 'r'));
  FileObject* file = nullptr;
  // The answer to an access at an offset, or what is mapped if it is to go on.
  auto fault = [&](int64_t offset, bool write = false, uint32_t code = EXCEPTION_ACCESS_VIOLATION) {
    const auto address = reinterpret_cast<uintptr_t>(file->pView) + static_cast<uintptr_t>(offset);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = code;
    record.ExceptionInformation[0] = write;
    record.ExceptionInformation[1] = address;
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    LONG answer = FileFaultFilter(nullptr, &pointers);
    return answer == -1 ? static_cast<int64_t>(file->nMapped) : answer;
  };
  const struct {
    uint32_t grow, most;
    int64_t offset, mapped;
  } rows[] = {
      {10'000, 1'000'000, -1, 0},
      {10'000, 1'000'000, 1'000'000, 0},
      {10'000, 1'000'000, 999'999, 1'048'576},
      {0, 1'000'000, 0, 0},
      {10'000, 0, 0, 0},
      {10'000, 1'000'000, 130'000, 196'608},  // 140,000 and the growth, rounded
      {65'536, 1'000'000, 65'535, 131'072},
      {65'536, 1'000'000, 65'536, 196'608},
      {65'536, 200'000'000, 199'999'999, 0},  // "go on", but it could not grow
  };
  file = Open(tree, "f", FO_MAPPED | 18);
  EXPECT_EQ(fault(0, false, 0xC0000094), 0);
  for (const auto& row : rows) {
    file->nGrow = row.grow;
    file->nMaxSize = row.most;
    EXPECT_EQ(fault(row.offset, true), row.mapped) << row.grow << " " << row.offset;
  }
  EXPECT_EQ(Close().substr(0, 8), "01.02:14");
  // Nothing makes what is mapped for reading writable.
  file = Open(tree, "r", FO_MAPPED | FO_READ | FO_KEEP_NAME);
  EXPECT_EQ(FileMap(1000), 0);
  EXPECT_EQ(fault(999, true), 0);
  EXPECT_EQ(fault(1000, true), 4096);
  EXPECT_EQ(fault(4095), 4096);
  EXPECT_EQ(fault(4096), 8192);
  EXPECT_EQ(Close(), "");
}

}  // namespace
}  // namespace quern
