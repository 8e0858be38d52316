#include "platform/posix/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix/file.h"
#include "platform/posix/fork.h"
#include "platform/posix/native.h"

namespace posix_layer {
namespace {

// Milliseconds that a terminal has for its answer, and an output that was stopped for going on.
constexpr DWORD kPatience = 500;

// More than the kernel keeps of input.
constexpr size_t kMostInput = 8192;

bool silent = false;  // the terminal did not answer once

// Signals whose default ends the process.
constexpr int kDeadly[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGTRAP, SIGABRT,
                           SIGBUS,  SIGFPE,  SIGSEGV, SIGUSR1, SIGUSR2, SIGPIPE,
                           SIGALRM, SIGTERM, SIGXCPU, SIGXFSZ, SIGSYS};

struct Undo {
  Change change;
  const char* sequence;
};
constexpr Undo kUndo[] = {
    {kColours, "\x1b[0m"},
    {kWrapping, "\x1b[?7h"},
    {kVisibility, "\x1b[?25h"},
    {kShape, "\x1b[0 q"},
};

// Read in signal handlers. The device is set before `changed` is.
volatile sig_atomic_t changed = kNothing;  // what has to be put back
uint32_t deviceMajor, deviceMinor;         // on this terminal
uint32_t changedBy;                        // by a process of this generation (fork.h)
bool guarded = false;                      // the end of the process is watched

// Waits for the event until the time that began at `begun` is over.
bool WaitFor(int terminal, short event, DWORD begun) {
  for (;;) {
    DWORD passed = std::min<DWORD>(GetTickCount() - begun, kPatience);
    pollfd waited = {terminal, event, 0};
    int count = poll(&waited, 1, static_cast<int>(kPatience - passed));
    if (count >= 0 || errno != EINTR) return count > 0 && waited.revents & event;
  }
}

bool InputWaits(int terminal) {
  pollfd waited = {terminal, POLLIN, 0};
  return poll(&waited, 1, 0) != 0;
}

// An answer to the question for the position, ESC [ row ; column R, among bytes that were read.
struct Answer {
  const char* begin;  // null: not found
  const char* end;
  int row;
  int column;
};

// Reads a number of at most five digits, 0 for none. Returns what is behind it.
const char* TakeNumber(const char* at, const char* end, int* number) {
  const char* most = end - at > 5 ? at + 5 : end;
  for (*number = 0; at < most && *at >= '0' && *at <= '9'; ++at) *number = *number * 10 + *at - '0';
  return at;
}

Answer FindAnswer(const char* bytes, size_t size) {
  const char* end = bytes + size;
  for (const char* begin = bytes; end - begin >= 2; ++begin) {
    if (begin[0] != '\x1b' || begin[1] != '[') continue;
    Answer answer = {begin, nullptr, 0, 0};
    const char* at = TakeNumber(begin + 2, end, &answer.row);
    if (answer.row == 0 || at == end || *at != ';') continue;
    at = TakeNumber(at + 1, end, &answer.column);
    if (answer.column == 0 || at == end || *at != 'R') continue;
    answer.end = at + 1;
    return answer;
  }
  return {};
}

// Asks a terminal whose modes are `before`. Every signal is blocked.
bool Ask(int terminal, const termios& before, COORD* position) {
  // A change of the mode and back cuts waiting lines anew, so none may wait. That part of a line
  // waits is seen in the other mode alone.
  if (InputWaits(terminal)) return false;
  termios plain = before;
  plain.c_lflag &= ~tcflag_t{ICANON | ECHO};
  plain.c_cc[VMIN] = 1;
  plain.c_cc[VTIME] = 0;
  // Never with TCSADRAIN: an output that is stopped would hold the process here.
  if (tcsetattr(terminal, TCSANOW, &plain) != 0) return false;
  char bytes[kMostInput];
  size_t size = 0, written = 0;
  Answer answer = {};
  DWORD begun = GetTickCount();
  bool asked = !InputWaits(terminal) && WaitFor(terminal, POLLOUT, begun) &&
               WriteAll(terminal, "\x1b[6n", 4, &written) == 0;
  // With the answer each read takes what was typed behind it, which must not be overtaken by what
  // is put back.
  while (asked && !answer.begin && size < sizeof bytes && WaitFor(terminal, POLLIN, begun)) {
    ssize_t count = read(terminal, bytes + size, sizeof bytes - size);
    if (count <= 0) break;
    size += static_cast<size_t>(count);
    answer = FindAnswer(bytes, size);
  }
  // In the caller's mode, so that it is echoed now and can still be erased.
  tcsetattr(terminal, TCSANOW, &before);
  for (const char* at = bytes; at < bytes + size; ++at) {
    if (at < answer.begin || at >= answer.end) ioctl(terminal, TIOCSTI, at);
  }
  if (asked && !answer.begin) silent = true;
  if (!answer.begin) return false;
  position->X = static_cast<int16_t>(std::min(answer.column - 1, INT16_MAX));
  position->Y = static_cast<int16_t>(std::min(answer.row - 1, INT16_MAX));
  return true;
}

// Writes what puts the terminal back, if it is still behind a standard stream: a file that has
// taken its place stays as it is. Runs in signal handlers, too.
void PutBack(int what) {
  if (changedBy != generation) return;  // the parent puts back what it has changed
  char text[64];
  size_t length = 0;
  for (const Undo& undo : kUndo) {
    if (!(undo.change & changed & what)) continue;
    for (const char* at = undo.sequence; *at; ++at) text[length++] = *at;
  }
  changed = changed & ~what;
  if (length == 0) return;
  for (int descriptor : {STDOUT_FILENO, STDERR_FILENO, STDIN_FILENO}) {
    struct statx facts;
    if (Look(descriptor, &facts) != 0 || facts.stx_rdev_major != deviceMajor ||
        facts.stx_rdev_minor != deviceMinor) {
      continue;
    }
    pollfd output = {descriptor, POLLOUT, 0};
    if (poll(&output, 1, kPatience) <= 0 || write(descriptor, text, length) > 0) return;
  }
}

constexpr int kEverything = kColours | kWrapping | kVisibility | kShape;

// The signal is blocked while its handler runs: it is raised anew by the return, and then ends the
// process as it would have done.
void OnDeadlySignal(int number) {
  PutBack(kEverything);
  signal(number, SIG_DFL);
  raise(number);
}

// At the normal end of the process, or when the library is unloaded.
void OnEnd() {
  if (changedBy == generation && changed & ~kColours) fflush(stdout);
  PutBack(kEverything & ~kColours);
  for (int number : kDeadly) {
    struct sigaction current;
    if (sigaction(number, nullptr, &current) == 0 && current.sa_handler == OnDeadlySignal) {
      signal(number, SIG_DFL);
    }
  }
  guarded = false;
}

bool Guard() {
  if (guarded) return true;
  if (!WatchForks() || atexit(OnEnd) != 0) return false;
  struct sigaction action = {};
  action.sa_handler = OnDeadlySignal;
  action.sa_flags = SA_ONSTACK;
  sigfillset(&action.sa_mask);  // writing in the background stops nothing then
  for (int number : kDeadly) {
    struct sigaction current;
    if (sigaction(number, nullptr, &current) != 0) continue;
    if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler == SIG_DFL) {
      sigaction(number, &action, nullptr);
    }
  }
  guarded = true;
  return true;
}

// Notes which terminal it is that has to be put back.
bool Note(int terminal) {
  struct statx facts;
  if (Look(terminal, &facts) != 0 || !Guard()) return false;
  if (changedBy != generation) changed = kNothing;
  changedBy = generation;
  deviceMajor = facts.stx_rdev_major;
  deviceMinor = facts.stx_rdev_minor;
  return true;
}

}  // namespace

