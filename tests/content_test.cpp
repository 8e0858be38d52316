// Edits of mapped files and of streams, against plain models.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
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
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <signal.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Data;
using tavrix_test::Open;
using tavrix_test::Tree;

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
  EXPECT_EQ(ClearedTrail(), "05.02");
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
    if (pos > size || size + text.size() < length) return 0;
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
  EXPECT_EQ(ClearedTrail(), "06.02");
  FileClass(0);
  ErrClear();
  // A view that has shrunk: what is not mapped cannot be moved.
  tree.File("c", std::string(100'000, 'c'));
  file = Open(tree, "c", FO_MAPPED | 2);
  EXPECT_EQ(FileMap(1), 0);
  EXPECT_EQ(FileReplace(file->pView, 60'000, nullptr, 0), 0);
  EXPECT_EQ(ClearedTrail(), "05.02");
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
