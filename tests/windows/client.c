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
#define FL_DIRS 0x20000000u
#define FL_NO_FILES 0x10000000u
#define FL_AS_FOUND 0x8000000u
#define FL_FIRST 0x1000000u
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
      {kStrLen, "", NULL, 0, 0},          {kStrLen, "abc\xE4\xFF", NULL, 0, 5},
      {kStrSpn, "aaab", "a", 1, 4},       {kStrSpn, "aaab", "a", 2, 3},
      {kStrSpn, "aaa", "a", 1, 4},        {kStrSpn, "\xE4\xE4z", "\xE4", 1, 3},
      {kStrSpn, "abc", "", 1, 1},         {kStrCSpn, "abcdef", "e", 1, 5},
      {kStrCSpn, "abcdef", "e", 3, 3},    {kStrCSpn, "abc", "", 1, 4},
      {kStrCSpn, "ab\x80", "\x80", 1, 3}, {kStrCmp, "abc", "abd", 2, 1},
      {kStrCmp, "abc", "abd", 3, 0},      {kStrCmp, "b", "a", 1, 2},
      {kStrCmp, "x", "y", 0, 1},          {kStrCmp, "\xE4", "z", 1, 2},
      {kStrCmp, "z", "\xE4", 1, 0},       {kStrCmp, "same", "same", 100, 1},
      {kStrCmp, "Same", "same", 4, 0},
  };
  int i, phase;
  for (i = 0; i < COUNT_OF(kCases); ++i) {
    for (phase = 0; phase < 16; phase += 4) {
      uintptr_t arguments[3] = {(uintptr_t)kCases[i].first, (uintptr_t)kCases[i].second,
                                (uintptr_t)kCases[i].third};
      int32_t actual = CallAt(phase, kCases[i].ordinal, arguments);
      if (actual != kCases[i].expected) {
        char detail[100];
        snprintf(detail, sizeof detail, "case %d gives %ld, expected %ld", i, (long)actual,
                 (long)kCases[i].expected);
        Check(0, kExports[kCases[i].ordinal - 1].name, detail);
      }
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

enum { kMostNames = 200, kNameSize = 2 * MAX_PATH };

struct Names {
  int count;
  char name[kMostNames][kNameSize];
};

static struct Names expected, actual;

static void AddName(struct Names* names, const char* text) {
  if (names->count < kMostNames) strcpy(names->name[names->count++], text);
}

/* The tree: files and folders, the folders before what is in them. */
static const char* const kFolders[] = {"",
                                       "alpha",
                                       "alpha\\deep",
                                       "alpha\\deep\\deeper",
                                       "beta with blanks",
                                       "beta with blanks\\inner one",
                                       "gamma",
                                       "empty"};
static const char* const kFiles[] = {"one.txt",
                                     "two words.txt",
                                     "other.dat",
                                     "alpha\\a1.txt",
                                     "alpha\\a2.txt",
                                     "alpha\\skip.bin",
                                     "alpha\\deep\\d.txt",
                                     "alpha\\deep\\deeper\\dd.txt",
                                     "beta with blanks\\b.txt",
                                     "beta with blanks\\inner one\\b b.txt",
                                     "gamma\\UPPER.TXT",
                                     "gamma\\no extension"};
enum { kTextFiles = 9 };

static void MakeTree(const char* root) {
  char path[kNameSize];
  int i;
  for (i = 0; i < COUNT_OF(kFolders); ++i) {
    snprintf(path, sizeof path, "%s\\%s", root, kFolders[i]);
    Check(CreateDirectoryA(path, NULL), "tree", path);
  }
  for (i = 0; i < COUNT_OF(kFiles); ++i) {
    snprintf(path, sizeof path, "%s\\%s", root, kFiles[i]);
    Check(MakeFile(path), "tree", path);
  }
}

static void RemoveTree(const char* root) {
  char path[kNameSize];
  int i;
  for (i = COUNT_OF(kFiles); i-- > 0;) {
    snprintf(path, sizeof path, "%s\\%s", root, kFiles[i]);
    DeleteFileA(path);
  }
  for (i = COUNT_OF(kFolders); i-- > 0;) {
    snprintf(path, sizeof path, "%s\\%s", root, kFolders[i]);
    RemoveDirectoryA(path);
  }
}

/* What the system's own search says: the matches of a folder in its order, then its subfolders,
 * each with all that is in it. `folder` ends in a backslash. */
static void ExpectFolder(const char* folder, const char* pattern, uint32_t flags) {
  char path[kNameSize], name[kNameSize];
  WIN32_FIND_DATAA found;
  HANDLE search;
  snprintf(path, sizeof path, "%s%s", folder, pattern);
  search = FindFirstFileA(path, &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      int is_folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      if (is_folder ? !(flags & FL_DIRS) : (flags & FL_NO_FILES) != 0) continue;
      snprintf(path, sizeof path, "%s%s", folder, found.cFileName);
      if (flags & FL_AS_FOUND)
        strcpy(name, path);
      else
        GetFullPathNameA(path, sizeof name, name, NULL);
      if ((flags & FL_QUOTE) && strpbrk(name, " \t")) {
        memmove(name + 1, name, strlen(name) + 1);
        name[0] = '"';
        strcat(name, "\"");
      }
      AddName(&expected, name);
    } while (FindNextFileA(search, &found));
    FindClose(search);
  }
  if (!(flags & FL_RECURSE)) return;
  snprintf(path, sizeof path, "%s*", folder);
  search = FindFirstFileA(path, &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) continue;
    if (!strcmp(found.cFileName, ".") || !strcmp(found.cFileName, "..")) continue;
    snprintf(path, sizeof path, "%s%s\\", folder, found.cFileName);
    ExpectFolder(path, pattern, flags);
  } while (FindNextFileA(search, &found));
  FindClose(search);
}

