// The one seam to the operating system: the Win32 calls that the library is written against.
//
// On Windows this is <windows.h>. Elsewhere the same names are declared here and implemented under
// platform/posix/, one file per family. What callers may rely on there:
//
//  - GetLastError is a variable of the layer's own, not errno. A call that succeeds leaves it alone
//    unless its comment says otherwise; a call that fails sets the value that the real one sets.
//  - Paths are texts of at most 259 bytes. '/' and '\\' both separate components; what the layer
//    writes itself it writes with kPathSeparator. Longer names fail with
//    ERROR_FILENAME_EXCED_RANGE.
//  - Handles come from one table. A handle that is not open gives ERROR_INVALID_HANDLE.
//
// Helpers missing from <windows.h> come last.
#pragma once

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
//
#include <commdlg.h>
#include <fcntl.h>
#include <io.h>
#include <malloc.h>  // _msize
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#else

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "platform/openfilename.h"

#define WINAPI

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using LONG = int32_t;
using UINT = uint32_t;
using BOOL = int;
using HANDLE = void*;
using UINT_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr DWORD MAX_PATH = 260;  // bytes of a path, the terminator included
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~uintptr_t{0});

// --- error ---------------------------------------------------------------------------------------

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_ENVVAR_NOT_FOUND = 203;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
inline constexpr DWORD ERROR_FILE_INVALID = 1006;
inline constexpr DWORD ERROR_USER_MAPPED_FILE = 1224;
inline constexpr DWORD ERROR_INVALID_ADDRESS = 487;
inline constexpr DWORD ERROR_NOT_ALL_ASSIGNED = 1300;
inline constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;

DWORD GetLastError();
void SetLastError(DWORD code);

// --- message -------------------------------------------------------------------------------------

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// The English text of a system error, which ends in a period, a carriage return and a line feed, in
// a block of its own; its address is stored at `buffer` (a char** behind a char*), and LocalFree
// frees it. Returns its length; 0, and stores null, with ERROR_MR_MID_NOT_FOUND when there is no
// such message, ERROR_INVALID_PARAMETER when its text has inserts, or the flags are not the two
// above together, ERROR_NOT_ENOUGH_MEMORY. `source`, `language`, `size` and `arguments` are unused.
DWORD FormatMessageA(DWORD flags, const void* source, DWORD message, DWORD language, char* buffer,
                     DWORD size, void* arguments);

// Returns null.
void* LocalFree(void* block);

// --- clock ---------------------------------------------------------------------------------------

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;  // 0 is Sunday
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

// A change of the zone (tzset) is seen with the next second at the latest. There is no second 60.
void GetLocalTime(SYSTEMTIME* time);

// Milliseconds since the system started, sleep included; wraps after 49.7 days.
DWORD GetTickCount();

// --- debug ---------------------------------------------------------------------------------------

// Sends a string to the debug output. The variable TAVRIX_DEBUG_OUTPUT names it: a file that
// strings are appended to, or "stderr". It is read once, at the first use. Without it, and when the
// file cannot be opened, the string is dropped. The last error is left alone.
//
// The call never waits. When a pipe or a terminal takes no more, the string is lost; of a string of
// more than PIPE_BUF bytes, the lines that are left are lost. A terminal may take part of a line;
// the next string then begins on a new line.
void OutputDebugStringA(const char* text);

// --- handle --------------------------------------------------------------------------------------

// Closes a process, thread, token, file or mapping handle. A process that still runs goes on.
// Handles of GetStdHandle and GetCurrentProcess are not closed: TRUE for the latter, as the real
// system has it, FALSE for the former.
BOOL CloseHandle(HANDLE handle);

// --- file ----------------------------------------------------------------------------------------

inline constexpr DWORD STD_INPUT_HANDLE = ~DWORD{0} - 9;
inline constexpr DWORD STD_OUTPUT_HANDLE = ~DWORD{0} - 10;
inline constexpr DWORD STD_ERROR_HANDLE = ~DWORD{0} - 11;

