// The search of a directory.
#include <dirent.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/posix/directory.h"
#include "platform/posix/file.h"
#include "platform/posix/handle.h"
#include "platform/posix/native.h"

namespace posix_layer {
namespace {

enum class Detail {
  kAll,          // attributes, sizes and times: a look at every entry that is handed out
  kNames,        // the directory bit alone
  kDirectories,  // the same, and no entry that is surely none
};

struct Search {
  Directory* directory;  // a reference; null once the search has come to its end
  Detail detail;
  uint32_t position;  // the next name; the first two are "." and ".."
  UpperTable upper;
  uint32_t pathLength;
  const char* path;  // the directory with its separator, in the same block
  NamePattern pattern;
};

void Describe(const struct statx& facts, WIN32_FIND_DATAA* data) {
  TimesOf(facts, &data->ftCreationTime, &data->ftLastAccessTime, &data->ftLastWriteTime);
  if (!S_ISDIR(facts.stx_mode)) {
    data->nFileSizeHigh = static_cast<DWORD>(facts.stx_size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(facts.stx_size);
  }
}

// Fills the facts of the entry `name`. False when it is not to be listed: it has gone since the
// directory was read, or it is a link that leads nowhere.
bool Inspect(const Search& search, const char* name, uint32_t length, uint8_t type,
             WIN32_FIND_DATAA* data) {
  bool link = type == DT_LNK;
  if (search.detail != Detail::kAll && !link && type != DT_UNKNOWN) {
    data->dwFileAttributes = type == DT_DIR ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    return true;
  }
  char path[PATH_MAX + 2 * MAX_PATH];
  memcpy(path, search.path, search.pathLength);
  memcpy(path + search.pathLength, name, length + 1);
  struct statx facts;
  int number = Look(path, link, &facts);
  if (number == 0 && S_ISLNK(facts.stx_mode)) {
    link = true;
    number = Look(path, true, &facts);
  }
  if (number != 0) {
    if (number == ENOENT || number == ENOTDIR || link || type == DT_UNKNOWN) return false;
    data->dwFileAttributes = type == DT_DIR ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    return true;
  }
  data->dwFileAttributes = AttributesFrom(facts);
  if (link && S_ISDIR(facts.stx_mode)) {
    data->dwFileAttributes ^= FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  }
  if (search.detail == Detail::kAll) {
    Describe(facts, data);
  } else {
    data->dwFileAttributes &= ~FILE_ATTRIBUTE_READONLY;
  }
  return true;
}

// Hands out the next entry. False at the end.
bool Advance(Search* search, WIN32_FIND_DATAA* data) {
  if (!search->directory) return false;
  const Directory& directory = *search->directory;
  while (search->position < directory.count + 2) {
    uint32_t position = search->position++;
    const char* name = position == 0 ? "." : "..";
    uint32_t length = position + 1;
    uint8_t type = DT_DIR;
    if (position >= 2) {
      const DirectoryName& entry = directory.names[position - 2];
      type = entry.type;
      if (search->detail == Detail::kDirectories && type != DT_DIR && type != DT_UNKNOWN) continue;
      name = directory.bytes + entry.offset;
      length = entry.length;
    }
    if (!MatchName(search->pattern, name, length, search->upper)) continue;
    memset(data, 0, offsetof(WIN32_FIND_DATAA, cFileName));
    if (!Inspect(*search, name, length, type, data)) continue;
    memcpy(data->cFileName, name, length + 1);
    data->cAlternateFileName[0] = 0;
    return true;
  }
  ReleaseDirectory(search->directory);
  search->directory = nullptr;
  return false;
}

void EndSearch(void* object) {
  Search* search = static_cast<Search*>(object);
  ReleaseDirectory(search->directory);
  free(search);
}

constexpr HandleKind kSearchKind = {EndSearch, true};

// A search of the directory `path` (native, `length` bytes with its last separator, or none for the
// current directory) that has not begun; null with the last error set. A relative directory is
// remembered by its full name, since the caller may go elsewhere meanwhile.
Search* NewSearch(const char* path, uint32_t length, Detail detail) {
  char folder[PATH_MAX];
  size_t folderLength = 0;
  if (path[0] != '/' && getcwd(folder, sizeof folder - 1)) {
    folderLength = strlen(folder);
    if (folder[folderLength - 1] != '/') folder[folderLength++] = '/';
  }
  size_t total = folderLength + length;
  Search* search = static_cast<Search*>(malloc(sizeof(Search) + total + 1));
  if (!search) return Fail(ERROR_NOT_ENOUGH_MEMORY), nullptr;
  char* full = reinterpret_cast<char*>(search + 1);
  memcpy(full, folder, folderLength);
  memcpy(full + folderLength, path, length);
  full[total] = 0;
  search->path = full;
  search->pathLength = static_cast<uint32_t>(total);
  search->detail = detail;
  search->position = 0;
  search->upper = CurrentUpper();
  search->directory = AcquireDirectory(length ? full + folderLength : ".");
  if (search->directory) return search;
  free(search);
  return nullptr;
}

HANDLE Begin(const char* pattern, WIN32_FIND_DATAA* data, Detail detail) {
  NativePath path;
  if (!ToNative(pattern, &path)) return INVALID_HANDLE_VALUE;
  const char* separator = static_cast<const char*>(memrchr(path.text, '/', path.length));
  uint32_t directory = separator ? static_cast<uint32_t>(separator - path.text) + 1 : 0;
  if (directory == path.length) return Fail(ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
  if (!ReserveHandles(1)) return INVALID_HANDLE_VALUE;
  Search* search = NewSearch(path.text, directory, detail);
  if (!search) return INVALID_HANDLE_VALUE;
  CompilePattern(path.text + directory, path.length - directory, search->upper, &search->pattern);
  if (Advance(search, data)) return OpenHandle(kSearchKind, search);
  EndSearch(search);
  return Fail(ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
}

}  // namespace
}  // namespace posix_layer

HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data) {
  return posix_layer::Begin(pattern, data, posix_layer::Detail::kAll);
}

HANDLE FindFirstName(const char* pattern, WIN32_FIND_DATAA* data, bool directories) {
  using posix_layer::Detail;
  return posix_layer::Begin(pattern, data, directories ? Detail::kDirectories : Detail::kNames);
}

BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) {
  using namespace posix_layer;
  Search* found = static_cast<Search*>(HandleObject(search, kSearchKind));
  if (!found) return FALSE;
  return Advance(found, data) ? TRUE : Fail(ERROR_NO_MORE_FILES);
}

BOOL FindClose(HANDLE search) {
  using namespace posix_layer;
  Search* found = static_cast<Search*>(TakeHandle(search, kSearchKind));
  if (!found) return FALSE;
  EndSearch(found);
  return TRUE;
}
