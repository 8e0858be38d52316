// System services: the platform's parameters, the trace of diagnostic lines, and the restart.
#pragma once

#include <cstdint>
#include <cstdio>

namespace quern {

extern uint32_t SysPlatformId;        // 2 for the NT family
extern uint32_t SysPageSize;          // bytes
extern uint32_t SysAllocGranularity;  // bytes

// Reads the three values. The registry calls it when it initialises; the argument is not used.
uint32_t SysInit(uint32_t unused);

// Restarts the machine, by force, after enabling the privilege that it takes. Returns 0, or minus
// ErrLast after raising 0x20000001 (the process's token did not open), 0x20000002 or 0x20000003
// (the system refused). Compat: when the privilege was enabled without a complaint, 0x20000002 is
// raised and nothing is restarted. It goes on only when the system left a last error.
int32_t SysShutdown();

// Settings of the application; the library never changes them. With bit 31 clear, TraceLevel is a
// threshold: lines of a higher level are dropped (negative levels never are). With bit 31 set every
// line is written, and a level that shares one of the other bits counts as 0.
extern int32_t TraceLevel;
extern FILE* TraceFile;  // receives the lines; null, the default, means the debugger output

// Writes a diagnostic line when its level asks for it: the text that the format makes or, with a
// null format, the error report of the newest level. Compat: that report moves the cursor of
// ErrGetText, so that a full report behind it begins below the text that was traced. Returns 0.
//
// A line for TraceFile begins with the time (TimeStamp, so SharedText is overwritten) and gets a
// line feed behind it; a line for the debugger output begins with "Trace NN: " unless its level is
// 0, and gets none. A line has at most 1023 bytes; what is longer is cut.
int32_t Trace(int32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Whether a line of the level would be written: for callers whose arguments take time to make.
bool TraceHeard(int32_t level);

}  // namespace quern
