// The standard streams as handles, and writing.
#include "platform/posix/file.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/handle.h"
#include "platform/posix/native.h"

namespace posix_layer {
namespace {

struct Stream {
  int descriptor;
  HANDLE handle;
};
Stream streams[] = {{STDIN_FILENO, nullptr}, {STDOUT_FILENO, nullptr}, {STDERR_FILENO, nullptr}};

// They belong to the whole process: CloseHandle refuses them.
constexpr HandleKind kStream = {nullptr};

// Keeps SIGPIPE from the process while it lives: a pipe without a reader is an error like any
// other.
class NoPipeSignal {
 public:
  NoPipeSignal() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    waiting_ = sigismember(&pending, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~NoPipeSignal() {
    const timespec kNow = {};
    if (!waiting_) sigtimedwait(&pipe_, nullptr, &kNow);  // takes the one that was raised here
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;

 private:
  sigset_t pipe_, before_;
  bool waiting_;
};

}  // namespace

int Descriptor(HANDLE file) {
  auto* stream = static_cast<Stream*>(HandleObject(file, kStream));
  return stream ? stream->descriptor : -1;
}

int WriteAll(int descriptor, const void* data, size_t size, size_t* written) {
  NoPipeSignal guard;
  auto* at = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t count = write(descriptor, at, size);
    if (count < 0 && errno == EAGAIN) {  // made so by another process that has the same file
      pollfd room = {descriptor, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (count < 0 && errno != EINTR) {
      return errno;
    } else if (count > 0) {
      at += count;
      size -= static_cast<size_t>(count);
      *written += static_cast<size_t>(count);
    }
  }
  return 0;
}

}  // namespace posix_layer

HANDLE GetStdHandle(DWORD stream) {
  using namespace posix_layer;
  DWORD index = STD_INPUT_HANDLE - stream;
  if (index > 2) return Fail(ERROR_INVALID_HANDLE), INVALID_HANDLE_VALUE;
  Stream& entry = streams[index];
  if (fcntl(entry.descriptor, F_GETFD) < 0) return nullptr;
  if (!entry.handle) entry.handle = OpenHandle(kStream, &entry);
  return entry.handle ? entry.handle : INVALID_HANDLE_VALUE;
}

BOOL WriteFile(HANDLE file, const void* data, DWORD size, DWORD* written, void* overlapped) {
  using namespace posix_layer;
  if (written) *written = 0;
  if (overlapped) return Fail(ERROR_INVALID_PARAMETER);
  int descriptor = Descriptor(file);
  if (descriptor < 0) return FALSE;
  size_t count = 0;
  int number = WriteAll(descriptor, data, size, &count);
  if (written) *written = static_cast<DWORD>(count);
  if (number == 0) return TRUE;
  // Such a descriptor is open: GetStdHandle saw to it. It is not for writing.
  return Fail(number == EBADF ? ERROR_ACCESS_DENIED : ErrorFromErrno(number));
}
