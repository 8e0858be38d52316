// Scanners by example: what definitions complain of, where their texts come from, and how files and
// scanners release each other. The rules of matching are in scan_test.cpp.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Tree;

constexpr int32_t kName = 3, kNumber = 4, kIf = 5, kOperator = 6, kOther = 7;

// Of C-like texts; every byte is of some symbol.
ScanDef code[] = {
    {"\n", kScanLineEnd, SCAN_STRING, 0, 10},
    {" \t\v\f\r", kScanBlank, SCAN_SET, 0, 20},
    {"if", kIf, SCAN_WORD, 0, 50},
    {"azAZ__\x80\xff", kName, SCAN_RANGES | SCAN_FIRST, 0, 30},
    {"azAZ__\x80\xff"
     "09",
     kName, SCAN_RANGES | SCAN_MORE, 0, 31},
    {"09", kNumber, SCAN_RANGES | SCAN_FIRST, 0, 40},
    {"09azAZ__..", kNumber, SCAN_RANGES | SCAN_MORE, 0, 41},
    {"==", kOperator, SCAN_STRING, 0, 60},
    {"->", kOperator, 0, 0, 61},
    {"\x80\x7f", kOther, SCAN_RANGES | SCAN_FIRST, 0, 70},
    {nullptr, 0, 0, 0, 0},
};

void Release() { EXPECT_EQ(ScanClass(reinterpret_cast<uintptr_t>(CurrentScanner)), 0u); }

// The rest of the text, token by token.
std::string Texts() {
  std::string texts;
  while (const ScanToken* token = ScanGet(kScanAny)) {
    if (token->pStart != CurrentScanner->pPosition) break;  // the end
    texts.append(token->pStart, token->nLength);
  }
  EXPECT_EQ(ScanStatus, kScanEnd);
  return texts;
}

std::string Report() {
  char report[4096] = "";
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  ErrClear();
  return report;
}

// A kind that does not exist ends the process when it is tried.
TEST(ScannerDeathTest, UnknownKindsAreFatal) {
  static ScanDef table[] = {{"a", 1, 77, 0, 0}, {nullptr, 0, 0, 0, 0}};
  ClsExitHook = [] { fprintf(stderr, "%s %d", ErrFile, ErrLine); };
  EXPECT_EXIT((ScanText("x", 1, table), ScanGet(1), exit(0)), testing::ExitedWithCode(1),
              "cscan 453");
  ClsExitHook = nullptr;
}

TEST(Scanner, DefinitionsAreChecked) {
  char odd[] = "abc";
  char folded[] = "folded";
  ScanDef bad[] = {
      {nullptr, 1, 1, 0, 0}, {odd, 1, 4, 0, 0},     {"x", 2, 0, 0, 0}, {"y", 2, 77, 0, 0},
      {"low", 3, 33, 0, 0},  {folded, 3, 34, 0, 0}, {"Z", 3, 0, 0, 0}, {nullptr, 0, 0, 0, 0},
  };
  EXPECT_EQ(ScanDefine(bad, 0), 0);
  EXPECT_NE(CurrentScanner->header.flags & INST_IMPLICIT, 0u);
  Scanner* implicit = CurrentScanner;
  EXPECT_EQ(implicit->nHighest, 3);  // what has no pattern does not count
  EXPECT_STREQ(folded, "FOLDED");
  EXPECT_EQ(bad[1].fFlags, SCAN_RANGES);
  EXPECT_EQ(bad[2].fFlags, 0u);
  EXPECT_EQ(bad[6].fFlags, SCAN_WORD_FOLD);
  std::string report = Report();
  for (const char* line :
       {"04:04:03:02:02 (CSCAN782)", "Scanner 1. symbol '(null)' has improper definition",
        "Scanner 2. symbol 'abc' has improper definition",
        "Scanner 3. symbol 'x' has improper definition",
        "Scanner 4. symbol 'y' has improper definition",
        "Scanner 5. symbol 'low' is not writable - you MUST convert definition to uppercase or "
        "remove name conflict with string constant"})
    EXPECT_NE(report.find(line), std::string::npos) << line << "\n" << report;
  ScanDef apart[] = {{"a", 1, 1, 0, 0}, {"b", 5, 1, 0, 0}, {nullptr, 0, 0, 0, 0}};
  EXPECT_EQ(ScanDefine(nullptr, 0), -1);
  ErrClear();
  EXPECT_EQ(ScanText("x", 1, apart), CurrentScanner);
  EXPECT_EQ(ScanSymbol(3), nullptr);
  EXPECT_NE(Report().find("Symbol '3' is used but was never configured"), std::string::npos);
  Release();
  ScanClass(reinterpret_cast<uintptr_t>(implicit));
  EXPECT_EQ(ClassLists[kScanClass], nullptr);
}

