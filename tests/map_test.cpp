// Files mapped into memory that grow in place.

#include "quern/cfile/map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cobj.h"
#include "quern/csys.h"
#include "tests/support/alloc.h"
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <signal.h>
#include <unistd.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Data;
using tavrix_test::Open;
using tavrix_test::Tree;

TEST(Map, GrowsAtOneAddressTo190Megabytes) {
  Tree tree;
  FileObject* file = Open(tree, "large", FO_MAPPED | 18 | 0x40000);
  char* base = file->pView;
  ASSERT_NE(base, nullptr);
  FileAppendf("first");
  std::mt19937 random(1);
  uint32_t step = 1;
  while (file->nSize < 190'000'000) {
    uint32_t size = file->nSize;
    step = std::min(step * 3 + static_cast<uint32_t>(random() % 1000), 190'000'000 - size);
    ASSERT_EQ(FileResize(static_cast<int32_t>(step)), 0);
    ASSERT_EQ(file->pView, base);
    ASSERT_EQ(file->nSize, size + step);
    base[file->nSize - 1] = 'e';
  }
  EXPECT_EQ(std::string(base, 5), "first");
  EXPECT_EQ(FileResize(9'999'999), -4);  // beyond what can be mapped
  char text[256] = "";
  while (ErrGetText(text, -1) && strncmp(text, "File is", 7) != 0) {
  }
  EXPECT_STREQ(text, "File is growing beyond it's limit (>200000kB)");
  ErrClear();
  EXPECT_EQ(FileAppendf("x"), 0);  // nothing is mapped any more
  ErrClear();
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(std::filesystem::file_size(tree.Path("large")), 190'000'000u);
  EXPECT_EQ(FileResize(1), -1);
  EXPECT_EQ(FileAppendf("x"), 0);
  EXPECT_EQ(FileMap(5), 0);
  EXPECT_EQ(FileReserve(5), 0);
  EXPECT_EQ(ClearedTrail(), "01.01");
}

TEST(Map, MapsAndUnmaps) {
  Tree tree;
  tree.File("f", "12345");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2);
  EXPECT_EQ(FileMap(0), 0);
  EXPECT_EQ(FileMap(0), 0);
  EXPECT_EQ(file->pView, nullptr);
  EXPECT_EQ(FileMap(5), 0);
  EXPECT_EQ(Data(), "12345");
  EXPECT_EQ(FileMap(0), 0);
  HANDLE handle = file->hFile;
  uint32_t flags = file->fFlags;
  for (uint32_t access : {FO_READ, FO_WRITE, FO_ZERO_END, 0u}) {
    file->hFile = nullptr;
    file->fFlags = FO_MAPPED | access;
    EXPECT_EQ(FileMap(5), 2);
    EXPECT_EQ(file->pView, nullptr);
    EXPECT_EQ(ClearedTrail(), access == FO_READ    ? "02.10"
                              : access == FO_WRITE ? "02.11"
                              : access != 0        ? "02.12"
                                                   : "02.13");
    file->hFile = handle;
    EXPECT_EQ(FileMap(5), access ? 0 : 2);
    // Neither reading nor writing: a copy of one's own.
    if (access == FO_ZERO_END) file->pView[0] = 'c';
    EXPECT_EQ(FileMap(0), 0);
    ErrClear();
  }
  EXPECT_EQ(tree.Read("f").substr(0, 5), "12345");
  file->fFlags = flags;
#ifndef _WIN32  // where it takes memory of the program's own
  for (int64_t number : {1, 2}) {
    {
      tavrix_test::AllocationFault fault(number);
      EXPECT_EQ(FileMap(5), -2);
    }
    EXPECT_EQ(ClearedTrail(), number == 1 ? "02.01" : "02.02");
    EXPECT_EQ(file->hMap, nullptr);
    EXPECT_EQ(file->hExtMap, nullptr);
  }
