// Debug output.
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/posix/file.h"
#include "platform/posix/native.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

constexpr int kNobody = -1;
constexpr int kNotAsked = -2;
int listener = kNotAsked;  // its descriptor

bool cutLine = false;  // the listener has the beginning of a line whose end was lost

int OpenListener() {
  const char* name = secure_getenv("TAVRIX_DEBUG_OUTPUT");
  if (!name) return kNobody;
  if (strcmp(name, "stderr") == 0) {
    return fcntl(STDERR_FILENO, F_GETFD) < 0 ? kNobody : STDERR_FILENO;
  }
  // A pipe that nobody reads is not waited for.
  constexpr int kFlags =
      O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_LARGEFILE;
  int descriptor = open(name, kFlags, 0666);
  if (descriptor < 0) return kNobody;
  if (descriptor > STDERR_FILENO) return descriptor;
  // The place of a standard stream that was closed is not the layer's to take.
  int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(descriptor);
  return moved < 0 ? kNobody : moved;
}

// Writes to standard error without waiting. Whether its writes wait is for all processes that share
// the description, so that it is left as it is.
ssize_t WriteToStandardError(const char* bytes, size_t size) {
  struct statx facts;
  if (Look(STDERR_FILENO, &facts) != 0) return -1;
  if (S_ISREG(facts.stx_mode)) return write(STDERR_FILENO, bytes, size);
  if (S_ISSOCK(facts.stx_mode)) return send(STDERR_FILENO, bytes, size, MSG_DONTWAIT);
  iovec part = {const_cast<char*>(bytes), size};
  ssize_t count = pwritev2(STDERR_FILENO, &part, 1, -1, RWF_NOWAIT);
  if (count >= 0 || errno == EAGAIN || errno == EINTR || errno == EPIPE) return count;
  // Not for a terminal, and not for pipes of older systems: by a description of its own.
  int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (own < 0) return -1;
  count = write(own, bytes, size);
  int number = errno;
  close(own);
  return errno = number, count;
}

// Writes as much as the listener takes at once. Returns how much that is.
size_t WriteSome(const char* bytes, size_t size) {
  size_t written = 0;
  while (written < size) {
    const char* at = bytes + written;
    ssize_t count = listener == STDERR_FILENO ? WriteToStandardError(at, size - written)
                                              : write(listener, at, size - written);
    if (count > 0) written += static_cast<size_t>(count);
    if (count == 0 || (count < 0 && errno != EINTR)) break;
  }
  return written;
}

// How much of a text goes out at once: whole lines of it where it is longer than `most`.
size_t PartOf(const char* text, size_t size, size_t most) {
  if (size <= most) return size;
  const void* end = memrchr(text, '\n', most);
  return end ? static_cast<size_t>(static_cast<const char*>(end) - text) + 1 : most;
}

// Writes a text in parts that a pipe takes whole or not at all. The rest is lost with the first
// part that is not taken.
void Write(const char* text, size_t size) {
  char last = cutLine ? '\0' : '\n';  // byte that the listener has
  cutLine = false;
  for (size_t done = 0; done < size;) {
    char part[PIPE_BUF];
    size_t head = 0;
    if (done == 0 && last != '\n') part[head++] = '\n';
    size_t count = PartOf(text + done, size - done, sizeof part - head);
    memcpy(part + head, text + done, count);
    size_t written = WriteSome(part, head + count);
    if (written > 0) last = part[written - 1];
    if (written < head + count) {
      cutLine = last != '\n';
      return;
    }
    done += count;
  }
}

}  // namespace

void EndDebugOutput() {
  if (listener > STDERR_FILENO) close(listener);
  listener = kNotAsked;
}

}  // namespace posix_layer

bool DebugOutputHeard() {
  using namespace posix_layer;
  if (listener == kNotAsked) {
    int before = errno;
    listener = OpenListener();
    errno = before;
  }
  return listener != kNobody;
}

void OutputDebugStringA(const char* text) {
  using namespace posix_layer;
  if (!text || !*text || !DebugOutputHeard()) return;
  int before = errno;
  {
    NoWriteSignals guard;
    Write(text, strlen(text));
  }
  errno = before;
}