TEST(Scanner, StreamsAreReadLineByLine) {
  Tree tree;
  std::string longLine(300, 'x');
  // A carriage return that just fits, and one whose line feed comes behind the block.
  std::string edges = std::string(255, 'y') + "\r\n" + std::string(254, 'z') + "\r\n\r\nend";
  tree.File("f", "one\r\ntwo\rthree\n" + longLine + "\n" + edges);
  ASSERT_NE(ScanOpen(tree.Path("f").c_str(), FO_READ | FO_STREAMED, code), nullptr);
  std::string lines;
  for (std::string line; ScanStatus != kScanEnd; ScanAdvance(CurrentScanner->mbSource.nSize)) {
    const MemBuf& text = CurrentScanner->mbSource;
    EXPECT_EQ(text.pData[text.nSize], '\0');
    EXPECT_EQ(text.nAlloc, 256u);
    lines += std::string(text.pData, text.nSize) + "|";
  }
  EXPECT_EQ(lines, "one\ra|two\r|three\n|" + std::string(256, 'x') + "|" + std::string(44, 'x') +
                       "\n|" + std::string(255, 'y') + "\ra|" + std::string(254, 'z') +
                       "\ra|\ra|end|");
  EXPECT_EQ(ScanRewind(), 0);
  ScanGet(kScanRefresh);
  CurrentScanner->pPosition += CurrentScanner->mbSource.nSize;
  EXPECT_EQ(ScanSymbol(kName)->nLength, 3u);  // of the next line
  EXPECT_EQ(*CurrentScanner->pPosition, 't');
  EXPECT_EQ(ScanRewind(), 0);
  EXPECT_EQ(ScanGet(kName)->nLength, 3u);
  const char* token = ScanPending->pStart;
  // A stream without its end: the refill has nothing to read.
  FileObject* file = CurrentScanner->pFile;
  fclose(file->pStream);
  file->pStream = nullptr;
  EXPECT_EQ(ScanRewind(), -1);
  EXPECT_EQ(ScanReadLine(), 0u);
#ifndef _WIN32
  file->pStream = popen("echo one", "r");  // that cannot go back
  EXPECT_EQ(ScanRewind(), -1);
  pclose(std::exchange(file->pStream, nullptr));
#endif
  Release();
  ErrClear();
  EXPECT_EQ(std::string(token, 3), "one") << "the block stays for the tokens";
}

