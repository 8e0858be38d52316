// File objects: opening and closing with every access value, the current file, companions, and
// reverting.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cobj.h"
#include "quern/cscan/scanner.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/opened.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Close;
using tavrix_test::Data;
using tavrix_test::Opened;
using tavrix_test::Tree;

// The whole report, and an empty stack.
std::string Report() {
  char report[4096] = "";
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  ErrClear();
  return report;
}

TEST(File, EveryAccessValueOpensAsItShould) {
  Tree tree;
  std::string there = tree.Path("there"), none = tree.Path("none");
  struct Case {
    uint32_t access;
    bool existing, missing;  // whether each can be opened
    bool writes;             // mapped, and as a stream
    bool streamWrites;
    size_t size;      // of an existing file afterwards, mapped
    size_t streamed;  // and as a stream
    const char* mappedCode;
    const char* streamCode;
  };
  const Case cases[] = {
      {1, true, false, false, false, 5, 5, "11", "21"},
      {8, true, false, false, false, 5, 5, "11", "21"},
      {9, true, false, false, false, 5, 5, "11", "21"},
      {2, true, false, true, false, 5, 5, "16", "22"},
      {10, true, false, true, false, 5, 5, "16", "22"},
      {16, false, true, true, true, 5, 5, "14", "24"},
      {18, true, true, true, true, 5, 5, "17", "26"},
      {32, true, true, true, true, 0, 0, "13", "23"},
      {64, true, false, true, true, 0, 5, "15", "25"},
  };
  for (const Case& test : cases) {
    for (bool mapped : {true, false}) {
      uint32_t flags = test.access | (mapped ? FO_MAPPED : 0);
      std::string code = mapped ? test.mappedCode : test.streamCode;
      for (bool exists : {true, false}) {
        SCOPED_TRACE(std::to_string(flags) + (exists ? " existing" : " missing"));
        tree.File("there", "12345");
        std::filesystem::remove(none);
        const std::string& name = exists ? there : none;
        bool opens = exists ? test.existing : test.missing;
        FileObject* file = FileOpen(nullptr, name.c_str(), flags);
        EXPECT_EQ(file != nullptr, opens);
        if (file) {
          bool writes = mapped ? test.writes : test.streamWrites;
          size_t size = exists ? mapped ? test.size : test.streamed : 0;
          EXPECT_EQ(file->fFlags, flags | (writes ? FO_WRITE : FO_READ));
          EXPECT_EQ(file->nSize, size);
          EXPECT_EQ(file->nOpenSize, size);
          EXPECT_EQ(file->hFile != nullptr, mapped);
          EXPECT_EQ(file->pStream != nullptr, !mapped);
          EXPECT_EQ(file->nStreamAux, 0u);
          EXPECT_EQ(file->nMaxSize, file->fFlags & (FO_WRITE | FO_KEEP_NAME) ? 200'000'000u : 0u);
          if (mapped && size != 0) {
            EXPECT_EQ(Data(), "12345");
          }
          EXPECT_EQ(Close(), "");
          EXPECT_EQ(std::filesystem::file_size(name), size);
        } else {
          EXPECT_EQ(ErrLast, atoi(code.c_str()));
          EXPECT_EQ(ClearedTrail(), code);
          EXPECT_EQ(Close(), "");
        }
      }
    }
  }
  tree.File("there", "12345");
  for (uint32_t access : {0u, 3u, 4u, 11u, 17u, 33u, 48u, 66u}) {
    EXPECT_EQ(Opened(there, access | FO_MAPPED), "19") << access;
    EXPECT_EQ(Opened(there, access), "29") << access;
  }
  EXPECT_EQ(tree.Read("there"), "12345");
}

