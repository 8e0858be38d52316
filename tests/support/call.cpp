#include "tests/support/call.h"

#ifndef _WIN32

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace {

int64_t countdown;  // to the call that fails; 0: it has failed, or none is to

bool Fails(int number) {
  if (countdown == 0 || --countdown != 0) return false;
  errno = number;
  return true;
}

}  // namespace

extern "C" {

int __real_open(const char* name, int flags, ...);
void* __real_mmap(void* at, size_t size, int access, int flags, int file, off_t offset);
void* __real_mmap64(void* at, size_t size, int access, int flags, int file, off64_t offset);
int __real_munmap(void* at, size_t size);
int __real_ftruncate64(int file, off64_t size);
int __real_fallocate64(int file, int mode, off64_t offset, off64_t size);
off64_t __real_lseek64(int file, off64_t offset, int whence);
int __real_statx(int directory, const char* name, int flags, unsigned mask, struct statx* facts);
ssize_t __real_copy_file_range(int from, off64_t* fromAt, int to, off64_t* toAt, size_t size,
                               unsigned flags);

int __wrap_open(const char* name, int flags, ...) {
  if (Fails(EIO)) return -1;
  va_list arguments;
  va_start(arguments, flags);
  int mode = flags & O_CREAT ? va_arg(arguments, int) : 0;
  va_end(arguments);
  return __real_open(name, flags, mode);
}

void* __wrap_mmap(void* at, size_t size, int access, int flags, int file, off_t offset) {
  return Fails(ENOMEM) ? MAP_FAILED : __real_mmap(at, size, access, flags, file, offset);
}

void* __wrap_mmap64(void* at, size_t size, int access, int flags, int file, off64_t offset) {
  return Fails(ENOMEM) ? MAP_FAILED : __real_mmap64(at, size, access, flags, file, offset);
}

int __wrap_munmap(void* at, size_t size) { return Fails(ENOMEM) ? -1 : __real_munmap(at, size); }

int __wrap_ftruncate64(int file, off64_t size) {
  return Fails(EIO) ? -1 : __real_ftruncate64(file, size);
}

int __wrap_fallocate64(int file, int mode, off64_t offset, off64_t size) {
  return Fails(EIO) ? -1 : __real_fallocate64(file, mode, offset, size);
}

off64_t __wrap_lseek64(int file, off64_t offset, int whence) {
  return Fails(EIO) ? -1 : __real_lseek64(file, offset, whence);
}

int __wrap_statx(int directory, const char* name, int flags, unsigned mask, struct statx* facts) {
  return Fails(EIO) ? -1 : __real_statx(directory, name, flags, mask, facts);
}

ssize_t __wrap_copy_file_range(int from, off64_t* fromAt, int to, off64_t* toAt, size_t size,
                               unsigned flags) {
  return Fails(EIO) ? -1 : __real_copy_file_range(from, fromAt, to, toAt, size, flags);
}
}

namespace tavrix_test {

CallFault::CallFault(int64_t number) { countdown = number; }
CallFault::~CallFault() { countdown = 0; }
bool CallFault::Hit() const { return countdown == 0; }

}  // namespace tavrix_test

#endif
