// Names of files: native form, full form, attributes, the program's own, kind of drive.
#include <fcntl.h>
#include <limits.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix/native.h"

namespace posix_layer {

bool ToNative(const char* name, NativePath* path) {
  if (!name || !*name) return Fail(ERROR_PATH_NOT_FOUND);
  size_t length = strnlen(name, MAX_PATH);
  if (length == MAX_PATH) return Fail(ERROR_FILENAME_EXCED_RANGE);
  memcpy(path->text, name, length + 1);
  path->length = static_cast<uint32_t>(length);
  char* separator = path->text;
  while ((separator = strchr(separator, '\\')) != nullptr) *separator = '/';
  return true;
}

int Look(const char* path, bool follow, struct statx* facts) {
  int flags = follow ? 0 : AT_SYMLINK_NOFOLLOW;
  int result = statx(AT_FDCWD, path, flags, STATX_BASIC_STATS | STATX_BTIME, facts);
  return result == 0 ? 0 : errno;
}

int Look(int descriptor, struct statx* facts) {
  int result = statx(descriptor, "", AT_EMPTY_PATH, STATX_BASIC_STATS, facts);
  return result == 0 ? 0 : errno;
}

namespace {

bool CopyStart(const char* path, size_t length, char* copy, size_t size) {
  if (length >= size) return false;
  memcpy(copy, path, length);
  copy[length] = 0;
  return true;
}

}  // namespace

bool NamesFile(const char* path) {
  size_t length = strlen(path);
  while (length > 1 && path[length - 1] == '/') --length;
  char file[PATH_MAX];
  struct statx facts;
  return CopyStart(path, length, file, sizeof file) && Look(file, true, &facts) == 0 &&
         !S_ISDIR(facts.stx_mode);
}

DWORD MissingError(const char* path, int number) {
  // "file/" speaks of a file as if it were a directory, "file/name" of a directory that is none.
  if (number == ENOTDIR) return NamesFile(path) ? ERROR_INVALID_NAME : ERROR_PATH_NOT_FOUND;
  if (number != ENOENT && number != ELOOP) return ErrorFromErrno(number);
  if (strpbrk(path, "*?")) return ERROR_INVALID_NAME;
  size_t length = strlen(path);
  while (length > 0 && path[length - 1] == '/') --length;
  while (length > 0 && path[length - 1] != '/') --length;
  if (length == 0) return ERROR_FILE_NOT_FOUND;
  char parent[PATH_MAX];
  if (!CopyStart(path, length, parent, sizeof parent)) return ERROR_FILENAME_EXCED_RANGE;
  struct statx facts;
  return Look(parent, true, &facts) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

DWORD AttributesFrom(const struct statx& facts) {
  DWORD attributes = S_ISDIR(facts.stx_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
  return facts.stx_mode & 0222 ? attributes : attributes | FILE_ATTRIBUTE_READONLY;
}

namespace {

// The bytes of a word that are zero, as 0x80 in each of them.
constexpr uint64_t ZeroBytes(uint64_t word) {
  constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7F;
  return ~(((word & kLow) + kLow) | word | kLow);
}

constexpr uint64_t Every(char c) { return 0x0101010101010101u * static_cast<uint8_t>(c); }

// Whether a name of `length` bytes may hold something to resolve: a '\\', a "//", or a component
// that begins with '.'.
bool MayNeedWork(const char* name, size_t length) {
  size_t i = 0;
  for (; i + 9 <= length; i += 8) {
    uint64_t bytes, behind;
    memcpy(&bytes, name + i, 8);
    memcpy(&behind, name + i + 1, 8);
    uint64_t follows = ZeroBytes(behind ^ Every('/')) | ZeroBytes(behind ^ Every('.'));
    if (ZeroBytes(bytes ^ Every('\\')) | (ZeroBytes(bytes ^ Every('/')) & follows)) return true;
  }
  for (; i < length; ++i) {
    if (name[i] == '\\') return true;
    if (name[i] == '/' && (name[i + 1] == '/' || name[i + 1] == '.')) return true;
  }
  return false;
}

bool HasDrive(const char* name) {
  char letter = static_cast<char>(name[0] | 0x20);
  return letter >= 'a' && letter <= 'z' && name[1] == ':';
}

bool HasServer(const char* name) { return name[0] == '\\' && name[1] == '\\'; }

// A full name while it is being put together: separators in front of its components only, so the
// root is empty.
struct FullName {
  char text[PATH_MAX + MAX_PATH + 2];
  size_t length;

  void Leave() {
    while (length > 0 && text[--length] != '/') {
    }
  }

  void Enter(const char* component, size_t count) {
    text[length++] = '/';
    memcpy(text + length, component, count);
    length += count;
  }
};

// Resolves `name` on top of what `full` holds.
void Resolve(const char* name, FullName* full) {
  bool open = true;  // ends in a separator
  while (*name) {
    if (IsSeparator(*name)) {
      open = true;
      ++name;
      continue;
    }
    size_t count = strcspn(name, "/\\");
    open = false;
    if (count == 2 && name[0] == '.' && name[1] == '.') {
      full->Leave();
    } else if (count != 1 || name[0] != '.') {
      full->Enter(name, count);
    }
    name += count;
  }
  if (open || full->length == 0) full->text[full->length++] = '/';
  full->text[full->length] = 0;
}

// Hands out `full`, of `length` bytes, as GetFullPathNameA does.
DWORD Deliver(const char* full, size_t length, DWORD size, char* buffer, char** filePart) {
  if (length >= size || !buffer) return static_cast<DWORD>(length) + 1;
  memcpy(buffer, full, length + 1);
  if (filePart) {
    size_t start = length;
    while (start > 0 && !IsSeparator(buffer[start - 1])) --start;
    if (start == 0) start = 2;  // only a drive stands without a separator
    *filePart = start < length ? buffer + start : nullptr;
  }
  return static_cast<DWORD>(length);
}

bool IsRemovable(const struct statx& facts) {
  // The flag is the disk's; a partition has its disk above it.
  constexpr const char* kAbove[] = {"", "../"};
  for (const char* above : kAbove) {
    char path[64];
    snprintf(path, sizeof path, "/sys/dev/block/%u:%u/%sremovable",
             static_cast<unsigned>(facts.stx_dev_major), static_cast<unsigned>(facts.stx_dev_minor),
             above);
    int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) continue;
    char flag = 0;
    bool removable = read(descriptor, &flag, 1) == 1 && flag == '1';
    close(descriptor);
    return removable;
  }
  return false;
}

}  // namespace
}  // namespace posix_layer

DWORD GetFullPathNameA(const char* name, DWORD size, char* buffer, char** filePart) {
  using namespace posix_layer;
  if (!name || !*name) return Fail(ERROR_INVALID_NAME), 0;
  size_t length = strnlen(name, MAX_PATH);
  if (length == MAX_PATH) return Fail(ERROR_FILENAME_EXCED_RANGE), 0;
  if (name[0] == '/' ? !MayNeedWork(name, length) : HasDrive(name) || HasServer(name)) {
    return Deliver(name, length, size, buffer, filePart);
  }
  FullName full;
  full.length = 0;
  if (!IsSeparator(name[0])) {
    if (!getcwd(full.text, PATH_MAX)) return Fail(MissingError(".", errno)), 0;
    full.length = strlen(full.text);
    if (full.length == 1) full.length = 0;
  }
  Resolve(name, &full);
  return Deliver(full.text, full.length, size, buffer, filePart);
}

DWORD GetFileAttributesA(const char* name) {
  using namespace posix_layer;
  NativePath path;
  if (!ToNative(name, &path)) return INVALID_FILE_ATTRIBUTES;
  struct statx facts;
  int number = Look(path.text, false, &facts);
  bool link = number == 0 && S_ISLNK(facts.stx_mode);
  if (link) number = Look(path.text, true, &facts);
  if (number != 0) {
    SetLastError(MissingError(path.text, number));
    return INVALID_FILE_ATTRIBUTES;
  }
  DWORD attributes = AttributesFrom(facts);
  if (link && S_ISDIR(facts.stx_mode)) attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
  return attributes;
}

DWORD GetModuleFileNameA(HANDLE, char* buffer, DWORD size) {
  using namespace posix_layer;
  char path[PATH_MAX + 1];
  ssize_t count = readlink("/proc/self/exe", path, PATH_MAX);
  if (count < 0) return Fail(ErrorFromErrno(errno)), 0;
  size_t length = static_cast<size_t>(count);
  path[length] = 0;
  // A program that was replaced while it runs.
  constexpr char kDeleted[] = " (deleted)";
  constexpr size_t kDeletedLength = sizeof kDeleted - 1;
  struct statx facts;
  if (length > kDeletedLength && strcmp(path + length - kDeletedLength, kDeleted) == 0 &&
      Look(path, true, &facts) != 0) {
    path[length -= kDeletedLength] = 0;
  }
  if (length < size) {
    memcpy(buffer, path, length + 1);
    return static_cast<DWORD>(length);
  }
  if (size > 0) {
    memcpy(buffer, path, size - 1);
    buffer[size - 1] = 0;
  }
  return Fail(ERROR_INSUFFICIENT_BUFFER), size;
}

UINT GetDriveTypeA(const char* root) {
  using namespace posix_layer;
  DWORD before = GetLastError();
  NativePath path;
  struct statx facts;
  bool found = ToNative(root ? root : ".", &path) && Look(path.text, true, &facts) == 0 &&
               S_ISDIR(facts.stx_mode);
  SetLastError(before);
  if (!found) return DRIVE_NO_ROOT_DIR;
  struct statfs64 system;
  if (statfs64(path.text, &system) != 0) return DRIVE_UNKNOWN;
  switch (static_cast<uint32_t>(system.f_type)) {
    case 0x01021994:  // tmpfs
    case 0x858458F6:  // ramfs
      return DRIVE_RAMDISK;
    case 0x6969:      // nfs
    case 0x517B:      // smb
    case 0xFE534D42:  // smb2
    case 0xFF534D42:  // cifs
    case 0x5346414F:  // afs
    case 0x73757245:  // coda
    case 0x00C36400:  // ceph
    case 0x01021997:  // 9p
      return DRIVE_REMOTE;
    case 0x9660:      // iso9660
    case 0x15013346:  // udf
      return DRIVE_CDROM;
    default:
      return IsRemovable(facts) ? DRIVE_REMOVABLE : DRIVE_FIXED;
  }
}
