// The public functions that allocate or call the system, each with its first allocation or system
// call failing, then its second, and so on. Whichever it is, the function works or fails as it says
// it does, nothing is lost, and the next call works.
#include "platform/posix/directory.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::CallFault;

// Longer than what the library keeps at hand.
const std::string kLong(3000, 'x');
const std::string kText(400, 'x');  // as long as a text of the error stack may be

// How a function fails.
enum Failure {
  kRaises,  // with an error on the stack
  kQuiet,   // by its result alone
};

struct Row {
  const char* functions;
  Failure failure;
  std::function<bool()> call;  // whether all of it was done
  int64_t stays = 0;           // blocks that a call leaves, as is the rule
};

class PublicFault : public testing::Test {
 protected:
  PublicFault() {
    const std::string temporary = tree_.Path("t");
    for (const char* file : {"list/a.txt", "list/b/c.txt"}) tree_.File(file);
    tree_.Dir("t" + temporary);
    tree_.File("bin/zenity", "#!/bin/sh\necho " + name_ + "\n");
    std::filesystem::permissions(tree_.root() / "bin/zenity", std::filesystem::perms::all);
    for (const auto& [name, value] : std::initializer_list<std::pair<const char*, std::string>>{
             {"PATH", tree_.Path("bin") + ":/usr/bin:/bin"},
             {"DISPLAY", ":77"},
             {"prompt", kLong},
             {"TMPDIR", temporary},
             {"TVX_NAME", name_},
             {"TVX_LIST", tree_.Path("list")}})
      setenv(name, value.c_str(), 1);
  }

  // Closes and releases everything but the error stack.
  static void Release() {
    FileList(nullptr, nullptr, 0);
    posix_layer::ForgetDirectory();  // which is kept when it was not changed for some time
    for (uint32_t tag : {kFinderTag, kScanTag, kFileTag, kMemTag, kFmtTag, kCslTag})
      ClsGarbage(tag);
    ErrClear();
    ErrClass(0);  // with the texts that it made
    ErrRaise("test", 1, 1);
    ErrClear();
  }

  // Opens the file, which is as before.
  FileObject* Open(uint32_t flags) {
    tree_.File("f", "12345");
    return FileOpen(nullptr, name_.c_str(), flags);
  }

  static constexpr int kHit = 80;  // as no process ends by itself

  // Returns kHit, 0 when there was nothing left to fail, or another code for what went wrong.
  template <class Fault>
  static int Attempt(const Row& row, int64_t number) {
    Release();
    if (!row.call()) return 90;
    Release();
    const int64_t descriptors = tavrix_test::OpenDescriptors();
    int64_t blocks = INT64_MAX;
    bool done, hit;
    for (int i = 0; i < 2; ++i) {  // what the first time leaves may be kept for good
      {
        Fault fault(number);
        done = row.call();
        hit = fault.Hit();
      }
      if (!done && !hit) return 91;
      if (!done && row.failure != kQuiet && ErrLast == 0) return 92;
      Release();
      if (tavrix_test::LiveBlocks() > blocks) return 93;
      blocks = tavrix_test::LiveBlocks() + row.stays;
    }
    if (tavrix_test::OpenDescriptors() != descriptors) return 94;
    if (!row.call()) return 95;
    return HasFailure() ? 96 : hit ? kHit : 0;
  }

  static int InSilence(const std::function<int()>& body) {
    return tavrix_test::InChild([&] { return freopen("/dev/null", "w", stdout) ? body() : 89; });
  }

  static int OnATerminal(const std::function<int()>& body) {
    return tavrix_test::Terminal(80, 25).Run([&] { exit(body()); });
  }

  // Every failure of every row.
  template <class Fault>
  void Sweep() {
    for (const Row& row : rows_) {
      const bool plain = &row < &rows_.end()[-kOnATerminal];
      int code = kHit;
      for (int64_t number = 1; code != 0; ++number) {
        auto attempt = [&] { return Attempt<Fault>(row, number); };
        code = plain ? InSilence(attempt) : OnATerminal(attempt);
        ASSERT_TRUE(code == kHit || code == 0) << code << " " << row.functions << " " << number;
        ASSERT_LT(number, 200) << row.functions;
      }
    }
  }