TEST(File, FailuresCarryTheirTexts) {
  Tree tree;
  tree.File("there", "1");
  std::string there = tree.Path("there");
  EXPECT_EQ(FileOpen(nullptr, there.c_str(), FO_MAPPED), nullptr);
  EXPECT_EQ(Report(), "Error 19 (CFILE187): Illegal file-open-mode specified");
  FileOpen(nullptr, there.c_str(), 16);
  EXPECT_EQ(Report(), "Error 24 (CFILE208):");
  FileOpen(nullptr, (there + "x").c_str(), 2);
  EXPECT_EQ(Report(), "Error 22 (CFILE214): Failed to open " + there + "x");
  FileOpen(nullptr, there.c_str(), FO_MAPPED | 16);
  std::string report = Report();
  EXPECT_TRUE(report.starts_with("Error 14 (CFILE193): Failed to open " + there + " ")) << report;
  EXPECT_TRUE(report.ends_with(" (80)")) << report;  // the system's own value
  FileOpen(nullptr, tree.Path("no/file").c_str(), FO_MAPPED | 1);
  report = Report();
  EXPECT_TRUE(report.ends_with(" (03)")) << report;
  EXPECT_EQ(FileOpen(nullptr, nullptr, FO_MAPPED | 1), nullptr);
  EXPECT_EQ(ErrLast, 7);  // the last object is still current, without a name record
  ClsGarbage(kFileTag);
  EXPECT_EQ(FileOpen(nullptr, nullptr, FO_MAPPED | 1), nullptr);
  EXPECT_EQ(ErrLast, 6);
  uint32_t foreign[30] = {1234};
  EXPECT_EQ(FileOpen(foreign, there.c_str(), 1), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.1000.04.06.07");
}

TEST(File, NamesAndPlacesThatCannotBeOpened) {
  Tree tree;
  std::filesystem::create_directory(tree.root() / "dir");
  EXPECT_EQ(Opened(tree.Path("dir"), FO_MAPPED | 1), "11");
  EXPECT_EQ(Opened(tree.Path("dir"), FO_MAPPED | 18), "17");
  EXPECT_EQ(Opened(tree.Path("dir"), FO_MAPPED | 32), "13");
  EXPECT_EQ(Opened(tree.Path("dir"), 32), "23");
  EXPECT_EQ(Opened(tree.Path("dir"), 1), "21");
  EXPECT_EQ(Opened(tree.Path("none/x"), 18), "26");
  std::string longest = tree.Path();
  longest += Tree::Native("/") + std::string(258 - longest.size(), 'n');
  ASSERT_EQ(longest.size(), 259u);
  EXPECT_EQ(Opened(longest, FO_MAPPED | 18 | FO_NAME), "ok");
  EXPECT_EQ(Opened(longest, 1 | FO_NAME), "ok");
#ifndef _WIN32  // Wine opens them
  for (size_t size : {260, 300}) {
    std::string name = longest + std::string(size - 259, 'n');
    EXPECT_EQ(Opened(name, FO_MAPPED | 18), "17");
    EXPECT_EQ(Opened(name, 18), "26");
    EXPECT_EQ(Opened(name, FO_MAPPED | 18 | FO_NAME), "02.02");
  }
#endif
  EXPECT_EQ(Opened("", FO_MAPPED | 1), "11");
  EXPECT_EQ(Opened("", 1), "21");
  // What 32 bits cannot tell is not opened: closing would cut it.
  tree.File("huge", "1");
  std::filesystem::resize_file(tree.Path("huge"), (uint64_t{1} << 32) + 10);
  EXPECT_EQ(Opened(tree.Path("huge"), FO_MAPPED | 2), "16");
  EXPECT_EQ(Opened(tree.Path("huge"), FO_MAPPED | 1), "11");
  std::filesystem::resize_file(tree.Path("huge"), uint64_t{3} << 30);
  EXPECT_EQ(FileOpen(nullptr, tree.Path("huge").c_str(), FO_MAPPED | 2), nullptr);
  ErrClear();
  EXPECT_EQ(Close(), "03.02");
  EXPECT_EQ(std::filesystem::file_size(tree.Path("huge")), uint64_t{3} << 30);
  // A second writer is refused while the first one has the file; readers are not.
  tree.File("there", "1");
  std::string there = tree.Path("there");
  FileObject* first = FileOpen(nullptr, there.c_str(), FO_MAPPED | 2);
  EXPECT_EQ(FileOpen(nullptr, there.c_str(), FO_MAPPED | 2), nullptr);
  std::string report = Report();
  EXPECT_TRUE(report.ends_with(" (32)")) << report;
  EXPECT_EQ(Close(), "");
  FileSelect(first);
  EXPECT_EQ(Close(), "");
}

TEST(File, ExistenceIsAskedWithoutAnObject) {
  Tree tree;
  tree.File("there");
  EXPECT_NE(FileOpen(nullptr, tree.Path("there").c_str(), FO_EXISTS), nullptr);
  EXPECT_EQ(FileOpen(nullptr, tree.Path("none").c_str(), FO_EXISTS), nullptr);
  EXPECT_EQ(FileOpen(nullptr, tree.Path().c_str(), FO_EXISTS), nullptr);
  EXPECT_EQ(FileOpen(nullptr, nullptr, FO_EXISTS), nullptr);
  EXPECT_EQ(CurrentFile, nullptr);
  EXPECT_EQ(ErrCurrent, nullptr);
}

// The byte behind the data is written where there is one that can be.
TEST(File, ZeroEnds) {
  Tree tree;
  tree.File("full", std::string(65'536, 'x'));
  tree.File("there", "12345");
  EXPECT_EQ(Opened(tree.Path("full"), FO_MAPPED | 2 | FO_ZERO_END | FO_GROW_NONE), "ok");
  EXPECT_EQ(Opened(tree.Path("there"), FO_MAPPED | 1 | FO_ZERO_END), "ok");
  EXPECT_EQ(Opened(tree.Path("there"), FO_MAPPED | 2 | FO_ZERO_END), "ok");
  EXPECT_EQ(tree.Read("there"), "12345");
}

// A scanner goes with its file. What goes with the scanner may make another file current, or close
// this one.
TEST(File, ScannersGoWithTheirFile) {
  Tree tree;
  static FileObject *file, *other;
  static FileScanner* gone;
  static bool closes;
  for (bool each : {false, true}) {
    closes = each;
    FileScanner scanner = {}, second = {};
    other = FileOpen(nullptr, tree.Path("f").c_str(), 32);
    file = FileOpen(nullptr, tree.Path("f").c_str(), 1);
    ClsAttach(kScanTag, &second, kScanClass, sizeof second, nullptr);
    second.pFile = scanner.pFile = file;
    file->pScanner = &scanner;
    scanner.header.proc = [](uintptr_t argument) {
      gone = reinterpret_cast<FileScanner*>(argument);
      if (closes) FileClass(reinterpret_cast<uintptr_t>(file));
      CurrentFile = other;
      return 0u;
    };
    EXPECT_EQ(FileClass(0), 0u);
    EXPECT_EQ(gone, &scanner);
    EXPECT_EQ(scanner.pFile, nullptr);
    EXPECT_EQ(second.pFile, nullptr);
    EXPECT_EQ(CurrentFile, closes ? other : nullptr);
    EXPECT_EQ(ClassLists[kFileClass], &other->header);
    EXPECT_EQ(other->header.pNext, nullptr);
    FileClass(reinterpret_cast<uintptr_t>(other));
    auto* linked = &second;
    ClsDetach(kScanTag, &linked);
  }
  EXPECT_EQ(ClearedTrail(), "");
  EXPECT_EQ(FileClass(0), 0u);  // no file
}

TEST(File, EntryPointsLeaveTheCurrentFile) {
  Tree tree;
  tree.File("a", "aaa");
  tree.File("b", "bbb");
  FileObject* a = FileOpen(nullptr, tree.Path("a").c_str(), FO_MAPPED | 2);
  FileObject* b = FileObjOpen(nullptr, tree.Path("b").c_str(), FO_MAPPED | 2);
  EXPECT_EQ(CurrentFile, a);
  EXPECT_EQ(FileObjAppendf(b, "%d", 42), 2);
  EXPECT_EQ(FileObjPrintf(b, b->pView, "<%s>", "x"), 3);
  EXPECT_EQ(FileObjVPrintf(b, b->pView + 1, 1, "%s", "yy"), 1);
  EXPECT_EQ(FileObjReplace(b, b->pView, 1, "[", 1), 0);
  EXPECT_EQ(FileObjResize(b, -1), 0);
  EXPECT_EQ(std::string(b->pView, b->nSize), "[yy>bbb4");
  EXPECT_EQ(FileObjSelect(b), b);
  EXPECT_EQ(CurrentFile, a);
  uint32_t foreign[30] = {1234};
  auto* wrong = reinterpret_cast<FileObject*>(foreign);
  EXPECT_EQ(FileObjAppendf(wrong, "x"), 0);
  EXPECT_EQ(FileObjPrintf(wrong, nullptr, "x"), 0);
  EXPECT_EQ(FileObjVPrintf(wrong, nullptr, 0, "x"), 0);
  EXPECT_EQ(FileObjReplace(wrong, nullptr, 0, "x", 1), 0);
  EXPECT_EQ(FileObjResize(wrong, 1), 1000);
  EXPECT_EQ(FileObjSelect(wrong), nullptr);
  EXPECT_EQ(FileObjOpen(wrong, "x", 1), nullptr);
  EXPECT_EQ(CurrentFile, a);
  ErrClear();
  FileObject* companion = FileObjOpenBeside(tree.Path("b.x").c_str(), "", FO_MAPPED | 1);
  EXPECT_EQ(CurrentFile, a);
  FileObjClose(companion);
  FileObjClose(b);
  EXPECT_EQ(CurrentFile, a);
  FileObjClose(a);
  EXPECT_EQ(CurrentFile, nullptr);
  EXPECT_EQ(ClassLists[kFileClass], nullptr);
  EXPECT_EQ(tree.Read("b"), "[yy>bbb4");
  EXPECT_EQ(FileClass(kCollectRequest), 0u);
  EXPECT_EQ(ClearedTrail(), "");
}

TEST(File, CompanionsAreSearchedBesideThenHereThenAlongThePath) {
  Tree tree;
  tree.File("app/tool.ini", "beside");
  tree.File("here/tool.ini", "here");
  tree.File("path/tool.ini", "path");
  tree.File("app/v1.ini", "dot");
  auto old = std::filesystem::current_path();
  std::filesystem::current_path(tree.root() / "here");
  SetEnvironmentVariableA("path", (tree.Path("none") + ";" + tree.Path("path")).c_str());
  auto contents = [](const std::string& base, const char* extension, uint32_t flags) {
    FileObject* file = FileOpenBeside(base.c_str(), extension, flags | FO_MAPPED | FO_READ);
    std::string text = file ? Data() : "trail " + ClearedTrail();
    FileClass(0);
    return text;
  };
  std::string tool = tree.Path("app/tool.exe");
  EXPECT_EQ(contents(tool, nullptr, FO_SEP_SECTION), "beside");
  EXPECT_EQ(contents(tool, nullptr, FO_SEP_LINE), "beside");
  EXPECT_EQ(contents(tree.Path("app/tool"), ".ini", 0), "beside");
  EXPECT_EQ(contents(tree.Path("app/v1.2/tool"), nullptr, FO_SEP_SECTION), "dot");
  EXPECT_EQ(contents("tool", nullptr, FO_SEP_SECTION), "here");
  std::filesystem::remove(tree.root() / "app/tool.ini");
  EXPECT_EQ(contents(tool, nullptr, FO_SEP_SECTION), "here");
  std::filesystem::remove(tree.root() / "here/tool.ini");
  EXPECT_EQ(contents(tool, nullptr, FO_SEP_SECTION), "path");
  EXPECT_EQ(contents(tool, nullptr, FO_SEP_BLOCK), "trail 11");  // tool.log is nowhere
  EXPECT_EQ(contents(tool, nullptr, 0), "trail 01");
  EXPECT_EQ(contents("", ".x", 0), "trail 02");
  EXPECT_EQ(contents(std::string(300, 'x'), ".x", 0), "trail 02");
  EXPECT_EQ(contents(std::string(253, 'x'), ".x", 0), "trail 11");
  EXPECT_EQ(contents(std::string(257, 'x'), ".x", 0), "trail 11.02.02");  // no pattern
  EXPECT_EQ(contents(std::string(258, 'x'), ".x", 0), "trail 02");
  EXPECT_EQ(contents("y." + std::string(257, 'x'), ".x", 0), "trail 11");
  EXPECT_EQ(contents("y." + std::string(258, 'x'), ".x", 0), "trail 02");
  // The running program's own.
  EXPECT_EQ(FileOpenBeside(nullptr, ".no-such-companion", FO_MAPPED | FO_READ), nullptr);
  char own[MAX_PATH];
  std::string name(own, GetModuleFileNameA(nullptr, own, sizeof own)), report = Report();
  name = name.substr(0, name.rfind('.')) + ".no-such-companion";  // a dot of a folder will do
  name = "Failed to open " + std::filesystem::path(name).filename().string();
  EXPECT_NE(report.find(name), report.npos) << report;
  std::filesystem::current_path(old);
}

#ifndef _WIN32

// Streams that have no end.
TEST(File, StreamsWithoutASize) {
  Tree tree;
  tree.File("f", "12345");
  auto pipeEnd = [](int descriptor, const char* mode) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    close(descriptor);
    close(ends[mode[0] == 'r' ? 1 : 0]);
    return fdopen(ends[mode[0] == 'r' ? 0 : 1], mode);
  };
  {
    tavrix_test::StandIn<FILE*(int, const char*)> stand("fdopen", pipeEnd);
    EXPECT_EQ(Opened(tree.Path("f"), 1), "20");
  }
  FileObject* file = FileOpen(nullptr, tree.Path("f").c_str(), 64);
  fclose(file->pStream);
  file->pStream = pipeEnd(open("/dev/null", O_RDONLY), "wb");
  EXPECT_EQ(Close(), "04");
  file = FileSelect(nullptr);
  file->fFlags = FO_WRITE;
  EXPECT_EQ(Close(), "04");
}

// A child that ends, collects or reverts: no size, no byte, no position and no lock of its parent's
// files changes, and its error stack is empty. What it opens itself works.
TEST(File, AForkedChildLeavesItsParentsFilesAlone) {
  Tree tree;
  std::string folder = tree.Path("t"), name = tree.Path("f");
  tree.Dir("t/" + folder.substr(1));
  setenv("TMPDIR", folder.c_str(), 1);
  constexpr int kFiles = 24;  // more than the stack has entries
  std::vector<FileObject*> files;
  for (int i = 0; i < kFiles; ++i) {
    tree.File("f" + std::to_string(i), "12345");
    uint32_t flags = FO_MAPPED | FO_WRITE | (i == 0 ? FO_BACKUP : 0);
    FileSelect(nullptr)->nMaxSize =
        100'000;  // the address space has no place for as many of 190 MB
    files.push_back(FileOpen(CurrentFile, (name + std::to_string(i)).c_str(), flags));
    ASSERT_EQ(FileAppendf("678"), 3);
  }
  tree.File("s", "stream");
  FileObject* stream = FileOpen(nullptr, tree.Path("s").c_str(), FO_WRITE);
  ASSERT_TRUE(stream && files[0]->pszBackup);
  fseek(stream->pStream, 2, SEEK_SET);
  ASSERT_EQ(fgetc(stream->pStream), 'r');
  fseek(stream->pStream, 0, SEEK_CUR);
  ASSERT_EQ(fputc('!', stream->pStream), '!');
  const off_t position = lseek(fileno(stream->pStream), 0, SEEK_CUR);
  files.push_back(stream);
  for (int way = 0; way < 3; ++way) {
    std::string own = "own" + std::to_string(way);
    int code = tavrix_test::InChild([&] {
      FileOpen(nullptr, tree.Path(own).c_str(), FO_MAPPED | FO_CREATE);
      FileAppendf("own");
      for (FileObject* file : files) {
        if (file != stream && memcmp(file->pView, "12345678", 8) != 0) return 1;
        CurrentFile = file;
        if (way == 1 && FileRevert() != 0) return 2;
      }
      if (way == 2) ClsGarbage(kFileTag);
      return ErrCurrent && ErrCurrent->nCount ? 3 : 0;
    });
    EXPECT_EQ(code, 0) << way;
    EXPECT_EQ(tree.Read(own), "own");
    EXPECT_EQ(tree.Read("s"), "stream");
    EXPECT_EQ(lseek(fileno(stream->pStream), 0, SEEK_CUR), position);
    EXPECT_TRUE(std::filesystem::exists(files[0]->pszBackup));
    for (int i = 0; i < kFiles; ++i) EXPECT_GT(tree.Read("f" + std::to_string(i)).size(), 8u) << i;
    std::string append = "\"" TAVRIX_PROGRAM "\" append " + name + "7 more 2>/dev/null";
    EXPECT_EQ(system(append.c_str()), 0x100) << "the parent is still the only writer";
  }
  for (FileObject* file : files) FileClass(reinterpret_cast<uintptr_t>(file));
  EXPECT_EQ(ClearedTrail(), "");
  EXPECT_EQ(tree.Read("s"), "str!am");
  for (int i = 0; i < kFiles; ++i) EXPECT_EQ(tree.Read("f" + std::to_string(i)), "12345678") << i;
}

TEST(File, CompanionsOfTheProgramAndAtTheRoot) {
  using Open = int(const char*, int, unsigned);
  Tree tree;
  {  // the root, as if the tree were it
    tree.File("tvx.x", "root");
    tavrix_test::StandIn<Open> stand("open", [&](const char* name, int flags, unsigned mode) {
      bool top = strcmp(name, "/") == 0 || strcmp(name, "/tvx.x") == 0;
      return open(top ? tree.Path(name + 1).c_str() : name, flags, mode);
    });
    FileObject* file = FileOpenBeside("/tvx.exe", ".x", FO_MAPPED | 1);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Data(), "root");
    EXPECT_EQ(Close(), "");
  }
  {
    tavrix_test::CallFault fault("readlink", EACCES);
    EXPECT_EQ(FileOpenBeside(nullptr, ".x", 1), nullptr);
    EXPECT_EQ(ClearedTrail(), "01");
  }
  for (size_t length : {258, 259, 260}) {
    tavrix_test::StandIn<ssize_t(const char*, char*, size_t)> stand(
        "readlink", [&](const char*, char* text, size_t) {
          memset(text, 'p', length);
          text[length - 2] = '.';
          return static_cast<ssize_t>(length);
        });
    EXPECT_EQ(FileOpenBeside(nullptr, "", 1), nullptr);
    EXPECT_EQ(ClearedTrail(), length < 260 ? "21.02.02" : "01");
  }
}

// Whatever fails on the way to a companion: it is opened or not, and nothing is lost.
TEST(File, EveryStepToACompanionMayFail) {
  Tree tree;
  tree.File("there", "12345");
  std::string beside = tree.Path("there.exe");
  FileClass(reinterpret_cast<uintptr_t>(FileOpenBeside(beside.c_str(), "", 1)));
  for (bool call : {false, true}) {
    for (int64_t number = 1;; ++number) {
      int64_t descriptors = tavrix_test::OpenDescriptors();
      std::optional<tavrix_test::CallFault> calls;
      std::optional<tavrix_test::AllocationFault> allocations;
      call ? void(calls.emplace(number)) : void(allocations.emplace(number));
      FileObject* file = FileOpenBeside(beside.c_str(), "", FO_MAPPED | FO_READ);
      bool done = file && file->nSize == 5, hit = calls ? calls->Hit() : allocations->Hit();
      FileClass(0);
      calls.reset(), allocations.reset();
      ClsGarbage(ClassTag("FINF"));
      ErrClear();
      EXPECT_EQ(tavrix_test::OpenDescriptors(), descriptors) << call << " " << number;
      EXPECT_TRUE(done || hit) << call << " " << number;
      if (!hit) break;
      ASSERT_LT(number, 100);
    }
  }
}

#endif

}  // namespace
}  // namespace quern