// The handle of the descriptor 0, 1 or 2; always the same. Null, and the last error left alone,
// while the descriptor is not open; INVALID_HANDLE_VALUE with ERROR_INVALID_HANDLE for any other
// `stream`, and with ERROR_NOT_ENOUGH_MEMORY when a first handle finds no memory.
HANDLE GetStdHandle(DWORD stream);

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  void* lpSecurityDescriptor;
  BOOL bInheritHandle;
};

// Opens a file. Between the opens of all processes the sharing rules hold: each open must be
// allowed by what the others share, and share what they do (ERROR_SHARING_VIOLATION). They end with
// the handle, in a forked child with the handle of its parent. INVALID_HANDLE_VALUE with
// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_FILE_EXISTS (CREATE_NEW), ERROR_ACCESS_DENIED
// (anything that is no regular file, no right, or a write to a file that nobody has the right to
// write), ERROR_USER_MAPPED_FILE (one that is mapped would be emptied), ERROR_FILENAME_EXCED_RANGE.
// On success the last error is ERROR_SUCCESS, or ERROR_ALREADY_EXISTS when OPEN_ALWAYS or
// CREATE_ALWAYS found a file. `security`, `attributes` and `pattern` are not used. The descriptor
// is above 2 and closed in programs that are started.
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE pattern);

// The low half of the size; the high half is stored in `high` unless that is null. 0xFFFFFFFF on
// failure.
DWORD GetFileSize(HANDLE file, DWORD* high);

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;

// Sets the position of SetEndOfFile, from the start of the file (`method` FILE_BEGIN) alone; with a
// null `high` the distance is signed and a negative one fails (ERROR_NEGATIVE_SEEK). Returns its
// low half; on success the last error is left alone.
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* high, DWORD method);

// Cuts or extends the file to the position. ERROR_USER_MAPPED_FILE when a mapping or a view of the
// file reaches beyond a cut; ERROR_DISK_FULL.
BOOL SetEndOfFile(HANDLE file);

struct FILETIME {  // 100 ns units since 1601-01-01 UTC
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

// Any of the three may be null. A file system that keeps no creation time gives that of the last
// write.
BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access, FILETIME* write);

// Sets the times of the last access and the last write; neither may be null. A creation time cannot
// be set and must be null.
BOOL SetFileTime(HANDLE file, const FILETIME* creation, const FILETIME* access,
                 const FILETIME* write);

// The folder for temporary files (TMPDIR or /tmp), absolute, with a separator at its end. As
// GetFullPathNameA with small buffers.
DWORD GetTempPathA(DWORD size, char* buffer);

// Makes an empty file with a name of its own in a folder: the folder, up to three characters of
// `prefix` (null: none), up to four hexadecimal digits, ".tmp". With a `unique` that is not 0 the
// name has its low 16 bits and no file is made. `buffer` has MAX_PATH bytes. Returns the number in
// the name; 0 with ERROR_DIRECTORY when the folder is missing, ERROR_BUFFER_OVERFLOW when the name
// would be too long.
UINT GetTempFileNameA(const char* folder, const char* prefix, UINT unique, char* buffer);

// ERROR_ACCESS_DENIED for a directory, for a file without the right to write it and for one that is
// mapped; ERROR_SHARING_VIOLATION for one that is open.
BOOL DeleteFileA(const char* name);

// --- mapping -------------------------------------------------------------------------------------

inline constexpr DWORD PAGE_READONLY = 2;
inline constexpr DWORD PAGE_READWRITE = 4;
inline constexpr DWORD PAGE_WRITECOPY = 8;
inline constexpr DWORD SEC_RESERVE = 0x4000000;
inline constexpr DWORD FILE_MAP_COPY = 1;
inline constexpr DWORD FILE_MAP_WRITE = 2;
inline constexpr DWORD FILE_MAP_READ = 4;

