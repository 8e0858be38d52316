// A logbook: stamps lines into a file that never grows beyond its limit.
//
//   logbook add TEXT      a line with date and time; the oldest ones go when the book is full
//   logbook list [WORD]   the lines, numbered; those with the word, in any case
//
// Settings stand in logbook.ini beside the program, in the current folder, or along %path%:
//
//   limit = 20000         bytes
//
// and the lines in logbook.log, which is looked for in the same places and else begun in the
// current folder.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cmem.h"
#include "quern/cscan.h"
#include "quern/ctime.h"

using namespace quern;

namespace {

constexpr uint32_t kLimit = 20000;  // without settings

// Everything that failed, on standard error. The exit code.
int Ended() {
  char report[4096] = "";
  ErrReport(report, ERR_REPORT_COMPOSE | ERR_REPORT_FULL);
  if (!*report) return EXIT_SUCCESS;
  fprintf(stderr, "logbook: %s\n", report);
  return EXIT_FAILURE;
}

// The number behind "limit =" in the settings.
uint32_t Limit() {
  enum : int32_t { kName = 3, kNumber, kOther };
  static ScanDef table[] = {{"\n", kScanLineEnd, SCAN_STRING, 0, 0},
                            {" \t\r=", kScanBlank, SCAN_SET, 0, 0},
                            {"limit", kName, SCAN_WORD, 0, 0},
                            {"09", kNumber, SCAN_RANGES, 0, 0},
                            {"\x80\x7F", kOther, SCAN_RANGES | SCAN_FIRST, 0, 0},
                            {nullptr, 0, 0, 0, 0}};
  uint32_t limit = kLimit;
  FileObject* file = FileObjOpenBeside(nullptr, ".ini", FO_READ | FO_MAPPED);
  if (!file) {
    ErrClear();  // there need be none
    return limit;
  }
  if (ScanAttachFile(nullptr, file) && ScanDefine(table, 0) == 0 && ScanSkipTo(kName)) {
    ScanGet(kScanBlank);
    if (const ScanToken* number = ScanGet(kNumber))
      limit = static_cast<uint32_t>(strtoul(number->pStart, nullptr, 10));
  }
  ScanClass(0);  // and the file
  return limit;
}

// Frees the bytes for a line at the end, by dropping as many lines from the beginning as it takes.
void MakeRoom(uint32_t length) {
  const FileObject* file = CurrentFile;
  uint64_t wanted = uint64_t{file->nSize} + length;
  if (wanted <= file->nMaxSize) return;
  auto surplus = static_cast<uint32_t>(wanted - file->nMaxSize);
  if (surplus > file->nSize) surplus = file->nSize;
  const char* end = MemFind(file->pView + surplus - 1, file->nSize - surplus + 1, "\n", 1, 0);
  uint32_t cut = end ? static_cast<uint32_t>(end - file->pView) + 1 : file->nSize;
  FileReplace(file->pView, cut, nullptr, 0);
}

int Add(const char* text) {
  uint32_t limit = Limit();
  if (FileOpenBeside(nullptr, ".log", FO_MAPPED | FO_CREATE_NEW | FO_WRITE | FO_GROW_10K)) {
    CurrentFile->nMaxSize = limit;
    MemBuf line = {256, 0, 0, nullptr};
    MemBufPrintf(&line, "%s %s\n", TimeStamp(nullptr, STAMP_DATE | STAMP_TIME), text);
    if (line.nSize <= limit) {
      MakeRoom(line.nSize);
      FileAppendf("%s", line.pData);
    } else {
      fputs("logbook: the line is longer than the book\n", stderr);
    }
    MemBufFree(&line);
    FileClass(0);
  }
  return Ended();
}

int List(const char* word) {
  enum : int32_t { kLine = 2 };
  static ScanDef table[] = {{"\n", kScanLineEnd, SCAN_STRING, 0, 0},
                            {"\x80\x09\x0B\x7F", kLine, SCAN_RANGES, 0, 0},
                            {nullptr, 0, 0, 0, 0}};
  FileObject* file = FileObjOpenBeside(nullptr, ".log", FO_READ | FO_MAPPED);
  if (file && ScanAttachFile(nullptr, file) && ScanDefine(table, 0) == 0) {
    while (const ScanToken* token = ScanGet(kScanAny)) {
      if (token->nId != kLine) continue;
      if (word && !MemFind(token->pStart, token->nLength, word, static_cast<uint32_t>(strlen(word)),
                           MEM_NOCASE))
        continue;
      printf("%4u  %.*s\n", CurrentScanner->nLine, static_cast<int>(token->nLength), token->pStart);
    }
    ScanClass(0);
  }
  return Ended();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[1], "add") == 0) return Add(argv[2]);
  if ((argc == 2 || argc == 3) && strcmp(argv[1], "list") == 0) return List(argv[2]);
  fputs("usage: logbook add TEXT | logbook list [WORD]\n", stderr);
  return 2;
}