TEST(Scanner, FollowsItsFile) {
  Tree tree;
  tree.File("f", "one two");
  FileObject* other = FileOpen(nullptr, tree.Path("g").c_str(), FO_MAPPED | 18);
  ASSERT_NE(ScanOpen(tree.Path("f").c_str(), FO_MAPPED | 2, code), nullptr);
  EXPECT_EQ(CurrentFile, other);
  Scanner* scanner = CurrentScanner;
  FileObject* file = scanner->pFile;
  EXPECT_EQ(ScanGet(kName)->nLength, 3u);
  EXPECT_EQ(FileObjAppendf(file, " three"), 6);
  EXPECT_EQ(ScanPending, nullptr);  // what a refresh does
  EXPECT_EQ(Texts(), "one two three");
  // Another scanner is current while the file shrinks below the position.
  ASSERT_NE(ScanText("abc", 3, code), nullptr);
  Scanner* text = CurrentScanner;
  EXPECT_EQ(FileObjResize(file, -9), 0);
  EXPECT_EQ(CurrentScanner, text);
  EXPECT_EQ(scanner->pPosition, file->pView + 4);
  ScanSelect(scanner);
  EXPECT_EQ(ScanGet(kScanAny)->nId, kScanEnd);
  EXPECT_EQ(ScanRewind(), 0);
  EXPECT_EQ(Texts(), "one ");
  // A file that is not mapped any more has no text, until it is again.
  CurrentFile = file;
  EXPECT_EQ(FileMap(0), 0);
  EXPECT_EQ(ScanRewind(), 0);
  EXPECT_EQ(Texts(), "");
  EXPECT_EQ(FileMap(4), 0);
  EXPECT_EQ(ScanRewind(), 0);
  EXPECT_EQ(Texts(), "one ");
  // The file takes the scanner with it, and no other; the current file stays.
  CurrentFile = other;
  EXPECT_EQ(FileObjClose(file), 0u);
  EXPECT_EQ(CurrentFile, other);
  EXPECT_EQ(ClassLists[kScanClass], &text->header);
  EXPECT_EQ(tree.Read("f"), "one ");
  // And the scanner its file.
  EXPECT_EQ(ScanAttachFile(text, other), text);
  EXPECT_EQ(ScanAttachFile(text, other), text);
  EXPECT_EQ(other->pScanner, reinterpret_cast<FileScanner*>(text));
  Release();
  EXPECT_EQ(ClassLists[kFileClass], nullptr);
  EXPECT_EQ(CurrentFile, nullptr);
  EXPECT_EQ(ClearedTrail(), "");
}

// Two scanners of one file: whichever goes first, the others forget it.
TEST(Scanner, CrossedLinksAreCleared) {
  Tree tree;
  tree.File("f", "one");
  std::string name = tree.Path("f");
  for (bool fileFirst : {true, false}) {
    FileObject* file = FileOpen(nullptr, name.c_str(), FO_MAPPED | FO_READ);
    Scanner* a = ScanAttachFile(nullptr, file);
    Scanner* b = ScanAttachFile(nullptr, file);
    if (fileFirst) {
      FileClass(reinterpret_cast<uintptr_t>(file));  // and b
    } else {
      ScanClass(reinterpret_cast<uintptr_t>(b));  // and the file
    }
    EXPECT_EQ(ClassLists[kScanClass], &a->header);
    EXPECT_EQ(ClassLists[kFileClass], nullptr);
    EXPECT_EQ(a->pFile, nullptr);
    ScanSelect(a);
    EXPECT_EQ(ScanDefine(code, 0), 0);
    EXPECT_EQ(Texts(), "");
    Release();
  }
  // A companion goes with the scanner; its class closes the file once more, or the scanner itself.
  static FileObject* parsed;
  static Scanner* parser;
  static const ClassProc classes[] = {
      [](uintptr_t) { return FileObjClose(parsed); },
      [](uintptr_t) { return ScanClass(reinterpret_cast<uintptr_t>(parser)); }, nullptr};
  for (ClassProc proc : classes) {
    parsed = FileOpen(nullptr, name.c_str(), FO_STREAMED | FO_READ);
    parser = ScanAttachFile(nullptr, parsed);
    InstanceHeader own = {};
    InstanceHeader* variable = &own;
    ClsAttach(ClassTag("PARS"), &own, 12, sizeof own, proc);
    parser->pCompanion = &own;
    FileObjClose(parsed);
    EXPECT_EQ(ClassLists[kScanClass], nullptr);
    EXPECT_EQ(ClassLists[kFileClass], nullptr);
    EXPECT_EQ(ClsDetach(ClassTag("PARS"), &variable), 0);
  }
  EXPECT_EQ(ClearedTrail(), "");
}