// A mapping of the first `sizeLow` bytes of a file (0: of all of it; an empty file then fails with
// ERROR_FILE_INVALID). With PAGE_READWRITE a shorter file is extended, and the disk space for all
// of it is reserved (ERROR_DISK_FULL, the file as it was); with the others a shorter file fails
// (ERROR_NOT_ENOUGH_MEMORY). INVALID_HANDLE_VALUE as the file means memory instead; with
// SEC_RESERVE a range of addresses that nobody may touch. Null handles fail with
// ERROR_INVALID_HANDLE, a `sizeHigh` other than 0 with ERROR_INVALID_PARAMETER. `security` and
// `name` are not used. Returns null on failure.
HANDLE CreateFileMappingA(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                          DWORD sizeHigh, DWORD sizeLow, const char* name);

// Maps all of a mapping (the offsets and `bytes` are 0, else ERROR_INVALID_PARAMETER) at an address
// that is a multiple of the allocation granularity: at `base`, and there alone
// (ERROR_INVALID_ADDRESS when it is taken or no such multiple), or anywhere. A view outlives the
// handles of its mapping and its file.
void* MapViewOfFileEx(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, size_t bytes,
                      void* base);

// ERROR_INVALID_ADDRESS when no view begins there.
BOOL UnmapViewOfFile(const void* view);

// --- scheduling ----------------------------------------------------------------------------------

inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr DWORD REALTIME_PRIORITY_CLASS = 0x100;

// Priorities are remembered and given back; nothing else comes of them.
HANDLE GetCurrentThread();
int GetThreadPriority(HANDLE thread);
BOOL SetThreadPriority(HANDLE thread, int priority);
DWORD GetPriorityClass(HANDLE process);
BOOL SetPriorityClass(HANDLE process, DWORD priorityClass);

// 0 gives way to others once.
void Sleep(DWORD milliseconds);

// --- exception -----------------------------------------------------------------------------------

inline constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
inline constexpr LONG EXCEPTION_CONTINUE_EXECUTION = -1;
inline constexpr LONG EXCEPTION_CONTINUE_SEARCH = 0;

// What a filter is told of an exception. A program's handler of SIGSEGV fills the code and, as the
// second information word, the address that was touched.
struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;
  EXCEPTION_RECORD* ExceptionRecord;
  void* ExceptionAddress;
  DWORD NumberParameters;
  UINT_PTR ExceptionInformation[15];
};

struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  void* ContextRecord;
};

// --- read and write ------------------------------------------------------------------------------

// Reads from the position of a file of CreateFileA and moves it. At the end `count` is 0.
BOOL ReadFile(HANDLE file, void* data, DWORD size, DWORD* count, void* overlapped);

// Writes all bytes, however many system calls that takes. FALSE with `written` telling how many
// went out: ERROR_DISK_FULL, ERROR_BROKEN_PIPE (no signal is raised), ERROR_ACCESS_DENIED for a
// handle that is not for writing. `overlapped` must be null.
BOOL WriteFile(HANDLE file, const void* data, DWORD size, DWORD* written, void* overlapped);

// --- find ----------------------------------------------------------------------------------------

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x100;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

struct WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  char cFileName[MAX_PATH];
  char cAlternateFileName[14];  // always empty here
};

// Searches the directory part of `pattern` for names that match its last component: '*' and '?'
// over whole names, case-blind by the bytes of the C locale in force, "*.*" is everything (the
// finer rules of the real system, such as "a.*" finding "a", are told in platform/posix/match.h).
// Without a wildcard every spelling of the name is found. "." and ".." come first where the pattern
// matches them, in the root directory too, then the names in the case-blind order of the real file
// system. The directory is read whole by the first call; an open search holds no descriptor.
// Entries that vanish before they are handed out may be passed over.
//
// A file has the attribute 0x20, a directory 0x10, both plus 1 when nobody has the right to write
// them; a link to a directory has 0x400 and not 0x10; dead links and names that no path can speak
// (256 bytes and more, or with a '\\' in them) are left out.
//
// FindFirstFileA returns INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND when nothing matches (or
// the last component is empty), ERROR_PATH_NOT_FOUND when the directory is missing,
// ERROR_INVALID_NAME when it is missing and holds wildcards, ERROR_DIRECTORY when it is a file,
// ERROR_ACCESS_DENIED when it cannot be read; FindNextFileA ends with ERROR_NO_MORE_FILES.
HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data);
BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data);
BOOL FindClose(HANDLE search);