/* Runs an enumeration to its end and compares it with what is in `expected`, which it empties. */
static void CompareList(const char* what, const char* roots, const char* patterns, uint32_t flags) {
  /* The room that callers are asked for, and a fence behind it. */
  struct {
    char name[262];
    char fence[10];
  } buffer;
  int i;
  memset(&buffer, '#', sizeof buffer);
  actual.count = 0;
  while (actual.count < kMostNames && NextName(buffer.name, roots, patterns, flags) == 1)
    AddName(&actual, buffer.name);
  Check(!memcmp(buffer.fence, "##########", sizeof buffer.fence), what, "wrote behind 262 bytes");
  Check(actual.count == expected.count, what, "another number of names");
  for (i = 0; i < actual.count || i < expected.count; ++i) {
    const char* got = i < actual.count ? actual.name[i] : "(none)";
    const char* want = i < expected.count ? expected.name[i] : "(none)";
    if (strcmp(got, want)) {
      printf("  name %d is %s\n  expected  %s\n", i, got, want);
      Check(0, what, "another name");
      break;
    }
  }
  expected.count = 0;
}

static void CheckLists(const char* tree) {
  char folder[kNameSize], roots[2 * kNameSize], first[kNameSize], name[kNameSize];
  snprintf(folder, sizeof folder, "%s\\", tree);
  snprintf(roots, sizeof roots, "%s\\*.txt", tree);

  ExpectFolder(folder, "*.txt", 0);
  CompareList("a pattern in one folder", roots, NULL, 0);
  ExpectFolder(folder, "*.txt", FL_RECURSE);
  Check(expected.count == kTextFiles, "the system's own listing", "misses some of the tree");
  CompareList("recursive", roots, NULL, FL_RECURSE);
  ExpectFolder(folder, "*.txt", FL_RECURSE | FL_QUOTE);
  CompareList("recursive, quoted", roots, NULL, FL_RECURSE | FL_QUOTE);
  ExpectFolder(folder, "*.txt", FL_RECURSE | FL_AS_FOUND);
  CompareList("recursive, as found", roots, NULL, FL_RECURSE | FL_AS_FOUND);
  ExpectFolder(folder, "*", FL_RECURSE | FL_DIRS | FL_NO_FILES);
  snprintf(roots, sizeof roots, "%s\\*", tree);
  CompareList("folders alone", roots, NULL, FL_RECURSE | FL_DIRS | FL_NO_FILES);

  /* A depth of 1 is the root alone; it is given back to 32 for what follows. */
  snprintf(roots, sizeof roots, "%s\\*.txt", tree);
  ExpectFolder(folder, "*.txt", 0);
  CompareList("depth 1", roots, NULL, FL_RECURSE | 1);
  ExpectFolder(folder, "*.txt", FL_RECURSE);
  CompareList("depth 32", roots, NULL, FL_RECURSE | 32);

  /* A folder and a list of patterns; two roots; a root by way of the environment. */
  ExpectFolder(folder, "*.dat", 0);
  ExpectFolder(folder, "t*", 0);
  CompareList("two patterns", tree, "*.dat; t*", 0);
  snprintf(roots, sizeof roots, "%s\\*.dat;\"%s\\beta with blanks\\*.txt\"", tree, tree);
  snprintf(name, sizeof name, "%s\\beta with blanks\\", tree);
  ExpectFolder(folder, "*.dat", 0);
  ExpectFolder(name, "*.txt", 0);
  CompareList("two roots", roots, NULL, 0);
  SetEnvironmentVariableA("TAVRIX_CLIENT_TREE", tree);
  ExpectFolder(folder, "*.txt", FL_RECURSE);
  CompareList("environment", "%TAVRIX_CLIENT_TREE%\\*.txt", NULL, FL_RECURSE);

  /* The life of an enumeration: it begins anew after its end, a null buffer skips a name, the first
   * match alone ends it, and two null lists end it at once. */
  snprintf(roots, sizeof roots, "%s\\*.txt", tree);
  Check(NextName(first, roots, NULL, 0) == 1, "life", "no first name");
  Check(NextName(name, roots, NULL, 0) == 1 && strcmp(name, first), "life", "no second name");
  Check(NextName(name, roots, NULL, 0) == 0, "life", "no end");
  Check(NextName(name, roots, NULL, 0) == 1 && !strcmp(name, first), "life", "no new beginning");
  Check(NextName(name, NULL, NULL, 0) == 0, "life", "two nulls give a name");
  Check(NextName(NULL, roots, NULL, 0) == 0, "life", "a null buffer takes a name");
  Check(NextName(name, roots, NULL, 0) == 1 && strcmp(name, first), "life", "nothing was skipped");
  Check(NextName(name, roots, NULL, 0) == 0, "life", "no end after a skipped name");
  Check(NextName(name, roots, NULL, FL_FIRST) == 1 && !strcmp(name, first), "life", "first only");
  Check(NextName(name, roots, NULL, FL_FIRST) == 1 && !strcmp(name, first), "life", "first again");

  snprintf(roots, sizeof roots, "%s\\missing\\*.txt", tree);
  Check(NextName(name, roots, NULL, FL_RECURSE) == 0, "missing folder", "gives a name");
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
  MakeTree(tree);
  CheckPrograms(tree);
  CheckLists(tree);
  CheckErrorInfo("after the last call");
  FreeLibrary(library);
  CheckUnloading(path, tree);
  RemoveTree(tree);
  puts(failures ? "FAILED" : "all checks hold");
  return failures != 0;
}
