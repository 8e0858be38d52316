/* A program that uses Tavrix32.dll as those do that were built long before it: it knows the
 * decorated names, the ordinals and the calling convention, and nothing else.
 *
 * Every call goes through CallExport, which places the stack at any multiple of four bytes (callers
 * of this age promise no more) and checks that the callee removed its arguments.
 *
 * With the arguments "--late FILE" it is the program that XProcStart starts: it takes its time and
 * makes the file last.
 */
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

#define COUNT_OF(array) ((int)(sizeof(array) / sizeof((array)[0])))

enum { kErrorInfo = 2, kFileList, kProcStart, kStrCSpn, kStrCmp, kStrLen, kStrSpn };

static const struct {
  const char* name;
  int arguments;
} kExports[] = {{"_XDlgFileOpen@4", 1}, {"_XErrorInfo@4", 1}, {"_XFileList@16", 4},
                {"_XProcStart@4", 1},   {"_XStrCSpn@12", 3},  {"_XStrCmp@12", 3},
                {"_XStrLen@4", 1},      {"_XStrSpn@12", 3}};

#define FL_RECURSE 0x80000000u
#define FL_QUOTE 0x800000u

static FARPROC exports[COUNT_OF(kExports) + 1]; /* by ordinal; [0] is not used */
static HMODULE library;
static int failures;

static void Check(int holds, const char* what, const char* detail) {
  if (holds) return;
  printf("FAILED: %s: %s\n", what, detail);
  ++failures;
}

/* Calls with the stack `phase` bytes below a multiple of 16 before the arguments are pushed. */
static int32_t CallAt(int phase, int ordinal, const uintptr_t* arguments) {
  int32_t result = (int32_t)(uintptr_t)exports[ordinal];
  int32_t left = phase;
  int32_t count = kExports[ordinal - 1].arguments;
  __asm__ volatile(
      "movl %%esp, %%ebx\n\t"
      "andl $-16, %%esp\n\t"
      "subl %%edx, %%esp\n\t"
      "movl %%esp, %%edi\n"
      "1:\n\t"
      "testl %%ecx, %%ecx\n\t"
      "jz 2f\n\t"
      "decl %%ecx\n\t"
      "pushl (%%esi,%%ecx,4)\n\t"
      "jmp 1b\n"
      "2:\n\t"
      "call *%%eax\n\t"
      "movl %%edi, %%edx\n\t"
      "subl %%esp, %%edx\n\t"
      "movl %%ebx, %%esp\n\t"
      : "+a"(result), "+d"(left), "+c"(count)
      : "S"(arguments)
      : "ebx", "edi", "memory", "cc");
  Check(left == 0, kExports[ordinal - 1].name, "the stack pointer is off after the call");
  return result;
}

/* One call, with the next of the four phases each time. */
static int32_t CallExport(int ordinal, const void* a, const void* b, uintptr_t c, uintptr_t d) {
  static int phase;
  uintptr_t arguments[4] = {(uintptr_t)a, (uintptr_t)b, c, d};
  phase = (phase + 4) % 16;
  return CallAt(phase, ordinal, arguments);
}

static int32_t NextName(char* buffer, const char* roots, const char* patterns, uint32_t flags) {
  return CallExport(kFileList, buffer, roots, (uintptr_t)patterns, flags);
}

/* --- the export table ------------------------------------------------------------------------- */

static int Bind(const char* path) {
  HMODULE module = library = LoadLibraryA(path);
  int ordinal;
  if (!module) {
    printf("FAILED: LoadLibrary %s: %lu\n", path, GetLastError());
    return 0;
  }
  for (ordinal = 1; ordinal <= COUNT_OF(kExports); ++ordinal) {
    const char* name = kExports[ordinal - 1].name;
    exports[ordinal] = GetProcAddress(module, name);
    Check(exports[ordinal] != NULL, name, "not found by name");
    Check(GetProcAddress(module, (LPCSTR)(uintptr_t)ordinal) == exports[ordinal], name,
          "its ordinal leads elsewhere");
    if (!exports[ordinal]) return 0;
  }
  Check(!GetProcAddress(module, (LPCSTR)(uintptr_t)(COUNT_OF(kExports) + 1)), "ordinal 9",
        "exists");
  Check(!GetProcAddress(module, "XStrLen"), "XStrLen", "exported under its plain name");
  return 1;
}

