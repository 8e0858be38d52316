// The error stack: a short log of what went wrong, newest on top.
//
// Nothing unwinds. A failing function pushes entries (a code, the system's last-error value, a
// text), marks them as raised, and returns its failure value. Three things are read later: the
// trail of codes (ErrInfo), the report with its texts (ErrReport), and the value of the last raise
// (ErrLast), which callers clear before a call and test after it. The flags of a pushed message
// decide whether the next raise also writes the report or ends the process.
//
// The stack holds 20 entries. Nothing but ErrClear removes them, and only a full report calls it; a
// push or raise on a full stack ends the process with exit code 1 and a line on standard output.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "quern/cmem/buffer.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kErrTag = ClassTag("ERR");
inline constexpr uint32_t kErrEntries = 20;

// Flags of an entry. The low 16 bits come from the message pushed, the top byte is shared with
// codes: a code carries its category bits there and a reason number in its low 16 bits.
inline constexpr uint32_t ERR_SKIP =
    0x00000400;  // hidden from the trail, with all older of its level
inline constexpr uint32_t ERR_FATAL = 0x00000800;  // a raise ends the process
inline constexpr uint32_t ERR_TRACE = 0x00001000;  // as ERR_WARN; label "Trace"
inline constexpr uint32_t ERR_INFO = 0x00002000;   // label "Info "
inline constexpr uint32_t ERR_WARN =
    0x00004000;  // a raise writes the report, which empties the stack; label "Warn."
inline constexpr uint32_t ERR_ERROR = 0x00008000;  // a plain error
inline constexpr uint32_t ERR_SYSVALUE =
    0x01000000;                                     // the value is a last-error value of the system
inline constexpr uint32_t ERR_TEXT = 0x02000000;    // the value is the address of a text
inline constexpr uint32_t ERR_CODE = 0x04000000;    // the value is an error code
inline constexpr uint32_t ERR_RAISED = 0x08000000;  // this entry closes a raise level
inline constexpr uint32_t ERR_NEGATE = 0x10000000;  // the raised value is negated
inline constexpr uint32_t ERR_SYSTEM =
    0x20000000;  // in a code: push the last-error value before it
inline constexpr uint32_t ERR_LIBRARY =
    0x80000000;  // in a code: the built-in message table is meant

// Options of ErrReport, beside the index in the low 16 bits.
inline constexpr uint32_t ERR_REPORT_COMPOSE = 0x80000000;  // into the caller's buffer
inline constexpr uint32_t ERR_REPORT_FULL = 0x40000000;  // every level and text; clears the stack

struct ErrorEntry {
  uint32_t flags;
  uintptr_t value;  // a code or system value (16 bits), or a text that outlives the entry
};

struct ErrorStack {
  InstanceHeader header;
  const MessageRow* pTable;  // the application's messages; null unless ErrSetTable was called
  uint32_t nHighest;         // highest message code; greater values are texts
  ErrorEntry entries[kErrEntries];  // [0] is the oldest
  uint32_t nCount;
  int32_t nLastRaised;
  uint32_t nPending;  // flags of pushes since the last raise, merged into what follows
  MemBuf bufText;     // texts that ErrFormat made
};
static_assert(sizeof(void*) != 4 || sizeof(ErrorStack) == 224);

extern int32_t ErrLast;         // value of the last raise; 0 after every push
extern const char* ErrFile;     // module of the last failure site
extern int32_t ErrLine;         // and its line
extern ErrorStack* ErrCurrent;  // null until the first push

// Makes `instance` (an error stack, zeroed memory for one, or null: allocated) the current stack
// and returns it. Null after raising 1000 when the registry refused.
ErrorStack* ErrStackAttach(void* instance);

// Registers an application's messages: rows with codes from 39 up, the last with code 0. `instance`
// as for ErrStackAttach; null keeps the current stack, which is made when there is none. The table
// is not copied; null takes it away. Null after raising 1.
//
// The library's own messages do not go through the table: ErrText, ErrRaiseText, and ErrPushText of
// codes below 39 use the built-in ones. ErrFormat looks all codes up in the table unless something
// of the library is pending (ERR_LIBRARY).
ErrorStack* ErrSetTable(void* instance, const MessageRow* table);

