// Debug output.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/posix/file.h"

namespace posix_layer {
namespace {

constexpr int kNobody = -1;
constexpr int kNotAsked = -2;
int listener = kNotAsked;  // its descriptor

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

}  // namespace
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
  if (!text || !DebugOutputHeard()) return;
  int before = errno;
  size_t written = 0;
  WriteAll(listener, text, strlen(text), &written);
  errno = before;
}