// --- path ----------------------------------------------------------------------------------------

inline constexpr UINT DRIVE_UNKNOWN = 0;
inline constexpr UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr UINT DRIVE_REMOVABLE = 2;
inline constexpr UINT DRIVE_FIXED = 3;
inline constexpr UINT DRIVE_REMOTE = 4;
inline constexpr UINT DRIVE_CDROM = 5;
inline constexpr UINT DRIVE_RAMDISK = 6;

// Writes the absolute, normalized form of `name` to `buffer` (`size` bytes) and, when `filePart` is
// not null, points it at the last component there (null when the path ends in a separator).
// Lexical: nothing is looked up, names need not exist, links are not followed. A separator at the
// end stays. Texts that begin with a drive ("C:") or a server name (two '\\') are not names of
// this platform and are left as they are; "//" is the root. Returns the length without the
// terminator; when the buffer is too small, the size needed with it, and writes nothing; 0 on
// failure (an empty name: ERROR_INVALID_NAME).
DWORD GetFullPathNameA(const char* name, DWORD size, char* buffer, char** filePart);

// The attributes as a search gives them, but a link to a directory, which the caller names itself
// here, has 0x10 beside 0x400. INVALID_FILE_ATTRIBUTES with ERROR_FILE_NOT_FOUND when there is no
// such name, ERROR_PATH_NOT_FOUND when a directory on the way is missing.
DWORD GetFileAttributesA(const char* name);

// The path of the running program; `module` is null. Returns its length without the terminator;
// `size`, with the path cut and ERROR_INSUFFICIENT_BUFFER, when the buffer is too small.
DWORD GetModuleFileNameA(HANDLE module, char* buffer, DWORD size);

// The kind of the drive that holds the directory `root`; null means the current directory. The last
// error is left alone.
UINT GetDriveTypeA(const char* root);

// --- process -------------------------------------------------------------------------------------

inline constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
inline constexpr DWORD CREATE_NO_WINDOW = 0x08000000;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD STILL_ACTIVE = 259;

struct STARTUPINFOA {
  DWORD cb;
  char* lpReserved;
  char* lpDesktop;
  char* lpTitle;
  DWORD dwX;
  DWORD dwY;
  DWORD dwXSize;
  DWORD dwYSize;
  DWORD dwXCountChars;
  DWORD dwYCountChars;
  DWORD dwFillAttribute;
  DWORD dwFlags;
  WORD wShowWindow;
  WORD cbReserved2;
  BYTE* lpReserved2;
  HANDLE hStdInput;
  HANDLE hStdOutput;
  HANDLE hStdError;
};

struct PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
};

void GetStartupInfoA(STARTUPINFOA* info);

// Starts the program that the first word of `commandLine` names, with the other words as its
// arguments (split as the Windows runtime splits them; a program with a separator in its name is
// taken as it is, others are searched along PATH). The child has the caller's environment, current
// directory and standard streams; every descriptor above 2 is closed in it. `application`, the
// security attributes, `inherit`, `flags`, `environment` and `directory` are accepted for the
// caller's sake: the library passes null, null, null, FALSE, flags, null, null.
//
// FALSE with ERROR_FILE_NOT_FOUND for a missing program, ERROR_PATH_NOT_FOUND when its directory is
// missing, ERROR_ACCESS_DENIED for a directory or a file without the right to execute it,
// ERROR_BAD_EXE_FORMAT for a file that is no program. A thread handle costs a place in the handle
// table and nothing else; it can be closed but not waited for.
BOOL CreateProcessA(const char* application, char* commandLine, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL inherit, DWORD flags, void* environment,
                    const char* directory, STARTUPINFOA* startup, PROCESS_INFORMATION* information);