COORD TerminalSize(int terminal) {
  winsize size = {};
  ioctl(terminal, TIOCGWINSZ, &size);
  return {static_cast<int16_t>(std::min<int>(size.ws_col ? size.ws_col : 80, INT16_MAX)),
          static_cast<int16_t>(std::min<int>(size.ws_row ? size.ws_row : 24, INT16_MAX))};
}

bool TakesEscapes() {
  const char* name = getenv("TERM");
  return name && *name && strcmp(name, "dumb") != 0;
}

bool RecoloursCells() {
  const char* name = getenv("TERM");
  return name && strcmp(name, "xterm-kitty") == 0;
}

bool AskCursor(int terminal, COORD* position) {
  if (silent || !TakesEscapes() || tcgetpgrp(terminal) != getpgrp()) return false;
  fflush(stdout);
  bool readable = (fcntl(terminal, F_GETFL) & O_ACCMODE) == O_RDWR;
  int device = readable ? terminal : open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (device < 0) return false;
  // No signal may leave the terminal in the other mode.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  termios modes;
  bool answered = tcgetattr(device, &modes) == 0 && Ask(device, modes, position);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (device != terminal) close(device);
  return answered;
}

DWORD WriteEscape(int terminal, const char* sequence, Change change, bool own) {
  if (!TakesEscapes()) return ERROR_SUCCESS;
  fflush(stdout);
  if (change && !own) {
    if (!Note(terminal)) return ERROR_NOT_ENOUGH_MEMORY;
    changed = changed | change;
  }
  size_t written = 0;
  int number = WriteAll(terminal, sequence, strlen(sequence), &written);
  if (number == 0 && own) changed = changed & ~change;
  return number == EBADF ? ERROR_ACCESS_DENIED : ErrorFromErrno(number);
}

}  // namespace posix_layer

void ExitProcess(UINT code) {
  posix_layer::PutBack(posix_layer::kEverything);
  _exit(static_cast<int>(code));
}