// Views that go, or do not grow, behind the back of their scanners.
TEST(Scanner, ReadsNothingThatIsNotMapped) {
  Tree tree;
  tree.File("f", "one two");
  std::string name = tree.Path("f");
  ASSERT_NE(ScanOpen(name.c_str(), FO_MAPPED | FO_STREAMED | 2, code), nullptr);
  FileObjResize(CurrentScanner->pFile, 1'000'000);
  EXPECT_EQ(CurrentScanner->mbSource.nSize, CurrentScanner->pFile->nMapped);
  CurrentFile = CurrentScanner->pFile;
  for (uint32_t size : {800'000u, 4u}) {  // more of it, and less, at the same place
    EXPECT_EQ(FileMap(size), 0);
    if (size > 4) ScanRewind();
    EXPECT_EQ(CurrentScanner->mbSource.nSize, CurrentFile->nMapped);
    EXPECT_EQ(CurrentFile->nMapped > 800'000, size > 4);
  }
  EXPECT_LT(FileMap(300'000'000), 0);  // too large: the place is kept, and nothing is there
  EXPECT_EQ(CurrentScanner->mbSource.pData, nullptr);
  Texts();
  Release();
  // A stream that was read whole: no more than that, whatever becomes of the file.
  Scanner* scanner = ScanOpen(name.c_str(), FO_STREAM_BUFFER | 2, code);
  FileObject* file = scanner->pFile;
  const uint32_t size = scanner->mbSource.nSize;
  EXPECT_EQ(ScanDefine(code, 0), 0);
  const char* token = ScanGet(kName)->pStart;
  file->nSize = 100'000'000;
  {
    tavrix_test::AllocationFault fault(1, 1);
    EXPECT_LT(ScanRewind(), 0);  // which leaves all as it was
  }
  EXPECT_EQ(ScanPending->pStart, token);
  EXPECT_EQ(std::string(token, 3), "one");
  file->nSize = size;
  ++scanner->pPosition;
  EXPECT_EQ(ScanRewind(), 0);
  EXPECT_EQ(scanner->pPosition, scanner->mbSource.pData);
  for (uint32_t now : {size + 5, 3u}) {
    file->nSize = now;
    FileResizedHook(file);
    EXPECT_EQ(scanner->mbSource.nSize, std::min(size, now));
  }
  Release();
  ClsGarbage(0);
  ErrClear();
}

TEST(Scanner, FailuresHaveTheirCodes) {
  Tree tree;
  tree.File("f", "text");
  EXPECT_EQ(ScanOpen(tree.Path("none").c_str(), FO_READ | FO_MAPPED, code), nullptr);
  EXPECT_EQ(ClearedTrail(), "01:11");
  EXPECT_EQ(ScanOpen(tree.Path("f").c_str(), FO_READ | FO_MAPPED, nullptr), nullptr);
  EXPECT_EQ(ClearedTrail(), "03.01");
  Release();
  uint32_t junk[64] = {1};
  EXPECT_EQ(ScanSelect(junk), nullptr);
  EXPECT_EQ(ClearedTrail(), "1000.04");
  EXPECT_EQ(ScanAttachFile(nullptr, reinterpret_cast<FileObject*>(junk)), nullptr);
  EXPECT_EQ(ClearedTrail(), "01.1000.04");
  EXPECT_EQ(ScanText(reinterpret_cast<const char*>(16), 5, code), nullptr);
  EXPECT_EQ(ClearedTrail(), "01");
  EXPECT_EQ(ScanText("text", 4, nullptr), nullptr);
  EXPECT_EQ(ClearedTrail(), "03.01");
  Release();
  EXPECT_EQ(ClassLists[kScanClass], nullptr);
}

}  // namespace
}  // namespace quern
