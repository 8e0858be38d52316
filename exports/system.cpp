// The exports that start programs, ask the user for a file, and speak for the foundation.

#include <cstring>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile/list.h"

int32_t TAVRIX_CALL XDlgFileOpen(OPENFILENAMEA* ofn) {
  constexpr uint32_t kShortRecord = 76;  // without its three trailing fields, on the 32-bit system
  ofn->lStructSize = kShortRecord;
  int32_t chosen = GetOpenFileNameA(ofn);
  CommDlgExtendedError();
  return chosen;
}

int32_t TAVRIX_CALL XErrorInfo(char* buffer) {
  quern::ErrInfo(buffer, 0);
  return 0;
}

int32_t TAVRIX_CALL XFileList(char* buffer, const char* roots, const char* patterns,
                              uint32_t flags) {
  const char* name = quern::FileList(roots, patterns, flags);
  if (!name || !buffer) return 0;
  strcpy(buffer, name);
  return 1;
}

int32_t TAVRIX_CALL XProcStart(char* commandLine) {
  STARTUPINFOA startup;
  PROCESS_INFORMATION process;
  char noTitle[] = "";
  GetStartupInfoA(&startup);
  startup.lpReserved = nullptr;
  startup.lpTitle = noTitle;
  if (!CreateProcessA(nullptr, commandLine, nullptr, nullptr, FALSE,
                      CREATE_NO_WINDOW | NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup,
                      &process))
    return -1;
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code;
  GetExitCodeProcess(process.hProcess, &code);  // not passed on
  CloseHandle(process.hProcess);
  return 0;  // the thread handle stays open: one leaked per call (Compat)
}