/* --- strings ---------------------------------------------------------------------------------- */

static void CheckStrings(void) {
  static const struct {
    int ordinal;
    const char* first;
    const char* second;
    int32_t third;
    int32_t expected;
  } kCases[] = {
      {kStrLen, "abc\xE4\xFF", NULL, 0, 5}, {kStrSpn, "aaab", "a", 2, 3},
      {kStrSpn, "\xE4\xE4z", "\xE4", 1, 3}, {kStrCSpn, "abcdef", "e", 3, 3},
      {kStrCSpn, "ab\x80", "\x80", 1, 3},   {kStrCmp, "abc", "abd", 3, 0},
      {kStrCmp, "\xE4", "z", 1, 2},
  };
  int i, phase;
  for (i = 0; i < COUNT_OF(kCases); ++i) {
    for (phase = 0; phase < 16; phase += 4) {
      uintptr_t arguments[3] = {(uintptr_t)kCases[i].first, (uintptr_t)kCases[i].second,
                                (uintptr_t)kCases[i].third};
      int32_t actual = CallAt(phase, kCases[i].ordinal, arguments);
      if (actual == kCases[i].expected) continue;
      printf("  case %d gives %ld\n", i, (long)actual);
      Check(0, kExports[kCases[i].ordinal - 1].name, "another result");
    }
  }
}

/* --- programs --------------------------------------------------------------------------------- */

