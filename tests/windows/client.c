// A program that uses Tavrix32.dll as those do that were built long before it: it knows the
// decorated names, the ordinals and the calling convention, and nothing else.
//
// Every call goes through CallExport, which places the stack at any multiple of four bytes (callers
// of this age promise no more) and checks that the callee removed its arguments.
//
// With the arguments "--late FILE" it is the program that XProcStart starts: it takes its time and
// makes the file last.

#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

enum { kErrorInfo = 2, kFileList, kProcStart, kStrCSpn, kStrCmp, kStrLen, kStrSpn, kCount = 8 };

static const struct {
  const char* name;
  int arguments;
} kExports[kCount] = {{"_XDlgFileOpen@4", 1}, {"_XErrorInfo@4", 1}, {"_XFileList@16", 4},
                      {"_XProcStart@4", 1},   {"_XStrCSpn@12", 3},  {"_XStrCmp@12", 3},
                      {"_XStrLen@4", 1},      {"_XStrSpn@12", 3}};

#define FL_RECURSE 0x80000000u
#define FL_QUOTE 0x800000u

static FARPROC exports[kCount + 1];  // by ordinal; [0] is not used
static int failures;

static void Check(int holds, const char* what, const char* detail) {
  if (holds) return;
  printf("FAILED: %s: %s\n", what, detail);
  ++failures;
}

