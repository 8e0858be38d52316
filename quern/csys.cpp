#include "quern/csys.h"

#include <cstdarg>

#include "platform/win32.h"

namespace quern {

uint32_t SysPlatformId;
uint32_t SysPageSize;
uint32_t SysAllocGranularity;
int32_t TraceLevel;
FILE* TraceFile;

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

int32_t Trace(int32_t level, const char* format, ...) {
  bool everything = TraceLevel < 0;
  if (!TraceFile || (!everything && level > TraceLevel)) return 0;
  va_list arguments;
  va_start(arguments, format);
  vfprintf(TraceFile, format, arguments);
  va_end(arguments);
  fputc('\n', TraceFile);
  return 0;
}

}  // namespace quern
