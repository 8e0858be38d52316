/* The eight exported functions of Tavrix32, for C and C++ callers.
 *
 * All texts are NUL-terminated ANSI strings. No function checks its pointers, keeps one after it
 * returns, or allocates anything that the caller must free. The library serves one thread at a
 * time: XFileList and XErrorInfo share its process-wide state.
 *
 * On 32-bit Windows the functions use the standard calling convention and are exported under their
 * decorated names (_XStrLen@4, ordinal 7, ...); elsewhere under their plain names.
 */
#ifndef TAVRIX32_H
#define TAVRIX32_H

#include <stdint.h>

#ifdef _WIN32
#include <windows.h>
/* after it */
#include <commdlg.h>
#define TAVRIX_CALL __stdcall
#define TAVRIX_EXPORT
#else
#include "platform/openfilename.h"
#define TAVRIX_CALL
#define TAVRIX_EXPORT __attribute__((visibility("default")))
#endif

/* Flags of XFileList:
 *
 *   FL_RECURSE   enter subdirectories; the other bits are the depth, 0: as before (32)
 *   FL_DIRS      report directories that match
 *   FL_NO_FILES  do not report files
 *   FL_AS_FOUND  report directory as given and name, not the full path
 *   FL_RESTART   run the start-up steps again although an enumeration is running
 *   FL_FIRST     report one name and end the enumeration
 *   FL_QUOTE     put quotes around a name with a blank or a tab in it
 */
#ifdef __cplusplus
inline constexpr uint32_t FL_RECURSE = 0x80000000u;
inline constexpr uint32_t FL_DIRS = 0x20000000u;
inline constexpr uint32_t FL_NO_FILES = 0x10000000u;
inline constexpr uint32_t FL_AS_FOUND = 0x8000000u;
inline constexpr uint32_t FL_RESTART = 0x2000000u;
inline constexpr uint32_t FL_FIRST = 0x1000000u;
inline constexpr uint32_t FL_QUOTE = 0x800000u;
#else
#define FL_RECURSE 0x80000000u
#define FL_DIRS 0x20000000u
#define FL_NO_FILES 0x10000000u
#define FL_AS_FOUND 0x8000000u
#define FL_RESTART 0x2000000u
#define FL_FIRST 0x1000000u
#define FL_QUOTE 0x800000u
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Shows the system's file-open dialog with the caller's record, whose lStructSize is set to 76
 * first: the three fields behind the 76 bytes of the 32-bit record need not exist. Nonzero when the
 * user chose a file, 0 on cancel and on failure. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XDlgFileOpen(OPENFILENAMEA* ofn);

/* Writes the trail of error codes of the newest failure into `buffer` (256 bytes suffice), for
 * instance "19" or "1000". When there is none, the buffer is left untouched: clear it first.
 * Successful calls do not remove an earlier failure. Always 0. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XErrorInfo(char* buffer);

/* The next name of an enumeration: called with the same arguments again and again it copies one
 * name a call into `buffer` (262 bytes suffice) and returns 1, then returns 0 once, and begins
 * anew. 0 is also the result of a failure (XErrorInfo) and of a null buffer, which skips one name.
 *
 * `roots` and `patterns` are lists split by ';', with environment references such as %TEMP% in
 * them; either may be null, and both null end a running enumeration. A root may hold a
 * pattern itself ("C:\\dir\\*.txt"). With FL_RECURSE give the pattern so: a separate list is
 * searched for once more per subdirectory, and its last pattern is reported twice there. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XFileList(char* buffer, const char* roots, const char* patterns,
                                            uint32_t flags);

/* Starts a program without a window and waits for its end. `commandLine` is the program, searched
 * for the usual way, and its arguments; the system may write to the text. 0 whatever the program
 * returned, -1 when it could not be started. One handle a call stays open in the caller's process.
 */
TAVRIX_EXPORT int32_t TAVRIX_CALL XProcStart(char* commandLine);

/* From the 1-based position `start` of `text` on: the position, counted from `start` as 1, of the
 * first byte that is in `set` (XStrCSpn) or not in it (XStrSpn), or of the terminator. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XStrCSpn(const char* text, const char* set, int32_t start);
TAVRIX_EXPORT int32_t TAVRIX_CALL XStrSpn(const char* text, const char* set, int32_t start);

/* Compares at most `count` bytes, as unsigned ones, and none behind a terminator: 0 when `a` sorts
 * before `b`, 1 when they are equal, 2 when `a` sorts after `b`. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XStrCmp(const char* a, const char* b, int32_t count);

/* The number of bytes before the terminator. */
TAVRIX_EXPORT int32_t TAVRIX_CALL XStrLen(const char* text);

#ifdef __cplusplus
}
#endif

#endif