// Waits for the end of a process. `milliseconds` may be INFINITE. WAIT_OBJECT_0, WAIT_TIMEOUT or
// WAIT_FAILED. Works as well when the host program ignores SIGCHLD or waits for its children
// itself.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// STILL_ACTIVE while the process runs; then its exit code, or 128 plus the signal that ended it; 0
// when the host program keeps the layer from learning it (see WaitForSingleObject).
BOOL GetExitCodeProcess(HANDLE process, DWORD* code);

// A constant that stands for the calling process.
HANDLE GetCurrentProcess();

// Ends the process at once: no exit functions run and no stream is flushed, but a terminal that the
// console calls have changed is put back.
[[noreturn]] void ExitProcess(UINT code);

// --- session -------------------------------------------------------------------------------------

inline constexpr DWORD TOKEN_QUERY = 0x8;
inline constexpr DWORD TOKEN_ADJUST_PRIVILEGES = 0x20;
inline constexpr DWORD SE_PRIVILEGE_ENABLED = 2;
inline constexpr UINT EWX_REBOOT = 2;
inline constexpr UINT EWX_FORCE = 4;

struct LUID {
  DWORD LowPart;
  LONG HighPart;
};

struct LUID_AND_ATTRIBUTES {
  LUID Luid;
  DWORD Attributes;
};

struct TOKEN_PRIVILEGES {
  DWORD PrivilegeCount;
  LUID_AND_ATTRIBUTES Privileges[1];
};

// Privileges do not exist here. A token of the calling process opens (ERROR_INVALID_HANDLE for any
// other process); every privilege has a name and none is held: adjusting one succeeds with the last
// error ERROR_NOT_ALL_ASSIGNED (ERROR_SUCCESS when nothing was asked for), and ending the session
// fails with ERROR_PRIVILEGE_NOT_HELD.
BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);
BOOL LookupPrivilegeValueA(const char* system, const char* name, LUID* privilege);
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES* state, DWORD size,
                           TOKEN_PRIVILEGES* previous, DWORD* previousSize);
BOOL ExitWindowsEx(UINT flags, DWORD reason);

// --- environment ---------------------------------------------------------------------------------

// Variable names are case-blind: the exact spelling first, then any other. "path", in any spelling,
// reads and writes with ';' between its entries.
//
// Returns the length without the terminator; when `buffer` is too small, the size needed with it;
// 0 with ERROR_ENVVAR_NOT_FOUND when there is no such variable; 0 and no change of the last error
// when the variable is empty (callers that must tell set the last error to 0 first).
DWORD GetEnvironmentVariableA(const char* name, char* buffer, DWORD size);

// A null `value` removes the variable. A variable that exists in another spelling keeps it. FALSE
// with ERROR_INVALID_PARAMETER for an empty name or one with a '=', ERROR_ENVVAR_NOT_FOUND when
// there is nothing to remove.
BOOL SetEnvironmentVariableA(const char* name, const char* value);

// --- memory --------------------------------------------------------------------------------------

// Nonzero when any of the bytes cannot be read (written). The memory is never touched: it is asked
// about by system calls. A size of 0 is always good. IsBadStringPtrA looks at no more than `limit`
// bytes and stops at a terminator.
BOOL IsBadReadPtr(const void* block, UINT_PTR size);
BOOL IsBadWritePtr(void* block, UINT_PTR size);
BOOL IsBadStringPtrA(const char* text, UINT_PTR limit);

// --- system facts --------------------------------------------------------------------------------

inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

struct OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char szCSDVersion[128];
};

struct SYSTEM_INFO {
  WORD wProcessorArchitecture;
  WORD wReserved;
  DWORD dwPageSize;
  void* lpMinimumApplicationAddress;
  void* lpMaximumApplicationAddress;
  DWORD_PTR dwActiveProcessorMask;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;
  WORD wProcessorRevision;
};

// The version of the system's own kernel; the platform id is that of the NT family, whose calls
// these are. FALSE with ERROR_INSUFFICIENT_BUFFER when the size field holds none of the record's
// sizes.
BOOL GetVersionExA(OSVERSIONINFOA* info);

