// Processes: starting them, waiting for them.
#include "platform/posix/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/posix/handle.h"
#include "platform/posix/native.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

struct Process {
  pid_t id;
  bool ended;
  DWORD code;     // once it has ended
  Process* next;  // in the list of those whose handle was closed before they ended
};

// Processes that go on without a handle. They are waited for when another process is started or
// closed, so that none stays a zombie for long.
Process* orphans = nullptr;

bool HasEnded(Process* process, bool block) {
  if (!process->ended) process->ended = WaitForChild(process->id, block, &process->code);
  return process->ended;
}

void ReapOrphans() {
  for (Process** link = &orphans; *link;) {
    Process* process = *link;
    if (HasEnded(process, false)) {
      *link = process->next;
      free(process);
    } else {
      link = &process->next;
    }
  }
}

void CloseProcess(void* object) {
  Process* process = static_cast<Process*>(object);
  process->next = orphans;
  orphans = process;
  ReapOrphans();
}

void CloseThread(void*) {}

constexpr HandleKind kProcessKind = {CloseProcess};
constexpr HandleKind kThreadKind = {CloseThread};

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Copies the program's word. Returns what is behind it.
const char* TakeProgram(const char* line, char** out) {
  bool quoted = false;
  for (; *line && (quoted || !IsBlank(*line)); ++line) {
    if (*line == '"') {
      quoted = !quoted;
    } else {
      *(*out)++ = *line;
    }
  }
  *(*out)++ = 0;
  return line;
}

// Copies the argument that begins at `line`. Returns what is behind it.
const char* TakeArgument(const char* line, char** out) {
  bool quoted = false;
  while (*line && (quoted || !IsBlank(*line))) {
    size_t slashes = strspn(line, "\\");
    line += slashes;
    bool quote = *line == '"';
    size_t kept = quote ? slashes / 2 : slashes;
    memset(*out, '\\', kept);
    *out += kept;
    if (!quote) {
      if (slashes == 0) *(*out)++ = *line++;
      continue;
    }
    ++line;
    if (slashes % 2 == 1) {
      *(*out)++ = '"';
    } else if (quoted && *line == '"') {
      *(*out)++ = *line++;
    } else {
      quoted = !quoted;
    }
  }
  *(*out)++ = 0;
  return line;
}