static int MakeFile(const char* path) {
  HANDLE file = CreateFileA(path, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
  if (file == INVALID_HANDLE_VALUE) return 0;
  CloseHandle(file);
  return 1;
}

static void CheckPrograms(const char* folder) {
  char self[MAX_PATH], mark[MAX_PATH], command[3 * MAX_PATH];
  char ends_with_3[] = "cmd.exe /c exit 3";
  char missing[] = "there-is-no-such-program-here.exe --at-all";

  Check(CallExport(kProcStart, ends_with_3, 0, 0, 0) == 0, "_XProcStart@4", "exit code 3 is not 0");
  SetLastError(0);
  Check(CallExport(kProcStart, missing, 0, 0, 0) == -1, "_XProcStart@4",
        "a missing program starts");
  Check(GetLastError() == ERROR_FILE_NOT_FOUND, "_XProcStart@4", "the last error was changed");

  GetModuleFileNameA(NULL, self, sizeof self);
  snprintf(mark, sizeof mark, "%s\\late mark", folder);
  snprintf(command, sizeof command, "\"%s\" --late \"%s\"", self, mark);
  Check(CallExport(kProcStart, command, 0, 0, 0) == 0, "_XProcStart@4",
        "does not start this program");
  Check(DeleteFileA(mark), "_XProcStart@4", "returned before the program had ended");
}

/* --- file lists ------------------------------------------------------------------------------- */

enum { kNameSize = 2 * MAX_PATH };

/* Folders end in a backslash and stand before what is in them. */
static const char* const kTree[] = {"", "one.txt", "other.dat", "a b\\", "a b\\two words.txt"};

static void MakeTree(const char* tree, int make) {
  char path[kNameSize];
  int i;
  for (i = 0; i < COUNT_OF(kTree); ++i) {
    const char* name = kTree[make ? i : COUNT_OF(kTree) - 1 - i];
    int is_folder = !*name || name[strlen(name) - 1] == '\\';
    snprintf(path, sizeof path, "%s\\%s", tree, name);
    Check(is_folder ? (make ? CreateDirectoryA(path, NULL) : RemoveDirectoryA(path))
                    : (make ? MakeFile(path) : DeleteFileA(path)),
          "tree", path);
  }
}

/* One enumeration to its end, with what callers are asked for as buffer and a fence behind it; and
 * one with a null buffer, which skips a name. */
static void CheckLists(const char* tree) {
  static const char* const kNames[] = {"%s\\one.txt", "\"%s\\a b\\two words.txt\""};
  char roots[kNameSize], expected[kNameSize];
  struct {
    char name[262];
    char fence[10];
  } buffer;
  int i;
  memset(&buffer, '#', sizeof buffer);
  snprintf(roots, sizeof roots, "%s\\*.txt", tree);
  for (i = 0; i < COUNT_OF(kNames); ++i) {
    snprintf(expected, sizeof expected, kNames[i], tree);
    Check(NextName(buffer.name, roots, NULL, FL_RECURSE | FL_QUOTE) == 1 &&
              !strcmp(buffer.name, expected),
          "_XFileList@16", buffer.name);
  }
  Check(NextName(buffer.name, roots, NULL, FL_RECURSE) == 0, "_XFileList@16", "no end");
  Check(!memcmp(buffer.fence, "##########", sizeof buffer.fence), "_XFileList@16",
        "wrote behind 262 bytes");
  Check(NextName(NULL, roots, NULL, FL_RECURSE) == 0, "_XFileList@16",
        "a null buffer takes a name");
  Check(NextName(buffer.name, roots, NULL, FL_RECURSE) == 1 && strstr(buffer.name, "two words"),
        "_XFileList@16", "nothing was skipped");
  Check(NextName(buffer.name, roots, NULL, FL_RECURSE) == 0, "_XFileList@16", "no end");
}

static void CheckErrorInfo(const char* when) {
  char buffer[256] = "untouched";
  Check(CallExport(kErrorInfo, buffer, 0, 0, 0) == 0, "_XErrorInfo@4", when);
  Check(!strcmp(buffer, "untouched"), "a trail without a failure", buffer);
}

/* How many blocks the heap of the runtime that the library shares has, and the handles. */
static unsigned long InUse(void) {
  unsigned long count = 0;
  DWORD handles = 0;
  _HEAPINFO block = {0};
  while (_heapwalk(&block) == _HEAPOK) count += block._useflag == _USEDENTRY;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  return count + handles;
}

/* Loads and unloads, with enumerations at their end and in the middle. */
static void CheckUnloading(const char* path, const char* tree) {
  char roots[kNameSize], name[kNameSize];
  unsigned long before = 0;
  int i, names;
  snprintf(roots, sizeof roots, "%s\\*", tree);
  for (i = 0; i < 300; ++i) {
    HMODULE module = LoadLibraryA(path);
    exports[kFileList] = GetProcAddress(module, "_XFileList@16");
    for (names = i % 6; names > 0 && NextName(name, roots, NULL, FL_RECURSE) == 1;) --names;
    FreeLibrary(module);
    Check(!GetModuleHandleA(path), "unloading", "the library stays");
    if (i == 100) before = InUse();
  }
  Check(InUse() <= before + 20, "unloading", "blocks or handles stay");
}

int main(int argc, char** argv) {
  const char* path = argc > 1 ? argv[1] : "Tavrix32.dll";
  char temporary[MAX_PATH], tree[kNameSize];
  if (argc == 3 && !strcmp(argv[1], "--late")) {
    Sleep(300);
    return MakeFile(argv[2]) ? 5 : 6;
  }
  if (!Bind(path)) return 1;
  GetTempPathA(sizeof temporary, temporary);
  snprintf(tree, sizeof tree, "%stavrix_client_%lu", temporary, GetCurrentProcessId());

  CheckErrorInfo("before the first call");
  CheckStrings();
  MakeTree(tree, 1);
  CheckPrograms(tree);
  CheckLists(tree);
  CheckErrorInfo("after the last call");
  FreeLibrary(library);
  CheckUnloading(path, tree);
  MakeTree(tree, 0);
  puts(failures ? "FAILED" : "all checks hold");
  return failures != 0;
}
