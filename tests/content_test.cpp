// Edits in states of their own, the tails of streams, and writers that are killed.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cfile/map.h"
#include "quern/cfile/open.h"
#include "quern/cobj.h"
#include "tests/support/alloc.h"
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Open;
using tavrix_test::Tree;

TEST(Content, EditsWithoutAFileOrAText) {
  char none[] = "no file";
  EXPECT_EQ(FileReplace(none, 0, "x", 1), 0);
  EXPECT_EQ(ErrLine, 800);
  EXPECT_EQ(ClearedTrail(), "01");
#ifndef _WIN32  // where a character may have no bytes
  Tree tree;
  Open(tree, "f", FO_MAPPED | 18);
  EXPECT_EQ(FileAppendf("%ls", L"\x4E00"), 0);
  EXPECT_EQ(ClearedTrail(), "04");
  EXPECT_EQ(Close(), "");
#endif
}

// Objects in states that only odd calls lead to.
TEST(Content, OddStatesStayInside) {
  Tree tree;
  tree.File("a", std::string(1000, 'a'));
  tree.File("b");
  tree.File("d", std::string(1000, 'd'));
  FileObject* file = Open(tree, "a", FO_MAPPED | 2 | 0x10000);
  FileOpen(file, tree.Path("b").c_str(), FO_MAPPED | 2 | FO_ZERO_END | 0x10000);
  EXPECT_EQ(file->pView, nullptr);
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
