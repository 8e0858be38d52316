// The names of one directory, read whole and sorted.
//
// Callers search one directory several times in a row: with one pattern after the other, and then
// for its subdirectories. So the directory read last is kept, and a later search of it costs one
// look at its times. It serves again only while that proves that nothing has changed: the same
// file, the same stamps, and stamps that were old enough when it was read that a later change must
// have set others. That holds for the file systems of this machine alone, whose stamps come from
// the clock that they are compared with.
#include "platform/posix/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "platform/posix/native.h"

namespace posix_layer {
namespace {

// How long before the reading the last change must lie. Stamps are as fine as the clock tick (at
// most 10 ms), or whole seconds where they have no fraction.
constexpr int64_t kSettled = 100'000'000;
constexpr int64_t kSettledSeconds = 2'100'000'000;

constexpr uint32_t kFirstBatch = 64 * 1024;

// What getdents64 writes.
struct RawEntry {
  uint64_t inode;
  int64_t next;
  uint16_t size;
  uint8_t type;
  char name[1];
};
constexpr uint32_t kRawName = offsetof(RawEntry, name);

// Proof of identity and of no change.
struct Stamp {
  uint64_t device, inode;
  int64_t modified, changed;  // nanoseconds
  uid_t user;                 // for whom it was readable

  bool operator==(const Stamp&) const = default;
};

struct KeptDirectory {
  Directory* directory;  // holds a reference; null when nothing is kept
  Stamp stamp;
  char path[MAX_PATH];  // a hint where it was read, so that the others need no look
};
KeptDirectory kept;

// What the reader works in; a directory that needs more gets a block of its own.
alignas(RawEntry) char firstBatch[kFirstBatch];

struct RawBytes {
  char* data = firstBatch;
  uint32_t used = 0;
  uint32_t capacity = kFirstBatch;

  ~RawBytes() {
    if (data != firstBatch) free(data);
  }

