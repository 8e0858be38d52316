// Mapped files that grow in place, and edits of their contents and of streams, against plain
// models.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cfile/map.h"
#include "quern/cfile/open.h"
#include "quern/cobj.h"
#include "quern/csys.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/limit.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <signal.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Tree;

FileObject* Open(const Tree& tree, const char* name, uint32_t flags) {
  FileObject* file = FileOpen(nullptr, tree.Path(name).c_str(), flags);
  EXPECT_NE(file, nullptr);
  return file;
}

std::string Data() { return {CurrentFile->pView, CurrentFile->nSize}; }

std::string Close() {
  FileClass(0);
  return ClearedTrail();
}

TEST(Content, GrowsAtOneAddressTo190Megabytes) {
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

TEST(Content, ResizesWithinItsLimits) {
  Tree tree;
  tree.File("f", "12345");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2);
  file->nMaxSize = 100;
  EXPECT_EQ(FileResize(96), -1);
  EXPECT_EQ(FileResize(-6), -1);  // the wrap makes it huge
  EXPECT_EQ(ClearedTrail(), "01.01");
  EXPECT_EQ(FileResize(95), 0);
  EXPECT_EQ(FileResize(-98), 0);
  EXPECT_EQ(file->nDelta, static_cast<uint32_t>(-3));
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), "12");
  // A file for reading that keeps its name is opened again, for writing, at the same address.
  file = Open(tree, "f", FO_MAPPED | FO_READ | FO_KEEP_NAME);
  const char* view = file->pView;
  EXPECT_EQ(file->nMapped, 2u);
  EXPECT_EQ(FileAppendf("345"), 3);
  EXPECT_EQ(file->pView, view);
  EXPECT_EQ(file->fFlags, FO_MAPPED | FO_KEEP_NAME | FO_WRITE);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), "12345");
  // Others grow never, and are not written.
  file = Open(tree, "f", FO_MAPPED | FO_READ);
  file->nMaxSize = 100;
  EXPECT_EQ(FileAppendf("x"), 0);
  EXPECT_EQ(ClearedTrail(), "05.03");
  EXPECT_EQ(FileReplace(file->pView, 0, "", 0), 0);  // nothing to do
  EXPECT_EQ(ClearedTrail(), "");
  EXPECT_EQ(FileReplace(file->pView, 1, "x", 1), 0);
  EXPECT_EQ(ClearedTrail(), "05");
  EXPECT_EQ(Close(), "");
  // One that is written already is not opened again.
  file = Open(tree, "f", FO_MAPPED | FO_WRITE | FO_KEEP_NAME | FO_NAME);
  EXPECT_EQ(FileResize(1), 0);
  EXPECT_EQ(FileResize(-1), 0);
  EXPECT_EQ(file->nOpenSize, 5u);
  EXPECT_EQ(Close(), "");
  file = Open(tree, "f", FO_MAPPED | 2 | 0x10000);
  EXPECT_EQ(FileResize(65536), -3);
  EXPECT_EQ(ClearedTrail(), "03");
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), "12345");
}

TEST(Content, MapsAndUnmaps) {
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
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), "12345");
}