// Calls with the stack `phase` bytes below a multiple of 16 before the arguments are pushed: the
// next of the four phases each time.
static int32_t CallExport(int ordinal, const void* a, const void* b, uintptr_t c, uintptr_t d) {
  static int phase;
  const uintptr_t arguments[4] = {(uintptr_t)a, (uintptr_t)b, c, d};
  int32_t result = (int32_t)(uintptr_t)exports[ordinal], left = phase = (phase + 4) % 16;
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

static int32_t NextName(char* buffer, const char* roots, uint32_t flags) {
  return CallExport(kFileList, buffer, roots, 0, flags);
}

static HMODULE Bind(const char* path) {
  HMODULE module = LoadLibraryA(path);
  for (int ordinal = 1; ordinal <= kCount; ++ordinal) {
    const char* name = kExports[ordinal - 1].name;
    exports[ordinal] = GetProcAddress(module, name);
    Check(exports[ordinal] != NULL, name, "not found by name");
    Check(GetProcAddress(module, (LPCSTR)(uintptr_t)ordinal) == exports[ordinal], name,
          "its ordinal leads elsewhere");
  }
  Check(!GetProcAddress(module, (LPCSTR)(kCount + 1)), "ordinal 9", "exists");
  Check(!GetProcAddress(module, "XStrLen"), "XStrLen", "exported under its plain name");
  return module;
}

static void CheckStrings(void) {
  static const struct {
    int ordinal;
    const char *first, *second;
    int32_t third, expected;
  } kCases[] = {{kStrLen, "abc\xE4\xFF", NULL, 0, 5},
                {kStrSpn, "aaab", "a", 2, 3},
                {kStrCSpn, "ab\x80", "\x80", 1, 3},
                {kStrCmp, "abc", "abd", 3, 0},
                {kStrCmp, "\xE4", "z", 1, 2}};
  for (int i = 0; i < 20; ++i)  // five cases in four phases
    Check(CallExport(kCases[i % 5].ordinal, kCases[i % 5].first, kCases[i % 5].second,
                     (uintptr_t)kCases[i % 5].third, 0) == kCases[i % 5].expected,
          kExports[kCases[i % 5].ordinal - 1].name, "another result");
}

static int MakeFile(const char* path) {
  HANDLE file = CreateFileA(path, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
  return file != INVALID_HANDLE_VALUE && CloseHandle(file);
}

// In the current folder, which is empty.
static void CheckPrograms(void) {
  char self[MAX_PATH], command[2 * MAX_PATH], ends_with_3[] = "cmd.exe /c exit 3";
  char missing[] = "there-is-no-such-program-here.exe --at-all";
  const char* what = kExports[kProcStart - 1].name;
  Check(CallExport(kProcStart, ends_with_3, 0, 0, 0) == 0, what, "exit code 3 is not 0");
  SetLastError(0);
  Check(CallExport(kProcStart, missing, 0, 0, 0) == -1, what, "a missing program starts");
  Check(GetLastError() == ERROR_FILE_NOT_FOUND, what, "the last error was changed");
  GetModuleFileNameA(NULL, self, sizeof self);
  snprintf(command, sizeof command, "\"%s\" --late \"late mark\"", self);
  Check(CallExport(kProcStart, command, 0, 0, 0) == 0, what, "does not start this program");
  Check(DeleteFileA("late mark"), what, "returned before the program had ended");
}

// One enumeration to its end, with what callers are asked for as buffer and a fence behind it; and
// one with a null buffer, which skips a name.
static void CheckLists(void) {
  const char *const kNames[] = {"%s\\one.txt", "\"%s\\a b\\two words.txt\""}, *roots = "*.txt";
  char folder[MAX_PATH], name[2 * MAX_PATH];
  const char* what = kExports[kFileList - 1].name;
  struct {
    char name[262], fence[10];
  } buffer;
  memset(&buffer, '#', sizeof buffer);
  GetCurrentDirectoryA(sizeof folder, folder);
  for (int i = 0; i < 2; ++i) {
    snprintf(name, sizeof name, kNames[i], folder);
    Check(NextName(buffer.name, roots, FL_RECURSE | FL_QUOTE) && !strcmp(buffer.name, name), what,
          buffer.name);
  }
  Check(!NextName(buffer.name, roots, FL_RECURSE), what, "no end");
  Check(!memcmp(buffer.fence, "##########", sizeof buffer.fence), what, "wrote behind 262 bytes");
  Check(NextName(NULL, roots, FL_RECURSE) == 0, what, "a null buffer takes a name");
  Check(NextName(buffer.name, roots, FL_RECURSE) == 1 && strstr(buffer.name, "two words"), what,
        "nothing was skipped");
  Check(NextName(buffer.name, roots, FL_RECURSE) == 0, what, "no end");
}

static void CheckErrorInfo(void) {
  char buffer[256] = "untouched";
  Check(CallExport(kErrorInfo, buffer, 0, 0, 0) == 0 && !strcmp(buffer, "untouched"),
        "a trail without a failure", buffer);
}

// How many blocks the heap of the runtime that the library shares has, and the handles.
static unsigned long InUse(void) {
  unsigned long count = 0;
  DWORD handles = 0;
  _HEAPINFO block = {0};
  while (_heapwalk(&block) == _HEAPOK) count += block._useflag == _USEDENTRY;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  return count + handles;
}

// Loads and unloads, with enumerations at their end and in the middle.
static void CheckUnloading(const char* path) {
  char name[MAX_PATH];
  unsigned long before = 0;
  for (int i = 0; i < 300; ++i) {
    HMODULE module = LoadLibraryA(path);
    exports[kFileList] = GetProcAddress(module, "_XFileList@16");
    for (int names = i % 6; names > 0 && NextName(name, ".\\*", FL_RECURSE) == 1;) --names;
    FreeLibrary(module);
    Check(!GetModuleHandleA(path), "unloading", "the library stays");
    if (i == 100) before = InUse();
  }
  Check(InUse() <= before + 20, "unloading", "blocks or handles stay");
}

int main(int argc, char** argv) {
  char folder[MAX_PATH];
  if (argc == 3 && !strcmp(argv[1], "--late")) {
    Sleep(300);
    return MakeFile(argv[2]) ? 5 : 6;
  }
  HMODULE library = Bind(argv[1]);
  if (failures != 0) return 1;
  GetTempPathA(sizeof folder, folder);
  snprintf(folder + strlen(folder), 40, "tavrix_client_%lu", GetCurrentProcessId());
  Check(CreateDirectoryA(folder, NULL) && SetCurrentDirectoryA(folder), "folder", folder);
  CheckStrings();
  CheckPrograms();
  Check(MakeFile("one.txt") && MakeFile("other.dat") && CreateDirectoryA("a b", NULL) &&
            MakeFile("a b\\two words.txt"),
        "files", folder);
  CheckLists();
  CheckErrorInfo();
  FreeLibrary(library);
  CheckUnloading(argv[1]);
  Check(DeleteFileA("one.txt") && DeleteFileA("other.dat") && DeleteFileA("a b\\two words.txt") &&
            RemoveDirectoryA("a b") && SetCurrentDirectoryA("..") && RemoveDirectoryA(folder),
        "files", "are left");
  puts(failures ? "FAILED" : "all checks hold");
  return failures != 0;
}
