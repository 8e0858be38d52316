#include "tests/support/call.h"

#ifndef _WIN32

#include <sys/syscall.h>

#include <cstdarg>

using tavrix_test::CallFault;
using tavrix_test::standIn;

namespace {

constexpr int kWords = 7;

// As many words as a call may have on any system; those that were not given are read and not used.
#define READ_WORDS(word, first)                                           \
  intptr_t word[kWords] = {first};                                        \
  va_list arguments;                                                      \
  va_start(arguments, first);                                             \
  for (int i = 1; i < kWords; ++i) word[i] = va_arg(arguments, intptr_t); \
  va_end(arguments)

}  // namespace

#define CALL(failure, usual, name)                                                  \
  int64_t __real_##name(intptr_t first, ...);                                       \
  __attribute__((no_sanitize_address)) int64_t __wrap_##name(intptr_t first, ...) { \
    READ_WORDS(w, first);                                                           \
    if (strcmp(standIn.first, #name) == 0) return standIn.second(w);                \
    if (CallFault::Fails(#name, usual)) return failure;                             \
    return __real_##name(w[0], w[1], w[2], w[3], w[4], w[5], w[6]);                 \
  }

// CALL for each of the names behind the failure, as it is returned, and its usual errno.
#define CALLS(...) SCAN(SCAN(SCAN(NEXT_CALL(__VA_ARGS__))))
#define NEXT_CALL(failure, usual, name, ...) \
  CALL(failure, usual, name) __VA_OPT__(NEXT_NAME PARENTHESES(failure, usual, __VA_ARGS__))
#define NEXT_NAME() NEXT_CALL
#define PARENTHESES ()
#define SCAN(...) SCAN3(SCAN3(SCAN3(__VA_ARGS__)))
#define SCAN3(...) __VA_ARGS__

extern "C" {
CALLS(-1, EIO, open, read, write, ftruncate64, fallocate64, lseek64, pread64, statx, statfs64,
      fstatfs64, unlink, tcgetattr, tcsetattr)
CALLS(-1, ENOMEM, mmap, mmap64, munmap, atexit, setenv)
CALLS(-1, EMFILE, fcntl, pipe2, memfd_create)
CALLS(-1, ENOLCK, fcntl64)
CALLS(-1, EACCES, faccessat, readlink)
CALLS(-1, 0, madvise, process_vm_readv, pwritev2, send, ioctl, poll, waitpid, clock_gettime,
      sched_getaffinity)
CALLS(0, ENOMEM, fdopen)
CALLS(0, ENOENT, getcwd)
CALLS(errno, EAGAIN, posix_spawn)
CALLS(errno, ENOMEM, posix_spawn_file_actions_adddup2, posix_spawn_file_actions_addclosefrom_np,
      pthread_atfork)

// open without a mode, as _FORTIFY_SOURCE calls it.
int64_t __wrap___open_2(intptr_t name, intptr_t flags) { return __wrap_open(name, flags, 0); }

int64_t __real_syscall(intptr_t number, ...);

__attribute__((no_sanitize_address)) int64_t __wrap_syscall(intptr_t number, ...) {
  READ_WORDS(w, number);
  if (number == SYS_getdents64 && CallFault::Fails("getdents64", EIO)) return -1;
  return __real_syscall(w[0], w[1], w[2], w[3], w[4], w[5], w[6]);
}
}

#endif
