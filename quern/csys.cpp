#include "quern/csys.h"

#include <cstdarg>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cerr/texts.h"
#include "quern/ctime/clock.h"

namespace quern {

uint32_t SysPlatformId;
uint32_t SysPageSize;
uint32_t SysAllocGranularity;
int32_t TraceLevel;
FILE* TraceFile;

namespace {

constexpr char kModule[] = "csys";

constexpr size_t kTraceLine = 1024;  // bytes, the terminator included

}  // namespace

uint32_t SysInit(uint32_t /*unused*/) {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  GetVersionExA(&version);
  SysPlatformId = version.dwPlatformId;
  SYSTEM_INFO system = {};
  GetSystemInfo(&system);
  SysPageSize = system.dwPageSize;
  SysAllocGranularity = system.dwAllocationGranularity;
  return 0;
}

int32_t SysShutdown() {
  if (SysPlatformId == VER_PLATFORM_WIN32_NT) {
    HANDLE token;  // Compat: never closed
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token))
      return ErrRaiseText(kModule, 63, ERR_SYSTEM | 1, "Error OpenProcessToken");
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    LookupPrivilegeValueA(nullptr, "SeShutdownPrivilege", &privileges.Privileges[0].Luid);
    AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
    if (GetLastError() == ERROR_SUCCESS)
      return ErrRaiseText(kModule, 72, ERR_SYSTEM | 2, "Error AdjustTokenPrivileges");
  }
  if (!ExitWindowsEx(EWX_REBOOT | EWX_FORCE, 0))
    return ErrRaiseText(kModule, 76, ERR_SYSTEM | 3, "Can't shutdown system");
  return 0;
}

bool TraceHeard(int32_t level) {
  return (TraceLevel < 0 || level <= TraceLevel) && (TraceFile || DebugOutputHeard());
}

int32_t Trace(int32_t level, const char* format, ...) {
  if (!TraceHeard(level)) return 0;
  if (TraceLevel < 0 && (level & TraceLevel & INT32_MAX)) level = 0;
  char line[kTraceLine] = "";
  int prefix = 0;
  if (TraceFile) {
    prefix = snprintf(line, sizeof line, "%s ", TimeStamp(nullptr, STAMP_DATE | STAMP_MILLIS));
  } else if (level != 0) {
    prefix = snprintf(line, sizeof line, "Trace %02d: ", level);
  }
  if (format) {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line + prefix, sizeof line - static_cast<size_t>(prefix), format, arguments);
    va_end(arguments);
  } else {
    ErrCompose(line + prefix, sizeof line - static_cast<size_t>(prefix), 0);
  }
  if (TraceFile) {
    fputs(line, TraceFile);
    fputc('\n', TraceFile);
  } else {
    OutputDebugStringA(line);
  }
  return 0;
}

}  // namespace quern