// Moments on the clock that never jumps, in nanoseconds.
int64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// Waits until the process has ended or the moment has come.
bool WaitUntil(Process* process, int64_t deadline) {
  int descriptor = -1;
#ifdef SYS_pidfd_open
  descriptor = static_cast<int>(syscall(SYS_pidfd_open, process->id, 0));
#endif
  int64_t pause = 100'000;
  while (!HasEnded(process, false)) {
    int64_t left = deadline - Now();
    if (left <= 0) break;
    if (descriptor >= 0) {
      pollfd event = {descriptor, POLLIN, 0};
      poll(&event, 1, static_cast<int>(std::min<int64_t>((left + 999'999) / 1'000'000, INT_MAX)));
    } else {
      // No descriptor to be told by: look again, less and less often.
      int64_t rest = std::min(left, pause);
      timespec time = {static_cast<time_t>(rest / 1'000'000'000),
                       static_cast<long>(rest % 1'000'000'000)};
      nanosleep(&time, nullptr);
      pause = std::min<int64_t>(pause * 2, 10'000'000);
    }
  }
  if (descriptor >= 0) close(descriptor);
  return process->ended;
}

// The native path of a program. Sets the last error when there is none.
bool LocateProgram(const char* name, char* path, size_t size) {
  if (strpbrk(name, "/\\")) {
    NativePath native;
    if (!ToNative(name, &native)) return false;
    memcpy(path, native.text, native.length + 1);
    return true;
  }
  if (strlen(name) >= MAX_PATH) return Fail(ERROR_FILENAME_EXCED_RANGE);
  int number = *name ? FindProgram(name, path, size) : ENOENT;
  return number == 0 || Fail(ErrorFromErrno(number));
}

// Runs the program; false with the last error set.
bool Launch(const char* application, const CommandWords& words, pid_t* child) {
  char path[PATH_MAX];
  if (application) {
    NativePath native;
    if (!ToNative(application, &native)) return false;
    memcpy(path, native.text, native.length + 1);
  } else if (!LocateProgram(words.words[0], path, sizeof path)) {
    return false;
  }
  int number = Spawn(path, words.words, -1, child);
  if (number == 0) return true;
  return Fail(MissingError(path, number));
}

}  // namespace

void EndProcesses() {
  ReapOrphans();
  while (Process* process = orphans) {
    orphans = process->next;
    free(process);
  }
}

bool SplitCommandLine(const char* line, CommandWords* result) {
  // At most every other byte begins a word; each word ends with a zero byte of its own.
  size_t length = strlen(line);
  size_t most = length / 2 + 3;
  char** words = static_cast<char**>(malloc(most * sizeof(char*) + length + most));
  if (!words) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  char* out = reinterpret_cast<char*>(words + most);
  uint32_t count = 0;
  while (IsBlank(*line)) ++line;
  words[count++] = out;
  line = TakeProgram(line, &out);
  for (;;) {
    while (IsBlank(*line)) ++line;
    if (!*line) break;
    words[count++] = out;
    line = TakeArgument(line, &out);
  }
  words[count] = nullptr;
  *result = {words, count};
  return true;
}

int FindProgram(const char* name, char* path, size_t size) {
  const char* list = getenv("PATH");
  if (!list) list = "/usr/local/bin:/usr/bin:/bin";
  size_t nameLength = strlen(name);
  int number = ENOENT;
  for (;;) {
    size_t length = strcspn(list, ":");
    // An empty entry is the current directory.
    const char* entry = length ? list : ".";
    size_t entryLength = length ? length : 1;
    if (entryLength + nameLength + 2 <= size) {
      memcpy(path, entry, entryLength);
      path[entryLength] = '/';
      memcpy(path + entryLength + 1, name, nameLength + 1);
      struct statx facts;
      if (Look(path, true, &facts) == 0 && S_ISREG(facts.stx_mode)) {
        if (faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) == 0) return 0;
        number = EACCES;
      }
    }
    if (!list[length]) return number;
    list += length + 1;
  }
}

int Spawn(const char* path, char* const* words, int output, pid_t* child) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);  // neither of the two can fail
  posix_spawnattr_init(&attributes);
  int number = 0;
  sigset_t none, plain;
  sigemptyset(&none);
  sigemptyset(&plain);
  sigaddset(&plain, SIGPIPE);
  sigaddset(&plain, SIGCHLD);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &plain);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  if (output >= 0) number = posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  if (number == 0) number = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  if (number == 0) number = posix_spawn(child, path, &actions, &attributes, words, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return number;
}

bool WaitForChild(pid_t child, bool block, DWORD* code) {
  for (;;) {
    int status = 0;
    pid_t result = waitpid(child, &status, block ? 0 : WNOHANG);
    if (result == 0) return false;
    if (result == child) {
      *code = static_cast<DWORD>(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
      return true;
    }
    if (errno != EINTR) {
      *code = 0;
      return true;
    }
  }
}

}  // namespace posix_layer

void GetStartupInfoA(STARTUPINFOA* info) {
  memset(info, 0, sizeof *info);
  info->cb = sizeof *info;
}

BOOL CreateProcessA(const char* application, char* commandLine, SECURITY_ATTRIBUTES*,
                    SECURITY_ATTRIBUTES*, BOOL, DWORD, void*, const char*, STARTUPINFOA*,
                    PROCESS_INFORMATION* information) {
  using namespace posix_layer;
  ReapOrphans();
  if ((!application && !commandLine) || !information) return Fail(ERROR_INVALID_PARAMETER);
  // Everything that can fail comes before the child exists.
  CommandWords words;
  if (!ReserveHandles(2)) return FALSE;
  if (!SplitCommandLine(commandLine ? commandLine : application, &words)) return FALSE;
  Process* process = static_cast<Process*>(malloc(sizeof(Process)));
  if (!process) {
    free(words.words);
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
  }
  pid_t child = -1;
  bool started = Launch(application, words, &child);
  free(words.words);
  if (!started) {
    free(process);
    return FALSE;
  }
  *process = {child, false, 0, nullptr};
  information->hProcess = OpenHandle(kProcessKind, process);
  // Threads carry no state: a handle costs a slot and no memory.
  static char threads;
  information->hThread = OpenHandle(kThreadKind, &threads);
  information->dwProcessId = information->dwThreadId = static_cast<DWORD>(child);
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  using namespace posix_layer;
  Process* process = static_cast<Process*>(HandleObject(handle, kProcessKind));
  if (!process) return WAIT_FAILED;
  if (milliseconds == 0 || milliseconds == INFINITE) {
    return HasEnded(process, milliseconds == INFINITE) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
  }
  int64_t deadline = Now() + int64_t{milliseconds} * 1'000'000;
  return WaitUntil(process, deadline) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL GetExitCodeProcess(HANDLE handle, DWORD* code) {
  using namespace posix_layer;
  Process* process = static_cast<Process*>(HandleObject(handle, kProcessKind));
  if (!process) return FALSE;
  *code = HasEnded(process, false) ? process->code : STILL_ACTIVE;
  return TRUE;
}

// The same value as on the real system, where a failed open and this process look alike.
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