// Page size 4096 and allocation granularity 65536, whatever the machine has: the rules of the file
// mapping are written for these.
void GetSystemInfo(SYSTEM_INFO* info);

// --- console -------------------------------------------------------------------------------------

struct COORD {  // in cells
  int16_t X;
  int16_t Y;
};

struct SMALL_RECT {  // in cells, all four inside
  int16_t Left;
  int16_t Top;
  int16_t Right;
  int16_t Bottom;
};

struct CONSOLE_CURSOR_INFO {
  DWORD dwSize;  // per cent of a cell
  BOOL bVisible;
};

struct CONSOLE_SCREEN_BUFFER_INFO {
  COORD dwSize;
  COORD dwCursorPosition;
  WORD wAttributes;
  SMALL_RECT srWindow;
  COORD dwMaximumWindowSize;
};

inline constexpr DWORD ENABLE_PROCESSED_INPUT = 1;
inline constexpr DWORD ENABLE_LINE_INPUT = 2;
inline constexpr DWORD ENABLE_ECHO_INPUT = 4;
inline constexpr DWORD ENABLE_PROCESSED_OUTPUT = 1;
inline constexpr DWORD ENABLE_WRAP_AT_EOL_OUTPUT = 2;

// A console is a terminal behind a standard stream, for output or error where something is written
// or asked; every other handle fails with ERROR_INVALID_HANDLE, and nothing is written. Its screen
// buffer is its window. The size comes from the terminal (80 x 24 when it tells none); the cursor's
// position is asked of it, with a short wait, unless that would take input that is typed ahead or
// the process runs in the background. A terminal that does not answer is not asked again: the
// position is then the one last set.
//
// A terminal tells no more than that. The cursor's shape, the attribute for new text and those of
// the cells are what these calls have set themselves: 25 per cent, visible, and 7 to begin with,
// which stands for the terminal's own colours. Attributes written are attributes read back; what
// text and scrolling do to cells is not seen. Standard output's stream is flushed before anything
// is written. A terminal named "dumb" gets no escape sequences.
//
// What was changed is put back when a signal ends the process and by ExitProcess; at a normal end
// all but the colours.
BOOL GetConsoleScreenBufferInfo(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* info);
BOOL GetConsoleCursorInfo(HANDLE output, CONSOLE_CURSOR_INFO* info);

// ERROR_INVALID_PARAMETER for a size of 0 or above 100 per cent.
BOOL SetConsoleCursorInfo(HANDLE output, const CONSOLE_CURSOR_INFO* info);

// ERROR_INVALID_PARAMETER for a position outside the window.
BOOL SetConsoleCursorPosition(HANDLE output, COORD position);

BOOL SetConsoleTextAttribute(HANDLE output, WORD attribute);

// Runs of cells from a position on, row by row; what lies behind the last row is left out. The last
// argument receives the number of cells read (written). Cells are recoloured on the screen where
// the terminal can do that without a change of its text, otherwise only read back. FALSE with
// ERROR_INVALID_PARAMETER for a position outside the window, ERROR_NOT_ENOUGH_MEMORY.
BOOL ReadConsoleOutputAttribute(HANDLE output, WORD* attributes, DWORD count, COORD position,
                                DWORD* read);
BOOL WriteConsoleOutputAttribute(HANDLE output, const WORD* attributes, DWORD count, COORD position,
                                 DWORD* written);

// The three modes of input, or the two of output. Of output the wrapping alone can be set, of input
// nothing (ERROR_INVALID_PARAMETER).
BOOL GetConsoleMode(HANDLE console, DWORD* mode);
BOOL SetConsoleMode(HANDLE console, DWORD mode);

// --- dialog --------------------------------------------------------------------------------------

inline constexpr DWORD CDERR_STRUCTSIZE = 1;
inline constexpr DWORD CDERR_INITIALIZATION = 2;
inline constexpr DWORD CDERR_MEMALLOCFAILURE = 9;
inline constexpr DWORD FNERR_BUFFERTOOSMALL = 0x3003;