#endif
  EXPECT_EQ(FileMap(5), 0);
  file->hFile = nullptr;
  SetLastError(0);
  EXPECT_EQ(FileMap(5), 2);  // no file: both the mapping and the view fail
  EXPECT_EQ(file->pView, nullptr);
  EXPECT_EQ(file->hExtMap, nullptr);
  char report[1024] = "";
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  EXPECT_NE(strstr(report, "02.11"), nullptr) << report;
  EXPECT_NE(strstr(report, "File could not be loaded into memory"), nullptr) << report;
  EXPECT_NE(strstr(report, "(06)"), nullptr) << report;
  file->hFile = handle;
  // The file's view and the reserve take the whole range: nothing else gets in.
  file->nMaxSize = 1'000'000;
  for (uint32_t size : {5u, 200'000u}) {
    EXPECT_EQ(FileMap(size), 0);
    EXPECT_EQ(file->pExtView, file->pView + file->nMapped);
    HANDLE granule = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY | SEC_RESERVE,
                                        0, 65536, nullptr);
    for (uint32_t at = 0; at < 1'000'000; at += 65536)
      EXPECT_EQ(MapViewOfFileEx(granule, FILE_MAP_READ, 0, 0, 0, file->pView + at), nullptr) << at;
    CloseHandle(granule);
  }
  for (uint32_t most : {70'000, 131'072}) {  // the file's view fills it: no reserve
    file->nMaxSize = most;
    EXPECT_EQ(FileMap(66'000), 0);
    EXPECT_EQ(file->pExtView, nullptr);
    EXPECT_EQ(file->hExtMap, nullptr);
  }
  EXPECT_EQ(FileMap(0), 0);
  file->nMaxSize = 4096;  // less a page leaves nothing to reserve
  EXPECT_EQ(FileMap(5), -2);
  EXPECT_EQ(ClearedTrail(), "02.01");
  file->nMaxSize = 131'072;
  EXPECT_EQ(FileMap(66'000), 0);
  EXPECT_EQ(FileReserve(66'000), 0);  // what was mapped is released
  EXPECT_EQ(file->nMapped, 0u);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), "12345");
}

TEST(Map, AddressesThatAreNotAlignedAreMadeSo) {
  Tree tree;
  tree.File("f", "12345");
  ErrRaise("test", 1, 1);
  ErrClear();
  uint32_t granularity = SysAllocGranularity;
  SysAllocGranularity = 16 << 20;  // more than the system's own
  FileObject* file = FileSelect(nullptr);
  file->nMaxSize = 83'900'000;  // the range has room for the move to an aligned address
  EXPECT_EQ(FileOpen(file, tree.Path("f").c_str(), FO_MAPPED | 2), file);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(file->pView) % (16 << 20), 0u);
  EXPECT_EQ(Data(), "12345");
  SysAllocGranularity = granularity;
  EXPECT_EQ(Close(), "");
}

// The handler of a program that lets code write behind the end.
#ifdef _WIN32
LONG WINAPI OnFault(EXCEPTION_POINTERS* exception) { return FileFaultFilter(nullptr, exception); }
void InstallFilter() { AddVectoredExceptionHandler(1, OnFault); }
#else
void InstallFilter() {
  struct sigaction action = {};
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  action.sa_sigaction = [](int, siginfo_t* info, void*) {
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    record.ExceptionInformation[1] = reinterpret_cast<uintptr_t>(info->si_addr);
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    if (FileFaultFilter(nullptr, &pointers) != EXCEPTION_CONTINUE_EXECUTION) _exit(99);
  };
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}
#endif

TEST(Map, FaultsGrowTheFile) {
  Tree tree;
  tree.File("f", "12345");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2 | 0x20000);
  EXCEPTION_RECORD record = {};
  EXCEPTION_POINTERS pointers = {&record, nullptr};
  auto filter = [&](uint32_t code, const char* address) {
    record.ExceptionCode = code;
    record.ExceptionInformation[1] = reinterpret_cast<uintptr_t>(address);
    return FileFaultFilter(nullptr, &pointers);
  };
  uint32_t violation = EXCEPTION_ACCESS_VIOLATION;
  EXCEPTION_POINTERS without = {};
  EXPECT_EQ(FileFaultFilter(nullptr, nullptr), 0);
  EXPECT_EQ(FileFaultFilter(nullptr, &without), 0);
  EXPECT_EQ(filter(0xC0000094, file->pView), 0);
  for (uint32_t* needed : {&file->nGrow, &file->nMaxSize}) {
    uint32_t was = *needed;
    *needed = 0;
    EXPECT_EQ(filter(violation, file->pView), 0);
    *needed = was;
  }
  EXPECT_EQ(filter(violation, file->pView - 1), 0);
  EXPECT_EQ(filter(violation, file->pView + file->nMaxSize), 0);
  auto mappedAfter = [&](uint32_t offset) {
    EXPECT_EQ(filter(violation, file->pView + offset), -1);
    return file->nMapped;
  };
  EXPECT_EQ(mappedAfter(125'000), 196'608u);  // 130,000 and the growth, rounded
  record.ExceptionInformation[0] = 1;         // a write, which nothing forbids here
  EXPECT_EQ(mappedAfter(130'000), 196'608u);
  record.ExceptionInformation[0] = 0;
  EXPECT_EQ(mappedAfter(190'000), 262'144u);
  file->nGrow = 65'536;
  EXPECT_EQ(mappedAfter(0), 131'072u);
  EXPECT_EQ(mappedAfter(65'535), 131'072u);
  EXPECT_EQ(mappedAfter(65'536), 196'608u);
  EXPECT_EQ(filter(violation, file->pView + file->nMaxSize - 1), -1);  // 14, 2 below it, 1
  EXPECT_EQ(ClearedTrail().substr(0, 5), "01.02");
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(filter(violation, nullptr), 0);  // no file
  // Nothing makes what is mapped for reading writable.
  tree.File("r", std::string(20'000, 'r'));
  file = Open(tree, "r", FO_MAPPED | FO_READ | FO_KEEP_NAME);
  EXPECT_EQ(FileMap(1000), 0);
  record.ExceptionInformation[0] = 1;
  EXPECT_EQ(filter(violation, file->pView + 999), 0);
  EXPECT_EQ(mappedAfter(1000), 4096u);
  record.ExceptionInformation[0] = 0;
  EXPECT_EQ(mappedAfter(4095), 4096u);
  EXPECT_EQ(mappedAfter(4096), 8192u);
  const char* data = file->pView;
  EXPECT_EQ(FileMap(0), 0);
  EXPECT_EQ(filter(violation, data), 0);
  EXPECT_EQ(filter(violation, reinterpret_cast<const char*>(uintptr_t{1000})), 0);
  EXPECT_EQ(Close(), "");
  // For real.
  file = Open(tree, "f", FO_MAPPED | 2 | 0x30000);
  InstallFilter();
  char* volatile view = file->pView;
  for (uint32_t at = 5; at < 3'000'000; at += 4093) view[at] = 'x';
  file->nSize = 3'000'000;
  EXPECT_EQ(Close(), "");
  std::string text = tree.Read("f");
  ASSERT_EQ(text.size(), 3'000'000u);
  EXPECT_EQ(text.substr(0, 6), "12345x");
  EXPECT_EQ(text[5 + 4093 * 700], 'x');
}

#ifndef _WIN32

// Handles and views that are gone already: the first of them is told, and nothing is mapped.
TEST(Map, ReleasesThatFail) {
  Tree tree;
  static char nowhere;
  struct Row {
    void (*spoil)(FileObject*);
    const char* anew;  // trail of mapping again
    int unmapped;      // result of unmapping, whose failure is reported at once
  };
  const Row rows[] = {
      {[](FileObject* f) { f->pExtView = &nowhere; }, "02.0510", 0},
      {[](FileObject* f) { CloseHandle(f->hExtMap); }, "02.0511", 5},
      {[](FileObject* f) { f->pView = &nowhere; }, "02.0512", 0},
      {[](FileObject* f) { CloseHandle(f->hMap); }, "02.0513", 6},
      {[](FileObject* f) { CloseHandle(f->hMap), CloseHandle(f->hExtMap); }, "02.0511", 6},
  };
  for (const Row& row : rows) {
    for (bool anew : {true, false}) {
      SCOPED_TRACE(std::string(row.anew) + (anew ? " anew" : ""));
      tree.File("f", "12345");
      FileObject* file = Open(tree, "f", FO_MAPPED | 2);
      row.spoil(file);
      EXPECT_EQ(FileMap(anew ? 70'000 : 0), anew ? -2 : row.unmapped);
      EXPECT_EQ(ClearedTrail(), anew ? row.anew : "");
      EXPECT_EQ(file->hMap, nullptr);
      EXPECT_EQ(file->hExtMap, nullptr);
      FileClass(0);
      ErrClear();
    }
  }
}

// Where there is but one process class, time-critical threads keep others away while nothing is
// mapped; a failure of the reserve leaves it so.
TEST(Map, PrioritiesAreGivenBack) {
  Tree tree;
  tree.File("f", "12345");
  for (uint32_t platform : {1u, uint32_t{VER_PLATFORM_WIN32_NT}}) {
    Open(tree, "f", FO_MAPPED | 2);
    SysPlatformId = platform;
    SetThreadPriority(GetCurrentThread(), 1);
    SetPriorityClass(GetCurrentProcess(), 0x40);
    EXPECT_EQ(FileMap(5), 0);
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), 1);
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), 0x40u);
    EXPECT_EQ(FileMap(300'000'000), -2);
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_TIME_CRITICAL);
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()),
              platform == 1 ? REALTIME_PRIORITY_CLASS : 0x40);
    ErrClear();
    EXPECT_EQ(Close(), "");
  }
}

#endif

}  // namespace
}  // namespace quern
