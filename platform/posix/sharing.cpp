#include "platform/posix/sharing.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/file.h"
#include "platform/posix/native.h"

namespace posix_layer {
namespace {

// The range of what is mapped, and behind it the four bytes of the opens.
constexpr int64_t kMapped = int64_t{1} << 61;
constexpr int64_t kBytes = int64_t{1} << 62;

// The four bytes. The common opens lock neighbours: one call each.
constexpr uint32_t kUsesRead = 1;
constexpr uint32_t kUsesWrite = 2;
constexpr uint32_t kDeniesWrite = 4;
constexpr uint32_t kDeniesRead = 8;
constexpr int kByteCount = 4;

uint32_t Uses(DWORD what) {
  return (what & FILE_SHARE_READ ? kUsesRead : 0) | (what & FILE_SHARE_WRITE ? kUsesWrite : 0);
}

uint32_t Denies(DWORD what) {
  return (what & FILE_SHARE_READ ? kDeniesRead : 0) | (what & FILE_SHARE_WRITE ? kDeniesWrite : 0);
}

// Calls with start and length of each run of bytes, until one call returns false.
template <typename Call>
bool ForEachRun(uint32_t bytes, Call call) {
  for (int first = 0; first < kByteCount; ++first) {
    int end = first;
    while (bytes >> end & 1) ++end;
    if (end > first && !call(kBytes + first, end - first)) return false;
    first = end;
  }
  return true;
}

int Control(int descriptor, int command, struct flock64* lock) {
  int result;
  do {
    result = fcntl64(descriptor, command, lock);
  } while (result != 0 && errno == EINTR);
  return result == 0 ? 0 : errno;
}

// Locks, or unlocks; false when somebody else's lock forbids it. Where there are no locks, and
// where the descriptor is not open for such a lock, everything is granted.
bool Lock(int descriptor, int type, int64_t start, int64_t length) {
  struct flock64 lock = {};
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  int number = Control(descriptor, F_OFD_SETLK, &lock);
  return number != EAGAIN && number != EACCES;
}

// The lock that another description holds there: F_RDLCK, F_WRLCK, or F_UNLCK for none.
int HeldThere(int descriptor, int64_t start, int64_t length) {
  struct flock64 lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return Control(descriptor, F_OFD_GETLK, &lock) == 0 ? lock.l_type : F_UNLCK;
}

// Waits a little, each time longer, and never as long as a process that waits for the same.
void StandBack(int attempt) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  long most = 100'000L << std::min(attempt, 7);
  timespec pause = {0, most / 2 + (now.tv_nsec ^ getpid() * 7919L) % (most / 2)};
  nanosleep(&pause, nullptr);
}

// Some 100 ms of waiting, for what takes others a moment.
constexpr int kAttempts = 12;

}  // namespace

bool IsDisputed(int descriptor, DWORD uses, DWORD denies) {
  uint32_t counterparts = Uses(denies) | Denies(uses);
  return !ForEachRun(counterparts, [descriptor](int64_t start, int64_t length) {
    return HeldThere(descriptor, start, length) == F_UNLCK;
  });
}

bool Claim(int descriptor, DWORD uses, DWORD denies) {
  auto lock = [descriptor](int64_t start, int64_t length) {
    return Lock(descriptor, F_RDLCK, start, length);
  };
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // An open that denies something says so only when it has a chance: it would be in the way of
    // others.
    if ((denies || attempt > 0) && IsDisputed(descriptor, uses, denies)) return false;
    if (ForEachRun(Uses(uses) | Denies(denies), lock) && !IsDisputed(descriptor, uses, denies)) {
      return true;
    }
    EndClaim(descriptor);
    StandBack(attempt);
  }
  return false;
}

void EndClaim(int descriptor) { Lock(descriptor, F_UNLCK, kBytes, kByteCount); }

bool ClaimMapped(int descriptor, uint64_t size) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (Lock(descriptor, F_RDLCK, kMapped, static_cast<int64_t>(size))) return true;
    StandBack(attempt);
  }
  return false;
}

void EndMappedClaim(int descriptor) { Lock(descriptor, F_UNLCK, kMapped, kBytes - kMapped); }

bool IsMappedElsewhere(int descriptor) {
  return HeldThere(descriptor, kMapped, kBytes - kMapped) == F_RDLCK;
}

DWORD Resize(int descriptor, uint64_t size) {
  constexpr uint64_t kMost = kBytes - kMapped - 1;
  const int64_t start = kMapped + static_cast<int64_t>(std::min(size, kMost));
  bool granted = false;
  for (int attempt = 0; !granted && attempt < kAttempts; ++attempt) {
    granted = Lock(descriptor, F_WRLCK, start, kBytes - start);
    if (granted || HeldThere(descriptor, start, kBytes - start) == F_RDLCK) break;
    StandBack(attempt);  // another cut
  }
  if (!granted) {
    // In nobody's way while it cuts nothing off.
    off64_t before = lseek64(descriptor, 0, SEEK_END);
    if (before < 0 || static_cast<uint64_t>(before) > size) return ERROR_USER_MAPPED_FILE;
  }
  NoWriteSignals guard;
  int number;
  do {
    number = ftruncate64(descriptor, static_cast<off64_t>(size)) == 0 ? 0 : errno;
  } while (number == EINTR);
  if (granted) Lock(descriptor, F_UNLCK, start, kBytes - start);
  return ErrorFromErrno(number);
}

}  // namespace posix_layer
