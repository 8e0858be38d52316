// The standard streams as handles, opened files, and writing.
#include "platform/posix/file.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio_ext.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/posix/fork.h"
#include "platform/posix/handle.h"
#include "platform/posix/native.h"
#include "platform/posix/sharing.h"
#include "platform/posix/unload.h"

namespace posix_layer {
namespace {

struct Stream {
  int descriptor;
  HANDLE handle;
};
Stream streams[] = {{STDIN_FILENO, nullptr}, {STDOUT_FILENO, nullptr}, {STDERR_FILENO, nullptr}};

// They belong to the whole process: CloseHandle refuses them.
constexpr HandleKind kStream = {nullptr, true};

// The files whose handle is open, by their inode.
constexpr uint32_t kBuckets = 64;
File* openFiles[kBuckets];

File** BucketOf(const FileIdentity& identity) { return &openFiles[identity.inode % kBuckets]; }

void CloseFile(void* object) {
  File* file = static_cast<File*>(object);
  File** link = BucketOf(file->identity);
  while (*link != file) link = &(*link)->next;
  *link = file->next;
  // What goes on with the description may outlive the handle: a mapping, a view, or a child. A
  // child itself leaves the description of its parent alone.
  bool lasts = hasForked || file->references > 1 || IsMappedBeyond(file->identity, 0);
  if (lasts && file->uses && file->origin == generation) EndClaim(file->descriptor);
  ReleaseFile(file);
}

constexpr HandleKind kFile = {CloseFile};

// What an open asks of a file. `uses` and `share` are in FILE_SHARE_READ and FILE_SHARE_WRITE.
struct Request {
  DWORD uses, share;
  DWORD disposition;
  int flags;      // of open: O_RDONLY, O_WRONLY or O_RDWR, and O_APPEND
  bool lasts;     // others see it until it is closed; for regular files alone
  unsigned mode;  // permissions of a new file
};

DWORD Denied(const Request& request) {
  return (FILE_SHARE_READ | FILE_SHARE_WRITE) & ~request.share;
}

bool Truncates(const Request& request) {
  return request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
}

// Whether no open of the file stands against another one. Opens that neither read nor write are in
// nobody's way.
bool MayShare(const FileIdentity& identity, const Request& request) {
  if (request.uses == 0) return true;
  for (const File* other = *BucketOf(identity); other; other = other->next) {
    if (other->identity == identity && other->uses &&
        ((request.uses & ~other->share) || (other->uses & ~request.share))) {
      return false;
    }
  }
  return true;
}

// Opens what is there, and says so in `found`, or makes a new file, as the disposition has it.
// Returns a descriptor, or -1 with errno set.
int OpenOrMake(const char* path, const Request& request, bool* found) {
  constexpr int kAttempts = 16;  // others may make and remove the file meanwhile
  // Something else than a file is to be refused and not to be waited for.
  int flags = request.flags | O_CLOEXEC | O_NOCTTY | O_LARGEFILE;
  if (request.lasts) flags |= O_NONBLOCK;
  for (int i = 0; i < kAttempts; ++i) {
    *found = request.disposition != CREATE_NEW;
    if (*found) {
      int descriptor = open(path, flags);
      if (descriptor < 0 && errno == EACCES && request.uses == FILE_SHARE_WRITE && request.lasts) {
        descriptor = open(path, (flags & ~O_ACCMODE) | O_WRONLY);  // nobody may read it
      }
      if (descriptor >= 0 || errno != ENOENT) return descriptor;
      if (request.disposition == OPEN_EXISTING || request.disposition == TRUNCATE_EXISTING) {
        return -1;
      }
    }
    *found = false;
    int descriptor = open(path, flags | O_CREAT | O_EXCL, request.mode);
    if (descriptor >= 0 || errno != EEXIST || request.disposition == CREATE_NEW) return descriptor;
  }
  return errno = ENOENT, -1;  // a link that leads nowhere
}

// The same with a descriptor that is never one of the standard streams'.
int OpenAbove(const char* path, const Request& request, bool* found) {
  int descriptor;
  do {
    descriptor = OpenOrMake(path, request, found);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  int number = errno;
  close(descriptor);
  return errno = number, moved;
}

// Why an open of `path` failed with errno `number`.
DWORD OpenError(const char* path, int number) {
  switch (number) {
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case EAGAIN:  // another process holds a lease
      return ERROR_SHARING_VIOLATION;
    case ENXIO:
    case ENODEV:  // a pipe that nobody reads, a socket, a device without a driver
      return ERROR_ACCESS_DENIED;
    default:
      return MissingError(path, number);
  }
}

// Whether no other process has an open that stands against this one. An open that lasts stands
// against theirs from now on.
bool MayShareWithOthers(int descriptor, const Request& request) {
  if (request.uses == 0) return true;
  return request.lasts ? Claim(descriptor, request.uses, Denied(request))
                       : !IsDisputed(descriptor, request.uses, Denied(request));
}

// Whether an opened file may be used as asked, and empties it where the disposition says so.
// ERROR_SUCCESS or the error.
DWORD Admit(int descriptor, const struct statx& facts, const Request& request, bool found,
            bool shared) {
  bool regular = S_ISREG(facts.stx_mode);
  if (S_ISDIR(facts.stx_mode) || (request.lasts && !regular)) return ERROR_ACCESS_DENIED;
  if (!regular) return ERROR_SUCCESS;
  // Another one may have opened what was made here a moment ago.
  if (!found) return shared ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION;
  // A file that nobody may write is closed to those as well whom the system would let pass.
  bool writes = request.uses & FILE_SHARE_WRITE || Truncates(request);
  if (writes && AttributesFrom(facts) & FILE_ATTRIBUTE_READONLY) return ERROR_ACCESS_DENIED;
  FileIdentity identity = IdentityOf(facts);
  if (!shared || !MayShare(identity, request)) return ERROR_SHARING_VIOLATION;
  if (!Truncates(request)) return ERROR_SUCCESS;
  if (IsMappedBeyond(identity, 0)) return ERROR_USER_MAPPED_FILE;
  SettleMapped(identity);
  return Resize(descriptor, 0);
}

// Opens `name` as asked. Returns a descriptor, or -1 with the last error set.
int Open(const char* name, const Request& request, struct statx* facts, bool* found) {
  NativePath path;
  if (!ToNative(name, &path)) return -1;
  for (int attempts = 16;; --attempts) {
    int descriptor = OpenAbove(path.text, request, found);
    if (descriptor < 0) return Fail(OpenError(path.text, errno)), -1;
    // Nobody deletes a file any more that is shared; one that is gone by then was deleted before.
    bool shared = MayShareWithOthers(descriptor, request);
    int number = Look(descriptor, facts);
    bool gone = number == 0 && facts->stx_nlink == 0 && attempts > 1;
    DWORD error = ERROR_SUCCESS;
    if (number != 0) {
      error = ErrorFromErrno(number);
    } else if (!gone) {
      error = Admit(descriptor, *facts, request, *found, shared);
      if (error == ERROR_SUCCESS) return descriptor;
    }
    close(descriptor);
    if (gone) continue;
    // An open that fails makes no file, unless somebody uses it by now.
    if (!*found && error != ERROR_SHARING_VIOLATION) unlink(path.text);
    return Fail(error), -1;
  }
}

// What only writes and lasts is opened for reading as well: claims need that.
int OpenFlags(const Request& request) {
  if (request.uses == FILE_SHARE_WRITE && !request.lasts) return O_WRONLY;
  bool writes = request.uses & FILE_SHARE_WRITE || (request.lasts && Truncates(request));
  return writes ? O_RDWR : O_RDONLY;
}

// The streams of OpenStream that are open.
struct OpenedStream {
  FILE* stream;
  uint32_t origin;  // the generation that opened it
  OpenedStream* next;
};
OpenedStream* openedStreams = nullptr;

// Where the note of a stream hangs, or the end of the list.
OpenedStream** NoteOf(FILE* stream) {
  OpenedStream** link = &openedStreams;
  while (*link && (*link)->stream != stream) link = &(*link)->next;
  return link;
}

bool IsInheritedStream(FILE* stream) {
  const OpenedStream* note = *NoteOf(stream);
  return note && note->origin != generation;
}

// Notes who opened a stream. One that was closed behind the layer's back may have left its note.
bool NoteStream(FILE* stream) {
  OpenedStream** link = NoteOf(stream);
  if (!*link) {
    *link = static_cast<OpenedStream*>(calloc(1, sizeof(OpenedStream)));
    if (!*link) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    (*link)->stream = stream;
  }
  (*link)->origin = generation;
  return true;
}

constexpr int64_t kSecondsTo1970 = 11'644'473'600;
constexpr int64_t kTicks = 10'000'000;  // of FILETIME in a second

// Seconds and nanoseconds.
void ToTime(const FILETIME& time, int64_t* result) {
  auto ticks = static_cast<int64_t>(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  result[0] = ticks / kTicks - kSecondsTo1970;
  result[1] = ticks % kTicks * 100;
}

DWORD Low(uint64_t value) { return static_cast<DWORD>(value); }
DWORD High(uint64_t value) { return static_cast<DWORD>(value >> 32); }

}  // namespace

int Descriptor(HANDLE file) {
  auto* stream = static_cast<Stream*>(HandleObject(file, kStream));
  return stream ? stream->descriptor : -1;
}

NoWriteSignals::NoWriteSignals() {
  sigset_t both, pending;
  sigemptyset(&both);
  sigemptyset(&raised_);
  sigpending(&pending);
  constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};
  for (int signal : kSignals) {
    sigaddset(&both, signal);
    if (!sigismember(&pending, signal)) sigaddset(&raised_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &both, &before_);
}

NoWriteSignals::~NoWriteSignals() {
  const timespec kNow = {};
  while (sigtimedwait(&raised_, nullptr, &kNow) > 0) {  // takes those that were raised here
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int WriteAll(int descriptor, const void* data, size_t size, size_t* written) {
  NoWriteSignals guard;
  auto* at = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t count = write(descriptor, at, size);
    if (count < 0 && errno == EAGAIN) {  // made so by another process that has the same file
      pollfd event = {descriptor, POLLOUT, 0};
      poll(&event, 1, -1);
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

FileIdentity IdentityOf(const struct statx& facts) {
  return {uint64_t{facts.stx_dev_major} << 32 | facts.stx_dev_minor, facts.stx_ino};
}

File* FileOf(HANDLE handle) { return static_cast<File*>(HandleObject(handle, kFile)); }

void ReleaseFile(File* file) {
  if (--file->references > 0) return;
  close(file->descriptor);
  free(file);
}

bool IsOpen(const FileIdentity& identity) {
  for (const File* file = *BucketOf(identity); file; file = file->next) {
    if (file->identity == identity) return true;
  }
  return false;
}

void EndFiles() {
  for (Stream& stream : streams) stream.handle = nullptr;
  while (OpenedStream* note = openedStreams) {
    openedStreams = note->next;
    free(note);
  }
}

void SettleMapped(const FileIdentity& identity) {
  if (hasForked || IsMappedBeyond(identity, 0)) return;  // a child may have it mapped
  for (File* file = *BucketOf(identity); file; file = file->next) {
    if (!(file->identity == identity) || !file->claimsMapped || file->origin != generation)
      continue;
    EndMappedClaim(file->descriptor);
    file->claimsMapped = false;
  }
}

void TimesOf(const struct statx& facts, FILETIME* creation, FILETIME* access, FILETIME* write) {
  auto convert = [](const statx_timestamp& time) -> FILETIME {
    uint64_t ticks =
        static_cast<uint64_t>((time.tv_sec + kSecondsTo1970) * kTicks + time.tv_nsec / 100);
    return {Low(ticks), High(ticks)};
  };
  bool born = facts.stx_mask & STATX_BTIME;
  if (creation) *creation = convert(born ? facts.stx_btime : facts.stx_mtime);
  if (access) *access = convert(facts.stx_atime);
  if (write) *write = convert(facts.stx_mtime);
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

HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*,
                   DWORD disposition, DWORD attributes, HANDLE) {
  using namespace posix_layer;
  DWORD uses = (access & GENERIC_READ ? FILE_SHARE_READ : 0) |
               (access & GENERIC_WRITE ? FILE_SHARE_WRITE : 0);
  bool known = disposition >= CREATE_NEW && disposition <= TRUNCATE_EXISTING;
  if (!known || (disposition == TRUNCATE_EXISTING && !(access & GENERIC_WRITE))) {
    return Fail(ERROR_INVALID_PARAMETER), INVALID_HANDLE_VALUE;
  }
  const unsigned mode = attributes & FILE_ATTRIBUTE_TEMPORARY ? 0600 : 0666;
  Request request = {uses, share, disposition, 0, true, mode};
  request.flags = OpenFlags(request);
  // Everything that can fail comes before a file is made or emptied.
  if (!WatchForks() || !ReserveHandles(1)) return INVALID_HANDLE_VALUE;
  File* file = static_cast<File*>(malloc(sizeof(File)));
  if (!file) return Fail(ERROR_NOT_ENOUGH_MEMORY), INVALID_HANDLE_VALUE;
  struct statx facts;
  bool found;
  int descriptor = Open(name, request, &facts, &found);
  if (descriptor < 0) {
    free(file);
    return INVALID_HANDLE_VALUE;
  }
  File** bucket = BucketOf(IdentityOf(facts));
  *file = {IdentityOf(facts), descriptor, 1, access, uses, share, 0, *bucket, generation, false};
  *bucket = file;
  bool always = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
  SetLastError(found && always ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return OpenHandle(kFile, file);
}

DWORD GetFileSize(HANDLE handle, DWORD* high) {
  using namespace posix_layer;
  constexpr DWORD kFailed = 0xFFFFFFFF;
  File* file = FileOf(handle);
  if (!file) return kFailed;
  off64_t size = lseek64(file->descriptor, 0, SEEK_END);
  if (size < 0) return Fail(ErrorFromErrno(errno)), kFailed;
  if (high) *high = High(static_cast<uint64_t>(size));
  return Low(static_cast<uint64_t>(size));
}

DWORD SetFilePointer(HANDLE handle, LONG distance, LONG* high, DWORD method) {
  using namespace posix_layer;
  File* file = FileOf(handle);
  if (!file) return INVALID_SET_FILE_POINTER;
  if (method != FILE_BEGIN) return Fail(ERROR_INVALID_PARAMETER), INVALID_SET_FILE_POINTER;
  int64_t position = distance;
  if (high) position = static_cast<int64_t>(*high) << 32 | static_cast<DWORD>(distance);
  if (position < 0) return Fail(ERROR_NEGATIVE_SEEK), INVALID_SET_FILE_POINTER;
  file->position = static_cast<uint64_t>(position);
  return static_cast<DWORD>(distance);
}

BOOL SetEndOfFile(HANDLE handle) {
  using namespace posix_layer;
  File* file = FileOf(handle);
  if (!file) return FALSE;
  if (!(file->access & GENERIC_WRITE)) return Fail(ERROR_ACCESS_DENIED);
  if (IsMappedBeyond(file->identity, file->position)) {
    // In nobody's way while it cuts nothing off.
    off64_t size = lseek64(file->descriptor, 0, SEEK_END);
    if (size < 0 || static_cast<uint64_t>(size) > file->position) {
      return Fail(ERROR_USER_MAPPED_FILE);
    }
  }
  SettleMapped(file->identity);
  DWORD error = Resize(file->descriptor, file->position);
  return error == ERROR_SUCCESS || Fail(error);
}

BOOL GetFileTime(HANDLE handle, FILETIME* creation, FILETIME* access, FILETIME* write) {
  using namespace posix_layer;
  File* file = FileOf(handle);
  if (!file) return FALSE;
  struct statx facts;
  if (statx(file->descriptor, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &facts) != 0) {
    return Fail(ErrorFromErrno(errno));
  }
  TimesOf(facts, creation, access, write);
  return TRUE;
}

BOOL SetFileTime(HANDLE handle, const FILETIME*, const FILETIME* access, const FILETIME* write) {
  using namespace posix_layer;
#ifdef SYS_utimensat_time64
  constexpr long kSetTimes = SYS_utimensat_time64;
#else
  constexpr long kSetTimes = SYS_utimensat;
#endif
  File* file = FileOf(handle);
  if (!file) return FALSE;
  int64_t times[4];
  ToTime(*access, times);
  ToTime(*write, times + 2);
  return syscall(kSetTimes, file->descriptor, nullptr, times, 0) == 0 ||
         Fail(ErrorFromErrno(errno));
}

BOOL ReadFile(HANDLE handle, void* data, DWORD size, DWORD* count, void* overlapped) {
  using namespace posix_layer;
  *count = 0;
  if (overlapped) return Fail(ERROR_INVALID_PARAMETER);
  File* file = FileOf(handle);
  if (!file) return FALSE;
  if (!(file->access & GENERIC_READ)) return Fail(ERROR_ACCESS_DENIED);
  ssize_t result;
  do {
    result = pread64(file->descriptor, data, size, static_cast<off64_t>(file->position));
  } while (result < 0 && errno == EINTR);
  if (result < 0) return Fail(ErrorFromErrno(errno));
  *count = static_cast<DWORD>(result);
  file->position += *count;
  return TRUE;
}

BOOL WriteFile(HANDLE handle, const void* data, DWORD size, DWORD* written, void* overlapped) {
  using namespace posix_layer;
  if (written) *written = 0;
  if (overlapped) return Fail(ERROR_INVALID_PARAMETER);
  DWORD before = GetLastError();
  int descriptor = Descriptor(handle);
  File* file = nullptr;
  if (descriptor < 0) {
    file = FileOf(handle);
    if (!file) return FALSE;
    SetLastError(before);
    if (!(file->access & GENERIC_WRITE)) return Fail(ERROR_ACCESS_DENIED);
    descriptor = file->descriptor;
    if (lseek64(descriptor, static_cast<off64_t>(file->position), SEEK_SET) < 0) {
      return Fail(ErrorFromErrno(errno));
    }
  }
  size_t count = 0;
  int number = WriteAll(descriptor, data, size, &count);
  if (file) file->position += count;
  if (written) *written = static_cast<DWORD>(count);
  if (number == 0) return TRUE;
  // Such a descriptor is open: GetStdHandle saw to it. It is not for writing.
  return Fail(number == EBADF ? ERROR_ACCESS_DENIED : ErrorFromErrno(number));
}

FILE* OpenStream(const char* name, const char* mode) {
  using namespace posix_layer;
  bool both = strchr(mode, '+') != nullptr;
  DWORD uses = both             ? FILE_SHARE_READ | FILE_SHARE_WRITE
               : mode[0] == 'r' ? FILE_SHARE_READ
                                : FILE_SHARE_WRITE;
  DWORD disposition = mode[0] == 'r'      ? OPEN_EXISTING
                      : mode[0] != 'w'    ? OPEN_ALWAYS
                      : strchr(mode, 'x') ? CREATE_NEW
                                          : CREATE_ALWAYS;
  // Streams share everything and are not counted among the opens: nobody tells of their end.
  Request request = {uses, FILE_SHARE_READ | FILE_SHARE_WRITE, disposition, 0, false, 0666};
  request.flags = OpenFlags(request) | (mode[0] == 'a' ? O_APPEND : 0);
  if (!WatchForks()) return nullptr;
  struct statx facts;
  bool found;
  int descriptor = Open(name, request, &facts, &found);
  if (descriptor < 0) return nullptr;
  FILE* stream = fdopen(descriptor, mode);
  if (!stream) {
    int number = errno;
    close(descriptor);
    return Fail(ErrorFromErrno(number)), nullptr;
  }
  if (NoteStream(stream)) return stream;
  fclose(stream);
  return nullptr;
}

void CloseStream(FILE* stream) {
  using namespace posix_layer;
  OpenedStream** link = NoteOf(stream);
  bool inherited = IsInheritedStream(stream);
  if (OpenedStream* note = *link) {
    *link = note->next;
    free(note);
  }
  if (inherited) {
    // Neither are bytes written that the parent has still to write, nor is its position moved.
    __fpurge(stream);
    int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere >= 0) {
      dup2(nowhere, fileno(stream));
      close(nowhere);
    }
  }
  fclose(stream);
}

bool IsInherited(HANDLE file, FILE* stream) {
  using namespace posix_layer;
  DWORD before = GetLastError();
  const File* opened = file ? FileOf(file) : nullptr;
  SetLastError(before);
  return (opened && opened->origin != generation) || (stream && IsInheritedStream(stream));
}
