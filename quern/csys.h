// System services: the platform's parameters and the trace of diagnostic lines.
#pragma once

#include <cstdint>
#include <cstdio>

namespace quern {

extern uint32_t SysPlatformId;        // 2 for the NT family
extern uint32_t SysPageSize;          // bytes
extern uint32_t SysAllocGranularity;  // bytes

// Reads the three values. The registry calls it when it initialises; the argument is not used.
uint32_t SysInit(uint32_t unused);

// Settings of the application; the library never changes them. With bit 31 clear, TraceLevel is a
// threshold: lines of a higher level are dropped. With bit 31 set every line is written, and a
// level that shares one of the other bits counts as 0.
extern int32_t TraceLevel;
extern FILE* TraceFile;  // receives the lines; null by default

// Writes a diagnostic line when its level asks for it. Until there are time stamps and a debugger
// output, lines go to TraceFile alone, without a prefix. Returns 0.
int32_t Trace(int32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace quern