// Asks for the name of a file to open: with the desktop's dialog (zenity or kdialog) under a
// display, else with a prompt on the controlling terminal, else not at all (a cancel). Fills
// lpstrFile, lpstrFileTitle, nFileOffset and nFileExtension and returns nonzero; 0 on cancel and on
// failure.
BOOL GetOpenFileNameA(OPENFILENAMEA* ofn);

// Why the last dialog failed; 0 after a cancel. The dialog leaves the last error alone.
DWORD CommDlgExtendedError();

#endif

// --- what <windows.h> lacks ----------------------------------------------------------------------

// The separator that the library writes into paths and cuts paths back to. Both separators are
// understood wherever a path is read.
#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

// FindFirstFileA for a caller that reads the names and the directory bit of the entries alone, and
// with `directories` the directories alone (entries without the bit may come all the same). It
// spares the POSIX layer a look at every file; sizes, times and the other attributes of the whole
// search are then 0 there.
#ifdef _WIN32
inline HANDLE FindFirstName(const char* pattern, WIN32_FIND_DATAA* data, bool /*directories*/) {
  return FindFirstFileA(pattern, data);
}
#else
HANDLE FindFirstName(const char* pattern, WIN32_FIND_DATAA* data, bool directories);
#endif

// Opens a stream of the runtime, for bytes: `mode` is "rb", "r+b", "wb", "a+b", or "wbx" for a new
// file. Null, with the last error set, when the runtime refuses, for a directory, and for a name
// that is too long; ERROR_FILE_EXISTS when a new file is there already. In the POSIX layer also
// where an open of CreateFileA does not share; later opens do not see the stream.
#ifdef _WIN32
inline FILE* OpenStream(const char* name, const char* mode) {
  if (strcmp(mode, "wbx") != 0) return fopen(name, mode);
  int file = _open(name, _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
  return file < 0 ? nullptr : _fdopen(file, "wb");
}
#else
FILE* OpenStream(const char* name, const char* mode);
#endif

// Closes a stream of OpenStream. In a forked child one that its parent opened is given up: nothing
// is written, and the position that both share stays.
#ifdef _WIN32
inline void CloseStream(FILE* stream) { fclose(stream); }
#else
void CloseStream(FILE* stream);
#endif

// Whether this process is a forked child, and its parent opened the file or the stream (either may
// be null). To close it is to let go of it alone.
#ifdef _WIN32
inline bool IsInherited(HANDLE, FILE*) { return false; }
#else
bool IsInherited(HANDLE file, FILE* stream);
#endif

// Gives back what the POSIX layer keeps beyond its calls: handles that are still open, its tables
// and its descriptors. For the end of the library; later calls work as the first ones did.
#ifdef _WIN32
inline void ReleasePlatform() {}
#else
void ReleasePlatform();
#endif

// Whether OutputDebugStringA has a listener. The real system does not tell.
#ifdef _WIN32
inline bool DebugOutputHeard() { return true; }
#else
bool DebugOutputHeard();
#endif

// GetConsoleScreenBufferInfo for a caller that does not look at the cursor's position: it spares
// the POSIX layer asking the terminal, and leaves the position in the record as it is there.
#ifdef _WIN32
inline BOOL GetConsoleGeometry(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* info) {
  return GetConsoleScreenBufferInfo(output, info);
}
#else
BOOL GetConsoleGeometry(HANDLE output, CONSOLE_SCREEN_BUFFER_INFO* info);
#endif

// Bytes that the runtime's heap has given for a block of malloc or realloc, at least those asked
// for.
#ifdef _WIN32
inline size_t HeapBlockSize(void* block) { return _msize(block); }
#else
size_t HeapBlockSize(void* block);
#endif

// Says of memory that was not touched yet that it is going to be read and written all over, so that
// the system may use large pages for it. Nothing else changes.
#ifdef _WIN32
inline void ExpectScatteredUse(void*, size_t) {}
#else
void ExpectScatteredUse(void* block, size_t size);
#endif