// Class procedure of 'ERR'. As all of them it does nothing for an address that is no linked
// instance of its class, such as one that was released.
uint32_t ErrClass(uintptr_t argument);

// The primitive behind every push and raise. With ERR_RAISED in the flags (its own, the top byte
// of a code, or pending) it raises: marks the top entry, acts as the flags say, and sets ErrLast.
// Else it adds an entry. Returns 0.
int32_t ErrPushEntry(uint32_t flags, uintptr_t value);

// Pushes a code, and below it the system's last-error value when the code has ERR_SYSTEM.
int32_t ErrPush(uint32_t code);

// Raises what was pushed.
int32_t ErrThrow(uint32_t code);

// Writes the trail of codes into `buffer`: per raise level, newest first, its codes newest first,
// at least two digits each; "." stands before a code that carries the raise mark of its level, ":"
// before the first code of a level whose mark is on a text. `depth` counts levels beyond the
// newest; negative means all. Returns `buffer`, or null and an untouched buffer when there is no
// code. At most 241 bytes with the terminator. Never makes a stack.
char* ErrInfo(char* buffer, int32_t depth);

// Empties the stack, and sets ErrLast and the system's last error to 0. -1 when there is no stack.
int32_t ErrClear();

// Ends the process through exit with the code -x. While the process is already ending it ends at
// once with that code.
[[noreturn]] void ErrExit(int32_t x);

// The built-in messages.
extern const MessageRow MessageTable[];

// Pushes a text: a message code (looked up, its flags apply to the next raise) or the address of a
// text that stays valid. An unreadable address is replaced by message 9, also one in a table's row.
// Must follow a push: while ErrLast is set, the process ends with the fatal text of message 1.
// Returns 0.
int32_t ErrPushText(uint32_t flags, uintptr_t codeOrText);

// Formats a built-in message. The result is the table's own text when it has no conversions (or the
// runtime refuses them), else a copy that lives until the stack is cleared, of at most 510 bytes:
// names in it are cut to fit. Null when there was no memory (raised), and for a format that is no
// readable text.
const char* ErrText(uint32_t code, ...);

// The same with the application's table, or with a format of the caller's. A text of theirs of more
// than 510 bytes ends the process (message 6).
const char* ErrFormat(uintptr_t codeOrFormat, ...);

// Reads the texts of the stack, system messages included, from the newest entry down. Entries with
// ERR_SKIP are passed over.
//
// With a negative `index` successive calls copy one text each into `buffer` and return it, then 0,
// after which the next call begins at the top again. An index from 0 up reads that entry from the
// top, or the next one below that is not hidden; the walk then goes on below it. Returns `buffer`;
// 0 when there is none; -1 when the entry at an index holds no text. Without a buffer texts are
// counted (one at an index, else all that are left) and their number returned.
//
// A system value gives the first sentence of the system's message and the value: "Access is denied
// (05)". When the system has none, 1 is raised with message 2, which writes the report, and the
// result is 0. The caller provides the memory: nothing is cut.
intptr_t ErrGetText(char* buffer, int32_t index);

// Writes the error report: a header with the trail, module and line of the newest failure
// ("Error 19 (CFILE187):"), and texts behind it.
//
// The low 16 bits of `mode` are the depth of the trail and the index (from the top) of the one text
// that is shown. ERR_REPORT_FULL shows every level and text, and clears the stack. `target` is a
// handle, where a text goes on a new line unless it is the first and fits the console's width; null
// means standard error when standard output is a console, else ReportBuffer. With
// ERR_REPORT_COMPOSE it is a buffer of the caller's that holds everything. Without a code to
// show nothing is written and nothing cleared. Returns 0.
int32_t ErrReport(void* target, uint32_t mode);

// The last report of a program without a console, cut to fit.
inline constexpr uint32_t kReportBuffer = 256;  // bytes
extern char ReportBuffer[kReportBuffer];

}  // namespace quern
