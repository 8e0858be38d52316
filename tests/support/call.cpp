#include "tests/support/call.h"

#ifndef _WIN32

#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

namespace tavrix_test {

bool CallFault::Fails(const char* call, int usual) {
  bool fails = false;
  for (CallFault* fault = current_; fault; fault = fault->outer_) {
    if (fault->call_ ? strcmp(fault->call_, call) != 0 : usual == 0) continue;
    ++fault->seen_;
    if (fault->number_ != kEach && fault->seen_ != fault->number_) continue;
    if (!fails) errno = fault->call_ ? fault->error_ : usual;  // the youngest one decides
    fails = true;
  }
  return fails;
}

}  // namespace tavrix_test

// A call: its signature, the names of its parameters, what it returns on a failure, its usual
// errno. Where the last parameters may be left out they are all taken, and handed on as they are.
#define CALL(Result, name, signature, arguments, failure, usual)                            \
  Result __real_##name signature;                                                           \
  Result __wrap_##name signature {                                                          \
    if (auto* other = tavrix_test::StandIn<Result signature>::Of(#name)) {                  \
      return (*other)arguments;                                                             \
    }                                                                                       \
    return tavrix_test::CallFault::Fails(#name, usual) ? failure : __real_##name arguments; \
  }

extern "C" {

using Statfs = struct statfs64;
using Statx = struct statx;

CALL(int, open, (const char* name, int flags, unsigned mode), (name, flags, mode), -1, EIO)
// open without a mode, as _FORTIFY_SOURCE calls it.
int __wrap___open_2(const char* name, int flags) { return __wrap_open(name, flags, 0); }
CALL(ssize_t, read, (int file, void* bytes, size_t size), (file, bytes, size), -1, EIO)
CALL(ssize_t, write, (int file, const void* bytes, size_t size), (file, bytes, size), -1, EIO)
CALL(FILE*, fdopen, (int file, const char* mode), (file, mode), nullptr, ENOMEM)
CALL(int, fcntl, (int file, int command, long argument), (file, command, argument), -1, EMFILE)
CALL(int, pipe2, (int* ends, int flags), (ends, flags), -1, EMFILE)
CALL(int, memfd_create, (const char* name, unsigned flags), (name, flags), -1, EMFILE)
CALL(void*, mmap, (void* at, size_t size, int access, int flags, int file, off_t offset),
     (at, size, access, flags, file, offset), MAP_FAILED, ENOMEM)
CALL(void*, mmap64, (void* at, size_t size, int access, int flags, int file, off64_t offset),
     (at, size, access, flags, file, offset), MAP_FAILED, ENOMEM)
CALL(int, munmap, (void* at, size_t size), (at, size), -1, ENOMEM)
CALL(int, madvise, (void* at, size_t size, int advice), (at, size, advice), -1, 0)
CALL(ssize_t, process_vm_readv,
     (pid_t process, const iovec* to, unsigned long toCount, const iovec* from,
      unsigned long fromCount, unsigned long flags),
     (process, to, toCount, from, fromCount, flags), -1, 0)
CALL(int, ftruncate64, (int file, off64_t size), (file, size), -1, EIO)
CALL(int, fallocate64, (int file, int mode, off64_t from, off64_t size), (file, mode, from, size),
     -1, EIO)
CALL(off64_t, lseek64, (int file, off64_t offset, int whence), (file, offset, whence), -1, EIO)
CALL(ssize_t, pread64, (int file, void* bytes, size_t size, off64_t from),
     (file, bytes, size, from), -1, EIO)
CALL(ssize_t, pwritev2, (int file, const iovec* parts, int count, off_t at, int flags),
     (file, parts, count, at, flags), -1, 0)
CALL(ssize_t, send, (int file, const void* bytes, size_t size, int flags),
     (file, bytes, size, flags), -1, 0)
CALL(int, fcntl64, (int file, int command, void* lock), (file, command, lock), -1, ENOLCK)
CALL(int, statx, (int folder, const char* name, int flags, unsigned mask, Statx* facts),
     (folder, name, flags, mask, facts), -1, EIO)
CALL(int, statfs64, (const char* name, Statfs* facts), (name, facts), -1, EIO)
CALL(int, fstatfs64, (int file, Statfs* facts), (file, facts), -1, EIO)
CALL(int, faccessat, (int folder, const char* name, int access, int flags),
     (folder, name, access, flags), -1, EACCES)
CALL(ssize_t, readlink, (const char* name, char* text, size_t size), (name, text, size), -1, EACCES)
CALL(char*, getcwd, (char* text, size_t size), (text, size), nullptr, ENOENT)
CALL(int, unlink, (const char* name), (name), -1, EIO)
CALL(int, ioctl, (int file, unsigned long request, void* argument), (file, request, argument), -1,
     0)
CALL(int, poll, (pollfd * files, nfds_t count, int patience), (files, count, patience), -1, 0)
CALL(int, tcgetattr, (int terminal, termios* modes), (terminal, modes), -1, EIO)
CALL(int, tcsetattr, (int terminal, int when, const termios* modes), (terminal, when, modes), -1,
     EIO)
CALL(int, posix_spawn,
     (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions,
      const posix_spawnattr_t* attributes, char* const* words, char* const* variables),
     (child, path, actions, attributes, words, variables), errno, EAGAIN)
CALL(int, posix_spawn_file_actions_adddup2,
     (posix_spawn_file_actions_t * actions, int from, int to), (actions, from, to), errno, ENOMEM)
CALL(int, posix_spawn_file_actions_addclosefrom_np,
     (posix_spawn_file_actions_t * actions, int from), (actions, from), errno, ENOMEM)
CALL(pid_t, waitpid, (pid_t child, int* status, int flags), (child, status, flags), -1, 0)
CALL(int, atexit, (void (*function)()), (function), -1, ENOMEM)
CALL(int, pthread_atfork, (void (*before)(), void (*parent)(), void (*child)()),
     (before, parent, child), errno, ENOMEM)
CALL(int, setenv, (const char* name, const char* value, int replace), (name, value, replace), -1,
     ENOMEM)
CALL(int, clock_gettime, (clockid_t clock, timespec* time), (clock, time), -1, 0)
CALL(int, sched_getaffinity, (pid_t process, size_t size, cpu_set_t* processors),
     (process, size, processors), -1, 0)
CALL(long, getdents64, (int file, void* entries, unsigned size), (file, entries, size), -1, EIO)

long __real_syscall(long number, long a, long b, long c, long d, long e, long f);

long __real_getdents64(int file, void* entries, unsigned size) {
  return __real_syscall(SYS_getdents64, file, reinterpret_cast<long>(entries), size, 0, 0, 0);
}

long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f) {
  if (number != SYS_getdents64) return __real_syscall(number, a, b, c, d, e, f);
  return __wrap_getdents64(static_cast<int>(a), reinterpret_cast<void*>(b),
                           static_cast<unsigned>(c));
}
}

#endif