  bool Grow() {
    if (capacity > 0x3FFFFFFF) return false;
    bool first = data == firstBatch;
    char* block = static_cast<char*>(realloc(first ? nullptr : data, size_t{capacity} * 2));
    if (!block) return false;
    if (first) memcpy(block, firstBatch, used);
    data = block;
    capacity *= 2;
    return true;
  }
};

int64_t Nanoseconds(const statx_timestamp& time) {
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// Costs a system call of its own for the user.
Stamp StampOf(const struct statx& facts) {
  return {uint64_t{facts.stx_dev_major} << 32 | facts.stx_dev_minor, facts.stx_ino,
          Nanoseconds(facts.stx_mtime), Nanoseconds(facts.stx_ctime), geteuid()};
}

// Whether a change after now is bound to leave another stamp than this.
bool IsSettled(const Stamp& stamp) {
  timespec now;
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  int64_t moment = int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  bool coarse = stamp.modified % 1'000'000'000 == 0 || stamp.changed % 1'000'000'000 == 0;
  return std::max(stamp.modified, stamp.changed) + (coarse ? kSettledSeconds : kSettled) < moment;
}

bool IsLocalFileSystem(uint64_t magic) {
  constexpr uint64_t kLocal[] = {
      0xEF53,      // ext2, ext3, ext4
      0x58465342,  // xfs
      0x9123683E,  // btrfs
      0x01021994,  // tmpfs
      0x858458F6,  // ramfs
      0x794C7630,  // overlayfs
      0xF2F52010,  // f2fs
      0x2FC12FC1,  // zfs
      0xCA451A4E,  // bcachefs
  };
  return std::find(std::begin(kLocal), std::end(kLocal), magic) != std::end(kLocal);
}

// Whether the stamps of an open directory can be trusted. Asked once a second for each device at
// most: a device number can come to mean another file system.
bool HasTrueStamps(int descriptor, uint64_t device) {
  static uint64_t lastDevice;
  static time_t asked;
  static bool answer;
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  if (device == lastDevice && now.tv_sec == asked) return answer;
  struct statfs64 facts;
  answer =
      fstatfs64(descriptor, &facts) == 0 && IsLocalFileSystem(static_cast<uint32_t>(facts.f_type));
  lastDevice = device;
  asked = now.tv_sec;
  return answer;
}

// Returns 0 or the errno; ENOMEM when the names need more memory than there is.
int ReadAll(int descriptor, RawBytes* raw) {
  for (;;) {
    if (raw->capacity - raw->used < kFirstBatch / 4 && !raw->Grow()) return ENOMEM;
    long count = syscall(SYS_getdents64, descriptor, raw->data + raw->used,
                         static_cast<unsigned>(raw->capacity - raw->used));
    if (count == 0) return 0;
    if (count < 0) return errno;
    raw->used += static_cast<uint32_t>(count);
  }
}

bool IsSpoken(const char* name, size_t length) {
  if (name[0] == '.' && (length == 1 || (length == 2 && name[1] == '.'))) return false;
  return length <= 255 && !memchr(name, '\\', length);
}

uint64_t KeyOf(const char* name, uint32_t length, UpperTable upper) {
  uint64_t key = 0;
  uint32_t count = std::min(length, 8u);
  for (uint32_t i = 0; i < count; ++i) key = key << 8 | Upper(upper, name[i]);
  return count ? key << (8 * (8 - count)) : 0;
}

// The order of two names that are equal over their first `skip` upper-case bytes.
bool ComesFirst(const char* a, uint32_t aLength, const char* b, uint32_t bLength, uint32_t skip,
                UpperTable upper) {
  uint32_t common = std::min(aLength, bLength);
  for (uint32_t i = skip; i < common; ++i) {
    uint8_t left = Upper(upper, a[i]), right = Upper(upper, b[i]);
    if (left != right) return left < right;
  }
  if (aLength != bLength) return aLength < bLength;
  return memcmp(a, b, common) < 0;
}

// Sorts by the eight bytes behind what all names have in common, and only names that are equal
// there byte by byte.
void Sort(DirectoryName* names, uint32_t count, const char* bytes, UpperTable upper) {
  if (count < 2) return;
  const char* first = bytes + names[0].offset;
  uint32_t common = names[0].length;
  for (uint32_t i = 1; i < count; ++i) {
    const char* name = bytes + names[i].offset;
    common = std::min<uint32_t>(common, names[i].length);
    uint32_t same = 0;
    while (same < common && Upper(upper, first[same]) == Upper(upper, name[same])) ++same;
    common = same;
  }
  for (uint32_t i = 0; i < count; ++i) {
    names[i].key = KeyOf(bytes + names[i].offset + common, names[i].length - common, upper);
  }
  std::sort(names, names + count, [=](const DirectoryName& a, const DirectoryName& b) {
    if (a.key != b.key) return a.key < b.key;
    return ComesFirst(bytes + a.offset, a.length, bytes + b.offset, b.length, common, upper);
  });
}

// The directory that raw bytes describe, with one reference, in one block: the record, the names,
// the bytes. Null when there is no memory.
Directory* Arrange(const RawBytes& raw, UpperTable upper) {
  uint32_t most = 0;
  for (uint32_t at = 0; at < raw.used; ++most) {
    at += reinterpret_cast<const RawEntry*>(raw.data + at)->size;
  }
  size_t head = sizeof(Directory) + size_t{most} * sizeof(DirectoryName);
  char* block = static_cast<char*>(malloc(head + raw.used));
  if (!block) return nullptr;
  DirectoryName* names = reinterpret_cast<DirectoryName*>(block + sizeof(Directory));
  memcpy(block + head, raw.data, raw.used);
  uint32_t count = 0;
  for (uint32_t at = 0; at < raw.used;) {
    const RawEntry* entry = reinterpret_cast<const RawEntry*>(raw.data + at);
    size_t length = strlen(entry->name);
    if (IsSpoken(entry->name, length)) {
      names[count++] = {0, at + kRawName, static_cast<uint8_t>(length), entry->type};
    }
    at += entry->size;
  }
  Sort(names, count, block + head, upper);
  Directory* directory = reinterpret_cast<Directory*>(block);
  *directory = {1, count, names, block + head, upper};
  return directory;
}

// Why a path could not be opened as a directory.
DWORD OpenError(const char* path, int number) {
  if (number == ENOTDIR) return NamesFile(path) ? ERROR_DIRECTORY : ERROR_PATH_NOT_FOUND;
  if (number != ENOENT && number != ELOOP) return ErrorFromErrno(number);
  return strpbrk(path, "*?") ? ERROR_INVALID_NAME : ERROR_PATH_NOT_FOUND;
}

Directory* KeptAt(const char* path, UpperTable upper) {
  if (!kept.directory || kept.directory->upper != upper || strcmp(kept.path, path) != 0) {
    return nullptr;
  }
  struct statx facts;
  if (Look(path, true, &facts) != 0 || !(StampOf(facts) == kept.stamp)) return nullptr;
  ++kept.directory->references;
  return kept.directory;
}

void Keep(Directory* directory, const char* path, const Stamp& stamp) {
  ++directory->references;
  kept.directory = directory;
  kept.stamp = stamp;
  memcpy(kept.path, path, strlen(path) + 1);
}

}  // namespace

Directory* AcquireDirectory(const char* path) {
  UpperTable upper = CurrentUpper();
  if (Directory* directory = KeptAt(path, upper)) return directory;
  int descriptor;
  do {
    descriptor = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    SetLastError(OpenError(path, errno));
    return nullptr;
  }
  ForgetDirectory();
  // The stamp is taken before the names are read: a change in between shows as another stamp later.
  struct statx facts;
  Stamp stamp = {};
  if (Look(descriptor, &facts) == 0) stamp = StampOf(facts);
  bool lasting = stamp.inode != 0 && IsSettled(stamp) && HasTrueStamps(descriptor, stamp.device);
  RawBytes raw;
  int number = ReadAll(descriptor, &raw);
  close(descriptor);
  if (number != 0) {
    // A directory that was removed while it was being read has no names any more.
    SetLastError(number == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(number));
    return nullptr;
  }
  Directory* directory = Arrange(raw, upper);
  if (!directory) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  if (lasting) Keep(directory, path, stamp);
  return directory;
}

void ReleaseDirectory(Directory* directory) {
  if (directory && --directory->references == 0) free(directory);
}

void ForgetDirectory() {
  ReleaseDirectory(kept.directory);
  kept.directory = nullptr;
}

}  // namespace posix_layer