  tavrix_test::Tree tree_;
  std::string name_ = tree_.Path("f");
  static constexpr int32_t kName = 3;
  ScanDef symbols_[4] = {{"\n", kScanLineEnd, SCAN_STRING, 0, 0},
                         {" ", kScanBlank, SCAN_SET, 0, 0},
                         {"az", kName, SCAN_RANGES, 0, 0},
                         {nullptr, 0, 0, 0, 0}};

  static constexpr int kOnATerminal = 2;  // so many rows at the end
  const std::vector<Row> rows_ = {
      {"XProcStart", kQuiet,
       [] {
         char line[] = "true";
         return XProcStart(line) == 0;
       },
       1},
      {"XDlgFileOpen", kQuiet,
       [] {
         char name[260] = "";
         OPENFILENAMEA ofn = {};
         ofn.lpstrFile = name;
         ofn.nMaxFile = sizeof name;
         return XDlgFileOpen(&ofn) == 1;
       }},
      {"XFileList FileList FileListRoot FileListPattern FileFindStep FileFinderSelect", kQuiet,
       [this] {
         char name[262];
         int count = 0;
         while (XFileList(name, "%TVX_LIST%", "*.txt", FL_RECURSE)) ++count;
         return count == 3;  // the last pattern reports twice in a subdirectory
       }},
      {"FileListDrives", kQuiet,
       [this] {
         MemSplit drives = {};
         MemSplitInit(&drives, "", 0, "", 0);
         FileFinderSelect(nullptr);
         if (CurrentFinder) CurrentFinder->pDrives = &drives;
         FileListDrives(nullptr, 0);
         bool done = CurrentFinder && FileListDrives(tree_.Path().c_str(), ~0u) != 0x80000000;
         if (CurrentFinder) CurrentFinder->pDrives = nullptr;
         return done;
       }},
      {"FileWalk FileWalkB", kQuiet,
       [this] {
         static int count;
         count = 0;
         char path[260];
         strcpy(path, tree_.Path("list/b").c_str());
         auto note = [](uint32_t, const WIN32_FIND_DATAA*) -> uint32_t { return ++count, 0; };
         FileWalk(path, "*", note);
         FileWalkB(path, "*", note);
         return count == 6;
       }},
      {"FileSplitPath FileStat", kRaises,
       [this] {
         FileNameRec rec = {};
         return Open(FO_MAPPED | FO_READ) && FileSplitPath("f", &rec) == 0 &&
                FileStat(name_.c_str(), &rec) == 0;
       }},
      {"FileOpen FileSelect FileObjOpen FileObjSelect FileObjClose FileOpenBeside"
       " FileObjOpenBeside",
       kRaises,
       [this] {
         tree_.File("f.ini");
         FileObject* stream = Open(FO_READ | FO_STREAM_BUFFER | FO_NAME);
         FileObject* own = FileObjSelect(nullptr);
         bool done = stream && own && FileObjOpen(own, name_.c_str(), FO_READ) &&
                     FileOpenBeside((name_ + ".exe").c_str(), ".ini", FO_READ) &&
                     FileObjOpenBeside((name_ + ".exe").c_str(), ".ini", FO_READ);
         if (own) FileObjClose(own);
         return done;
       }},
      {"FileObjResize FileObjReplace FileObjVPrintf FileObjPrintf FileObjAppendf", kRaises,
       [this] {
         FileObject* file = Open(FO_WRITE | FO_STREAMED);
         return file && FileObjResize(file, 100) == 0 &&
                FileObjReplace(file, file->pView, 1, kLong.data(), 500) &&
                FileObjVPrintf(file, file->pView, 1, "%s", kLong.c_str()) &&
                FileObjPrintf(file, file->pView, "%s", kLong.c_str()) &&
                FileObjAppendf(file, "%s", kLong.c_str());
       }},
      {"ScanOpen ScanAttachFile ScanDefine ScanGet ScanMatch ScanRun ScanSkipTo ScanFirstOf "
       "ScanFirstOfList ScanFind ScanReadLine ScanRewind",
       kRaises,
       [this] {
         tree_.File("f", "one two\n" + kLong);
         int32_t names[] = {kName, 0};
         return ScanOpen(name_.c_str(), FO_READ | FO_STREAMED, symbols_) && ScanGet(kName) &&
                ScanMatch(kName) && ScanRun(kName) && ScanSkipTo(kName) &&
                ScanFirstOf(kName, SCAN_LIST_END) && ScanFirstOfList(names) && ScanFind(kName) &&
                ScanReadLine() && ScanRewind() == 0;
       },
       2},
      {"ScanText ScanSelect ScanDefine ScanSetValue ScanAddValue", kRaises,
       [this] {
         return ScanSelect(nullptr) && ScanText(kLong.data(), 3000, symbols_) &&
                ScanDefine(symbols_, 0) == 0 && ScanSetValue(kLong.data(), 3000) &&
                ScanAddValue(kLong.data(), 3000);
       }},
      {"ErrRaiseText ErrPushText ErrText ErrFormat ErrGetText ErrReport", kQuiet,
       [] {
         static char text[4000];
         ErrRaiseText("test", 1, 1, 31, kText.c_str());
         bool done = false;
         while (ErrGetText(text, -1)) done |= strstr(text, kText.c_str()) != nullptr;
         ErrPush(1);
         ErrPushText(0, reinterpret_cast<uintptr_t>(kText.c_str()));
         const char* made = ErrFormat(reinterpret_cast<uintptr_t>("%s"), kText.c_str());
         done = done && made && kText == made;
         made = ErrText(31, kText.c_str());
         done = done && made && strstr(made, kText.c_str());
         SetLastError(ERROR_DISK_FULL);
         ErrRaiseText("test", 1, ERR_SYSTEM | 1, "text");
         ErrReport(text, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
         return done && strstr(text, "text") && strstr(text, "(112)");
       }},
      {"ClsAttach ErrSetTable FmtSelect FmtHex FmtDump", kRaises,
       [] {
         static const MessageRow rows[] = {{1, "one", 0}, {0, "other", 0}};
         ErrClass(0);
         void* thing = ClsAttach(kFmtTag, nullptr, kFmtClass, sizeof(Formatter), nullptr);
         return thing && ClsDetach(kFmtTag, &thing) == 0 && ErrSetTable(nullptr, rows) &&
                ErrSetTable(nullptr, nullptr) && FmtSelect(nullptr) &&
                FmtHex(kLong.data(), 3000, nullptr, 0) && FmtDump(kLong.data(), 100, 0, 0) == 0;
       }},
      {"MemResize MemExtend MemBufNew MemBufSet MemBufAdd MemBufSplice MemBufPrintf", kRaises,
       [] {
         void* block = MemResize(nullptr, 10, 0, 4);
         void* more = MemExtend(nullptr, 3000, 0, 4);
         free(block);
         free(more);
         MemBuf* buf = MemBufNew(nullptr, 4096);
         bool done = block && more && buf && MemBufSet(buf, "abc", 3) &&
                     MemBufAdd(buf, kLong.data(), 3000) &&
                     MemBufSplice(buf, buf->pData, 1, kLong.data(), 3000) &&
                     MemBufPrintf(buf, "%s%s%s", kLong.c_str(), kLong.c_str(), kLong.c_str());
         if (buf) MemBufFree(buf);
         free(buf);
         return done;
       }},
      {"MemAttach MemReplace MemBufReplace", kRaises,
       [] {
         char block[32] = "0123456789";
         MemBuf buf = {4, 0, 0, nullptr};
         MemReplace(block, 10, block + 2, 1, block, 3, MEM_RECORD);
         uint32_t growth = MemReplace(block, 20, nullptr, 0, nullptr, 0, MEM_APPLY);
         EXPECT_TRUE(growth == 2 || growth == 0);
         EXPECT_STREQ(block, growth == 2 ? "010123456789" : "0123456789");
         bool done =
             growth == 2 && MemBufReplace(&buf, "z", 1, kLong.data(), 3000, 0) && buf.nSize == 3000;
         MemBufFree(&buf);
         return done;
       }},
      {"MemHashInit MemHashAdd MemHashSize MemHashDump MemPoolNew MemPoolAdd MemSplitInit", kRaises,
       [] {
         Hash hash = {};
         MemBuf buf = {2048, 0, 0, nullptr};
         TraceFile = fopen("/dev/null", "w");
         bool done = MemHashInit(&hash, 2, 1, nullptr, nullptr) == 0 &&
                     MemHashAdd(&hash, kLong.data(), 3000, 1) && MemHashAdd(&hash, "other", 4, 2) &&
                     MemHashSize(&hash, 5, 0) == 0 && MemHashDump(&hash, "other", 4) == 0 &&
                     MemPoolNew(&buf, "a", 1) && MemPoolAdd(&buf, kLong.data(), 3000);
         MemHashFree(&hash);
         MemPoolFree(&buf);
         fclose(std::exchange(TraceFile, nullptr));
         MemSplit* split = MemSplitInit(nullptr, "a;b", 3, ";", 1);
         free(split);
         return done && split;
       }},
      {"CslExpand CslSetPrompt CslAtExit", kQuiet,
       [] {
         return CslExpand("%TVX_NAME%%TVX_NAME%") && CslSetPrompt("\x1B[1m") &&
                CslAtExit([] {}, 1) == 0;
       }},
      {"SetEnvironmentVariableA FormatMessageA OpenProcessToken GetDriveTypeA", kQuiet,
       [] {
         char* text;
         HANDLE token;
         return SetEnvironmentVariableA("TVX_TEST", "text") &&
                GetDriveTypeA("/") != DRIVE_UNKNOWN &&
                FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               112, 0, reinterpret_cast<char*>(&text), 0, nullptr) &&
                !LocalFree(text) && OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) &&
                CloseHandle(token);
       }},
      {"CslSelect CslSet CslGet CslInMode CslOutMode CslPaint CslMarkRun", kRaises,
       [] {
         uintptr_t width = 0;
         uint32_t mode = 0;
         return CslSelect(nullptr) && CslSet(CSL_POSITION, 3, 4) == 0 &&
                CslSet(CSL_TEXT_COLOUR, 0x1E, 0) == 0 && CslSet(CSL_HIDDEN, 0, 0) == 0 &&
                CslSet(CSL_CLEAR, 1, 0) == 0 && CslGet(CSL_BUFFER_WIDTH, &width, nullptr) == 0 &&
                width == 80 && CslInMode(4, &mode) == 0 && CslOutMode(2) == 0 &&
                CslPaint(0x1E, 0, 0, 3, 0, 0, 0) == 0 && CslMarkRun(0x2F, 3) == 0;
       }},
      {"ErrReport FmtDump FmtStruct CslOnDemand CslRestoreColour CslRestoreCursor", kQuiet,
       [] {
         static const FieldDesc table[] = {{0, FIELD_UNSIGNED | 4, "Field", 0, 0, nullptr}, {}};
         ErrRaiseText("test", 1, 1, "text");
         bool done = ErrReport(nullptr, ERR_REPORT_FULL) == 0 && FmtDump(table, 4, 0, 0) == 0 &&
                     FmtStruct(table, &kLong) != 0;
         Console* console = CslOnDemand();
         if (console) CslRestoreColour(console), CslRestoreCursor(console);
         return done && console;
       }},
  };
};

TEST_F(PublicFault, EveryAllocationMayFail) { Sweep<AllocationFault>(); }

TEST_F(PublicFault, EverySystemCallMayFail) { Sweep<CallFault>(); }

// A signal in the middle of a call is no failure of it.
TEST_F(PublicFault, EveryCallMayBeInterrupted) {
  for (const char* call :
       {"open", "read", "write", "ftruncate64", "fallocate64", "pread64", "waitpid", "poll"}) {
    for (size_t i = 0; i + kOnATerminal < rows_.size(); ++i) {
      auto interrupted = [&] {
        Release();
        CallFault fault(call, EINTR, 1);
        return rows_[i].call() ? 0 : 1;
      };
      EXPECT_EQ(InSilence(interrupted), 0) << call << " " << rows_[i].functions;
    }
  }
}

}  // namespace
}  // namespace quern