TEST(Content, AddressesThatAreNotAlignedAreMadeSo) {
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

TEST(Content, FaultsGrowTheFile) {
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

const char* const kSeparators[] = {"", "[", "\r\n\r\n", "\r\n"};  // by the selector in the flags

// By how much an edit at the limit is cut. The region has the byte behind the searched block, too.
uint32_t CutAt(const std::string& region, const std::string& separator) {
  size_t at = separator.empty() ? region.npos : region.rfind(separator);
  if (at == region.npos || at == 0) return 0;
  return static_cast<uint32_t>(separator == "[" ? at - 1 : at);
}

// A plain text edited as the rules say.
struct Model {
  std::string text;
  uint32_t most;
  std::string separator;

  int Replace(uint32_t pos, uint32_t length, std::string bytes) {
    int change = static_cast<int>(bytes.size()) - static_cast<int>(length);
    if (pos > text.size()) return 0;
    if (text.size() + change <= most) {
      if (pos + length > text.size()) return 0;
      text.replace(pos, length, bytes);
      return change;
    }
    size_t count = std::min<size_t>(bytes.size(), most - pos);
    text.replace(pos, std::min<size_t>(length, text.size() - pos), bytes.substr(0, count));
    std::string moved = text;
    text.resize(most);
    size_t kept = std::min(most - count - pos, count);
    // The places tried reach one byte behind the block. A section is searched for in as many bytes
    // as the file has.
    bool section = separator == "[";
    text.resize(most - CutAt(moved.substr(most - kept, (section ? most : kept) + 1), separator));
    return change;
  }
};

std::string Pieces(size_t count, std::mt19937& random) {
  static const char* const kPieces[] = {"[", "\r\n", "\r\n\r\n", "a", "bcd", "\n", "efghijk"};
  std::string bytes;
  for (; count > 0; --count) bytes += kPieces[random() % 7];
  return bytes;
}

TEST(Content, RandomEditsAgreeWithAModel) {
  std::mt19937 random(2);
  Tree tree;
  int limited = 0, cut = 0;
  for (int round = 0; round < 300; ++round) {
    tree.File("f", "");
    uint32_t selector = round % 4 << 20;
    FileObject* file = Open(tree, "f", FO_MAPPED | 2 | selector);
    file->nMaxSize = 200 + static_cast<uint32_t>(random() % 200);
    Model model = {"", file->nMaxSize, kSeparators[round % 4]};
    for (int edit = 0; edit < 60; ++edit) {
      auto size = static_cast<uint32_t>(model.text.size());
      auto pos = static_cast<uint32_t>(random() % (size + 1));
      auto length = static_cast<uint32_t>(random() % (std::min(size - pos, 6u) + 1));
      std::string bytes = Pieces(random() % 8, random);
      if (model.text.size() + bytes.size() - length > model.most) {
        // What is left of an older, longer text behind the data can be found, too: keep it from
        // that.
        if (random() % 3) continue;
        ++limited;
        memset(file->pView + size, 0, file->nMapped - size);
      }
      int change =
          FileReplace(file->pView + pos, length, bytes.data(), static_cast<uint32_t>(bytes.size()));
      ASSERT_EQ(change, model.Replace(pos, length, bytes)) << round << " " << edit;
      ASSERT_EQ(Data(), model.text) << round << " " << edit;
      cut += file->nSize < file->nMaxSize;
    }
    EXPECT_EQ(Close(), "");
    EXPECT_EQ(tree.Read("f"), model.text);
  }
  EXPECT_GT(limited, 300);
}

// What a stream holds, and how much of it counts.
struct StreamModel {
  std::string bytes;
  uint32_t size, most;
  std::string separator;

  void Put(size_t at, const std::string& text) {
    if (text.empty()) return;
    if (bytes.size() < at + text.size()) bytes.resize(at + text.size());
    bytes.replace(at, text.size(), text);
  }

  int Replace(uint32_t pos, uint32_t length, const std::string& text, bool given) {
    if (pos > size) return 0;
    auto count = static_cast<uint32_t>(text.size());
    uint32_t start = pos + length, behind = size > start ? size - start : 0;
    uint32_t change = count - length;
    std::string tail = start < bytes.size() ? bytes.substr(start, behind) : "";
    tail.resize(std::max(start, behind));
    bool limited = size + change > most;
    if (limited) count = std::min(count, most - pos);
    if (given) Put(pos, text.substr(0, count));
    Put(pos + count, tail.substr(0, start));
    size = limited ? most : size + change;
    if (limited) {
      uint32_t kept = std::min({size - count - pos, count, start});
      uint32_t searched = separator == "[" ? size : kept;
      size -= CutAt(tail.substr(start - kept, searched + 1), separator);
    }
    return static_cast<int>(change);
  }
};

TEST(Content, RandomEditsOfStreamsAgreeWithAModel) {
  std::mt19937 random(7);
  Tree tree;
  int refused = 0, cut = 0;
  for (uint32_t round = 0; round < 400; ++round) {
    std::string text = Pieces(random() % 30, random);
    tree.File("f", text);
    FileObject* file = Open(tree, "f", 64 | FO_STREAMED | round % 4 << 20);
    auto size = static_cast<uint32_t>(text.size());
    file->nMaxSize = size + static_cast<uint32_t>(random() % 60);
    StreamModel model = {text, size, file->nMaxSize, kSeparators[round % 4]};
    for (int edit = 0; edit < 12; ++edit) {
      auto pos = static_cast<uint32_t>(random() % (model.size + 2));
      auto length = static_cast<uint32_t>(random() % 8);
      std::string bytes = Pieces(random() % 8, random);
      bool given = random() % 6;
      refused += pos > model.size;
      EXPECT_EQ(FileReplace(file->pView + pos, length, given ? bytes.data() : nullptr,
                            static_cast<uint32_t>(bytes.size())),
                model.Replace(pos, length, bytes, given))
          << round << " " << edit;
      ASSERT_EQ(file->nSize, model.size) << round << " " << edit;
      ASSERT_EQ(ftell(file->pStream), static_cast<long>(size));
      cut += model.size < model.most;
    }
    ErrClear();
    EXPECT_EQ(Close(), "");
    ASSERT_EQ(tree.Read("f"), model.bytes) << round;
  }
  EXPECT_GT(refused, 50);
  EXPECT_GT(cut, 100);
}

// Where the mapped bytes, the data and the limit end at one byte.
TEST(Content, NothingIsTouchedBehindTheLastByte) {
  Tree tree;
  std::string text(65'536, 'o'), twenty(20, 't');
  const struct {
    const char* end;
    uint32_t cut;
  } rows[] = {{"\r\n", 18}, {"x\r", 0}};
  for (const auto& row : rows) {
    text.replace(65'514, 2, row.end);
    tree.File("f", text);
    FileObject* file = Open(tree, "f", FO_MAPPED | 2 | 0x10000 | FO_ZERO_END | FO_SEP_LINE);
    file->nMaxSize = 65'536;
    ASSERT_EQ(file->nMapped, 65'536u);
    EXPECT_EQ(FileReplace(file->pView + 100, 0, twenty.data(), 20), 20);
    std::string wanted = std::string(text).insert(100, twenty);
    wanted.resize(65'536 - row.cut);
    EXPECT_TRUE(Data() == wanted) << file->nSize;
    std::string more(70'000, 'm');  // than there is room for
    EXPECT_EQ(FileReplace(file->pView, 0, more.data(), 70'000), 70'000);
    EXPECT_TRUE(Data() == more.substr(0, 65'536));
    file->nMaxSize = 70'000;  // cannot be had
    EXPECT_EQ(FileReplace(file->pView, 0, more.data(), 70'000), 0);
    EXPECT_EQ(ClearedTrail(), "06.03");
    EXPECT_EQ(Close(), "");
  }
  for (uint32_t selector : {0u, FO_SEP_SECTION}) {
    tree.File("f", text.substr(0, 65'526));
    FileObject* file = Open(tree, "f", FO_MAPPED | 2 | 0x10000 | selector);
    ASSERT_EQ(file->nMapped, 65'536u);
    memset(file->pView + 65'526, '[', 10);
    EXPECT_EQ(FileAppendf("%s", "123456"), 6);
    // A section may be searched for behind the data.
    if (selector) {
      EXPECT_EQ(file->pView[file->nSize], '[');
    }
    EXPECT_EQ(FileAppendf("%s", "7890"), 4);
    EXPECT_EQ(FileAppendf("%s", ""), 0);
    EXPECT_EQ(ClearedTrail(), "");
    EXPECT_EQ(FileAppendf("x"), 0);
    EXPECT_EQ(ClearedTrail(), "05.03");
    EXPECT_TRUE(Data() == text.substr(0, 65'526) + "1234567890");
    EXPECT_EQ(Close(), "");
  }
}

TEST(Content, AppendedTextsAgreeWithAModel) {
  std::mt19937 random(6);
  Tree tree;
  for (uint32_t selector : {0u, FO_SEP_SECTION, FO_SEP_LINE}) {
    FileObject* file = Open(tree, "f", FO_MAPPED | 32 | selector);
    file->nMaxSize = 300'000;
    std::string model;
    while (model.size() < 296'000) {
      std::string word(random() % (random() % 20 ? 40 : 3000), 'w');
      ASSERT_EQ(FileAppendf("%s-%zu;", word.c_str(), model.size()),
                static_cast<int>(word.size() + 2 + std::to_string(model.size()).size()));
      model += word + "-" + std::to_string(model.size()) + ";";
      if (random() % 10 == 0) {
        auto less = static_cast<uint32_t>(random() % 50);
        if (less > model.size()) continue;
        FileResize(-static_cast<int32_t>(less));
        model.resize(model.size() - less);
      }
      ASSERT_EQ(file->nSize, model.size());
    }
    EXPECT_EQ(Close(), "");
    EXPECT_EQ(tree.Read("f"), model);
  }
}

TEST(Content, EditsThatAreRefused) {
  char none[] = "no file";
  EXPECT_EQ(FileReplace(none, 0, "x", 1), 0);
  EXPECT_EQ(ErrLine, 800);
  EXPECT_EQ(ClearedTrail(), "01");
  Tree tree;
  tree.File("f", "0123456789");
  FileObject* file = Open(tree, "f", FO_MAPPED | 2);
  char* view = file->pView;
  EXPECT_EQ(FileReplace(view + 2, 3, "ab", 2), -1);
  EXPECT_EQ(Data(), "01ab56789");
  EXPECT_EQ(FileReplace(view + 10, 0, "x", 1), 0);
  EXPECT_EQ(FileReplace(view - 1, 0, "x", 1), 0);
  EXPECT_EQ(FileReplace(view, 0, view + 9, 1), 0);
  EXPECT_EQ(ClearedTrail(), "02.01.01");
  view[10] = 'b';
  EXPECT_EQ(FileReplace(view, 1, view + 10, 1), 0);  // behind the data
  EXPECT_EQ(FileReplace(view, 1, "0", 1), 0);
  EXPECT_EQ(ClearedTrail(), "");
  EXPECT_EQ(FileReplace(view + 5, 5, "x", 1), 0);  // resized already when the range is refused
  EXPECT_EQ(ClearedTrail(), "05.02");
  EXPECT_EQ(file->nSize, 5u);
  std::string longText(3000, 'l');
  EXPECT_EQ(FileAppendf("<%s>", longText.c_str()), 3002);
  EXPECT_EQ(Data().substr(5), "<" + longText + ">");
  for (int length : {1022, 1023, 1024, 1025}) {
    std::string before = Data();
    EXPECT_EQ(FilePrintf(view + 1, "%s", longText.substr(0, length).c_str()), length);
    EXPECT_EQ(Data(), before.insert(1, length, 'l'));
    {
      tavrix_test::AllocationFault fault(1);
      EXPECT_EQ(FilePrintf(view + 1, "%s", longText.c_str()), 0);
    }
    EXPECT_EQ(ClearedTrail(), "04");
    EXPECT_EQ(FileVPrintf(view + 1, length, "%s", ""), -length);
    EXPECT_EQ(Data(), before.erase(1, length));
  }
#ifndef _WIN32  // where a character may have no bytes
  EXPECT_EQ(FileAppendf("%ls", L"\x4E00"), 0);
  EXPECT_EQ(ClearedTrail(), "04");
#endif
  auto list = [](const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int32_t change = FileVPrintf(CurrentFile->pView, 0, kFileArgList, format, &arguments);
    va_end(arguments);
    return change;
  };
  EXPECT_EQ(list("%d-%s", 7, "x"), 3);
  EXPECT_EQ(Data().substr(0, 5), "7-x01");
  EXPECT_EQ(Close(), "");
}

// Objects in states that only odd calls lead to.
TEST(Content, OddStatesStayInside) {
  Tree tree;
  tree.File("a", std::string(1000, 'a'));
  tree.File("b");
  FileObject* file = Open(tree, "a", FO_MAPPED | 2 | 0x10000);
  FileOpen(file, tree.Path("b").c_str(), FO_MAPPED | 2 | FO_ZERO_END | 0x10000);
  EXPECT_EQ(file->pView, nullptr);
  FileClass(0);
  ErrClear();
  // A size beyond what is mapped: the search for a separator ends with the mapped bytes.
  tree.File("d", std::string(1000, 'd'));
  file = Open(tree, "d", FO_MAPPED | 2 | FO_STREAMED | FO_SEP_LINE);
  file->nMaxSize = 1'000'000;
  EXPECT_EQ(FileResize(998'990), 0);
  std::string more(100, '\n');
  EXPECT_EQ(FileReplace(file->pView, 0, more.data(), 100), 0);
  EXPECT_EQ(ClearedTrail(), "06");
  FileClass(0);
  ErrClear();
  // A view that has shrunk: what is not mapped cannot be moved.
  tree.File("c", std::string(100'000, 'c'));
  file = Open(tree, "c", FO_MAPPED | 2);
  EXPECT_EQ(FileMap(1), 0);
  EXPECT_EQ(FileReplace(file->pView, 60'000, nullptr, 0), 0);
  EXPECT_EQ(ClearedTrail(), "05");
  FileClass(0);
  ErrClear();
  EXPECT_EQ(FileClass(reinterpret_cast<uintptr_t>(file)), 0u);  // closed before
  EXPECT_EQ(ClearedTrail(), "");
  file = Open(tree, "b", 64 | FO_STREAMED);
  EXPECT_EQ(FileReplace(nullptr, 0, nullptr, 5), 5);
  EXPECT_EQ(Close(), "");
  // The hooks are told of the file alone; of sizes those that have a scanner.
  static int sizes, maps;
  file = Open(tree, "d", FO_MAPPED | 2);
  FileScanner scanner = {};
  for (bool hooked : {false, true}) {
    FileResizedHook = hooked ? +[](FileObject* told) { sizes += told == CurrentFile; } : nullptr;
    FileMappedHook = hooked ? +[](FileObject* told) { maps += told == CurrentFile; } : nullptr;
    for (FileScanner* each : {static_cast<FileScanner*>(nullptr), &scanner}) {
      file->pScanner = each;
      EXPECT_EQ(FileResize(1), 0);
      EXPECT_EQ(FileMap(file->nSize), 0);
    }
  }
  EXPECT_EQ(sizes, 1);
  EXPECT_EQ(maps, 2);
  // A scanner without a procedure is let go.
  scanner.pFile = file;
  FileResizedHook = FileMappedHook = nullptr;
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(scanner.pFile, nullptr);
}

TEST(Content, StreamsHaveTheirRuledTail) {
  Tree tree;
  tree.File("f", "0123456789");
  FileObject* file = Open(tree, "f", 64 | FO_STREAMED);
  EXPECT_EQ(ftell(file->pStream), 10);
  // Behind the new bytes as many go as lie in front of the end of the old range.
  EXPECT_EQ(FileReplace(reinterpret_cast<char*>(6), 1, "ab", 2), 1);
  EXPECT_EQ(file->nSize, 11u);
  EXPECT_EQ(ftell(file->pStream), 10);
  EXPECT_EQ(FileReplace(reinterpret_cast<char*>(12), 0, "x", 1), 0);
  EXPECT_EQ(ClearedTrail(), "01");
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(tree.Read("f"), std::string("012345ab789") + std::string(4, '\0'));
  tree.File("f", "0123456789");
  file = Open(tree, "f", 64 | FO_STREAMED);
  EXPECT_EQ(FileReplace(reinterpret_cast<char*>(2), 0, "ab", 2), 2);
  EXPECT_EQ(FileAppendf("%s", "end"), 3);
  EXPECT_EQ(Close(), "");
  std::string text = tree.Read("f");
  EXPECT_EQ(text.substr(0, 10), "01ab236789");
  EXPECT_EQ(text.substr(12, 3), "end");
  // At the limit the tail is searched for the separator.
  tree.File("f", "0123\r\n6789");
  file = Open(tree, "f", 64 | FO_STREAMED | FO_SEP_LINE);
  file->nMaxSize = 12;
  EXPECT_EQ(FileReplace(reinterpret_cast<char*>(8), 0, "abcd", 4), 4);
  EXPECT_EQ(file->nSize, 12u);
  EXPECT_EQ(Close(), "");
  // Without the flag a stream cannot be resized.
  Open(tree, "f", 64);
  EXPECT_EQ(FileReplace(nullptr, 0, "x", 1), 0);
  EXPECT_EQ(ClearedTrail().substr(0, 5), "05.04");
  // Offsets beyond the file, the runtime, and the memory.
  if (sizeof(void*) > 4) {
    auto wide = reinterpret_cast<char*>(~uintptr_t{0} - UINT32_MAX);
    EXPECT_EQ(FileReplace(wide, 0, "x", 1), 0);
    EXPECT_EQ(ClearedTrail(), "01");
  }
  EXPECT_EQ(FileReplace(nullptr, 0x80000000, "x", 1), 0);
  EXPECT_EQ(ClearedTrail(), "03");
  {
    tavrix_test::AllocationFault fault(1);
    EXPECT_EQ(FileReplace(nullptr, 0x7FFFFFFF, "x", 1), 0);
  }
  EXPECT_EQ(ClearedTrail(), "04");
  Close();
}

#ifndef _WIN32

// Handles and views that are gone already: the first of them is told, and nothing is mapped.
TEST(Content, ReleasesThatFail) {
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
TEST(Content, PrioritiesAreGivenBack) {
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

// Growth beyond what the disk has: no signal, the right codes, and the old bytes.
TEST(Content, AFullDiskCostsNothing) {
  Tree tree;
  tree.File("f", "12345");
  int code = tavrix_test::InChild([&] {
    signal(SIGXFSZ, SIG_DFL);
    tavrix_test::Limit limit(RLIMIT_FSIZE, 100'000);
    FileObject* file = FileOpen(nullptr, tree.Path("f").c_str(), FO_MAPPED | 2);
    if (!file || FileAppendf("678") != 3) return 1;
    std::string large(200'000, 'x');
    if (FileReplace(file->pView + 8, 0, large.data(), 200'000) != 0) return 2;
    char report[4096];
    ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
    if (!strstr(report, "05.04:02.11") || !strstr(report, "(112)")) return puts(report), 3;
    FileClass(0);
    return ErrCurrent->nCount == 0 ? 0 : 4;
  });
  EXPECT_EQ(code, 0);
  EXPECT_EQ(tree.Read("f"), "12345678");
}

// Every system call on the way may fail: no signal, and what was there before stays. Some failures
// of the reserve end the process, as their message says.
TEST(Content, EveryCallAndAllocationMayFail) {
  Tree tree;
  std::string old(70'000, 'o'), more(100'000, 'm');
  enum { kClosed, kReverted, kUnaligned, kWays };
  for (int way = 0; way < 2 * kWays; ++way) {
    bool revert = way / 2 == kReverted;
    for (int64_t number = 1;; ++number) {
      tree.File("f", old);
      std::string name = tree.Path("f");
      constexpr int kDone = 100;
      int code = tavrix_test::InChild([&] {
        FileObject* own = FileSelect(nullptr);
        ErrRaise("test", 1, 1);  // the stack is there
        ErrClear();
        static bool returns;
        ClsExitHook = [] {  // what else has ended the process
          const int32_t lines[] = {483, 486, 531, 535};
          if (!returns && std::count(lines, lines + 4, ErrLine) == 0) _exit(99);
        };
        if (way / 2 == kUnaligned) {
          own->nMaxSize = 83'900'000;
          SysAllocGranularity = 16 << 20;
        }
        std::optional<tavrix_test::CallFault> calls;
        std::optional<tavrix_test::AllocationFault> allocations;
        way % 2 ? void(calls.emplace(number)) : void(allocations.emplace(number));
        FileObject* file = FileOpen(own, name.c_str(), FO_MAPPED | 2 | FO_NAME);
        if (file && file->nSize == old.size()) {
          FileReplace(file->pView + old.size(), 0, more.data(), 100'000);
          FileAppendf("end");
          auto last = [&] { return file->pView ? file->pView + file->nSize - 2 : nullptr; };
          if (last()) FileReplace(last(), 1, "N", 1);
          if (last()) FileVPrintf(last(), 1, "%s", "N");
          if (last()) FileObjReplace(file, last(), 1, "N", 1);
          if (last()) FileObjVPrintf(file, last(), 1, "%.0f", 7.0);
          FileObjAppendf(file, "%s", "");
          FileObjResize(file, 0);
          FileNameRefresh();
          FileListDrives(nullptr, 0xFFFFFFFF);
        }
        revert ? FileRevert() : static_cast<int32_t>(FileClass(0));
        ErrClear();
        returns = true;
        return (calls ? calls->Hit() : allocations->Hit()) ? 0 : kDone;
      });
      bool fatal = code == 15 || code == 16 || (way / 2 == kUnaligned && (code == 3 || code == 4));
      EXPECT_TRUE(code == 0 || code == kDone || fatal) << way << " " << number << " " << code;
      std::string text = tree.Read("f");
      ASSERT_TRUE(text.starts_with(old)) << way << " " << number << " " << text.size();
      if (code == kDone) {
        EXPECT_EQ(text.size(), revert ? old.size() : old.size() + 100'003);
        EXPECT_GT(number, 6);
        break;
      }
      ASSERT_LT(number, 200);
    }
  }
}

// A writer that is killed leaves a file with what it had, and possibly zeros behind it.
TEST(Content, AKilledWriterLosesNothingOld) {
  Tree tree;
  std::string old(5000, 'o');
  for (int round = 0; round < 40; ++round) {
    tree.File("f", old);
    pid_t child = fork();
    if (child == 0) {
      FileOpen(nullptr, tree.Path("f").c_str(), FO_MAPPED | 2 | 0x20000);
      for (;;) {
        FileAppendf("%s", "new line\n");
        if (CurrentFile->nSize > 1'000'000) {
          FileResize(-900'000);
          FileMap(CurrentFile->nSize);
        }
      }
    }
    usleep(static_cast<useconds_t>(round) * 300);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::string text = tree.Read("f");
    ASSERT_EQ(text.substr(0, old.size()), old) << round;
  }
}

#endif

}  // namespace
}  // namespace quern
