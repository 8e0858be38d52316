// Mapped files that grow in place, and edits of their contents and of streams, against plain
// models.

#include "quern/cfile/content.h"

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
#include "quern/cfile/map.h"
#include "quern/cfile/open.h"
#include "quern/csys.h"
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
  ErrClear();
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
  EXPECT_EQ(FileReplace(file->pView, 1, "x", 1), 0);
  EXPECT_EQ(ClearedTrail(), "05");
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
  HANDLE handle = file->hFile;
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
  file->nMaxSize = 70'000;  // the file's view fills it: no reserve
  EXPECT_EQ(FileMap(66'000), 0);
  EXPECT_EQ(file->hExtMap, nullptr);
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
  EXPECT_EQ(filter(0xC0000094, file->pView), 0);
  EXPECT_EQ(filter(violation, file->pView - 1), 0);
  EXPECT_EQ(filter(violation, file->pView + file->nMaxSize), 0);
  auto mappedAfter = [&](uint32_t offset) {
    EXPECT_EQ(filter(violation, file->pView + offset), -1);
    return file->nMapped;
  };
  EXPECT_EQ(mappedAfter(125'000), 196'608u);  // 130,000 and the growth, rounded
  EXPECT_EQ(mappedAfter(130'000), 196'608u);
  EXPECT_EQ(mappedAfter(190'000), 262'144u);
  EXPECT_EQ(filter(violation, file->pView + file->nMaxSize - 1), -1);  // 14, 2 below it, 1
  EXPECT_EQ(ClearedTrail().substr(0, 5), "01.02");
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

// A plain text edited as the rules say.
struct Model {
  std::string text;
  uint32_t most;
  std::string separator;
  uint32_t less;  // taken off the offset of a cut
  bool section;

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
    std::string region = moved.substr(most - kept, (section ? most : kept) + 1);
    size_t at = separator.empty() ? region.npos : region.rfind(separator);
    if (at != region.npos && at != 0 && at - less != 0) text.resize(most - (at - less));
    return change;
  }
};

TEST(Content, RandomEditsAgreeWithAModel) {
  std::mt19937 random(2);
  Tree tree;
  int limited = 0, cut = 0;
  for (int round = 0; round < 300; ++round) {
    tree.File("f", "");
    uint32_t selector = round % 4 << 20;
    FileObject* file = Open(tree, "f", FO_MAPPED | 2 | selector);
    file->nMaxSize = 200 + static_cast<uint32_t>(random() % 200);
    static const char* const kSeparators[] = {"", "[", "\r\n\r\n", "\r\n"};
    Model model = {"", file->nMaxSize, kSeparators[round % 4], round % 4 == 1, round % 4 == 1};
    for (int edit = 0; edit < 60; ++edit) {
      auto size = static_cast<uint32_t>(model.text.size());
      auto pos = static_cast<uint32_t>(random() % (size + 1));
      auto length = static_cast<uint32_t>(random() % (std::min(size - pos, 6u) + 1));
      std::string bytes;
      static const char* const kPieces[] = {"[", "\r\n", "\r\n\r\n", "a", "bcd", "\n", "efghijk"};
      for (unsigned count = random() % 8; count > 0; --count) bytes += kPieces[random() % 7];
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
  EXPECT_EQ(FileReplace(view + 5, 5, "x", 1), 0);  // resized already when the range is refused
  EXPECT_EQ(ClearedTrail(), "05.02");
  EXPECT_EQ(file->nSize, 5u);
  std::string longText(3000, 'l');
  EXPECT_EQ(FileAppendf("<%s>", longText.c_str()), 3002);
  EXPECT_EQ(Data().substr(5), "<" + longText + ">");
  auto list = [](const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int32_t change = FilePrintf(CurrentFile->pView, kFileArgList, format, &arguments);
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
  FileClass(reinterpret_cast<uintptr_t>(file));  // closed before
  EXPECT_EQ(ClearedTrail(), "");
  file = Open(tree, "b", 64 | FO_STREAMED);
  EXPECT_EQ(FileReplace(nullptr, 0, nullptr, 5), 5);
  EXPECT_EQ(Close(), "");
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
  Close();
}

#ifndef _WIN32

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
TEST(Content, EverySystemCallMayFail) {
  Tree tree;
  std::string old(70'000, 'o');
  for (bool revert : {false, true}) {
    for (int64_t number = 1;; ++number) {
      tree.File("f", old);
      constexpr int kDone = 100;
      int code = tavrix_test::InChild([&] {
        tavrix_test::CallFault fault(number);
        FileObject* file = FileOpen(nullptr, tree.Path("f").c_str(), FO_MAPPED | 2 | FO_NAME);
        if (file && file->nSize == old.size()) {
          std::string more(100'000, 'm');
          FileReplace(file->pView + old.size(), 0, more.data(), 100'000);
          FileAppendf("end");
          if (file->pView) FileReplace(file->pView + file->nSize - 2, 1, "N", 1);
        }
        revert ? FileRevert() : static_cast<int32_t>(FileClass(0));
        if (ErrCurrent) ErrClear();
        return fault.Hit() ? 0 : kDone;
      });
      EXPECT_TRUE(code == 0 || code == kDone || code == 3 || code == 4 || code == 15 || code == 16)
          << number << " " << code;
      std::string text = tree.Read("f");
      ASSERT_TRUE(text.starts_with(old)) << number << " " << text.size();
      if (code == kDone) {
        EXPECT_EQ(text.size(), revert ? old.size() : old.size() + 100'003);
        EXPECT_GT(number, 10);
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
