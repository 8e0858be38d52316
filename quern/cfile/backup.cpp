#include "quern/cfile/backup.h"

#include <cstdlib>
#include <cstring>

#include "quern/cerr.h"
#include "quern/cfile/name.h"

namespace quern {
namespace {

constexpr char kModule[] = "cfile";

constexpr uint32_t kNoBackup = 24;  // message

// What pszBackup points to.
struct Backup {
  char path[2 * MAX_PATH];  // the folder, and behind it a full path
  HANDLE copy;              // null when there is none
};

Backup* BackupOf(const FileObject* file) { return reinterpret_cast<Backup*>(file->pszBackup); }

// Null in place of INVALID_HANDLE_VALUE.
HANDLE OpenFile(const char* name, DWORD rights, DWORD sharing, DWORD disposition,
                DWORD attributes) {
  HANDLE handle = CreateFileA(name, rights, sharing, nullptr, disposition, attributes, nullptr);
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

// Copies the bytes of one file behind its start to another one, and its times.
bool CopyContents(HANDLE from, HANDLE to) {
  char buffer[65536];
  DWORD count, written;
  SetFilePointer(from, 0, nullptr, FILE_BEGIN);
  do {
    if (!ReadFile(from, buffer, sizeof buffer, &count, nullptr)) return false;
    if (count != 0 && !WriteFile(to, buffer, count, &written, nullptr)) return false;
  } while (count != 0);
  FILETIME access, write;
  if (GetFileTime(from, nullptr, &access, &write)) SetFileTime(to, nullptr, &access, &write);
  return true;
}

// The copy's handle. Null, and no file, when it could not be made.
HANDLE CopyToNew(const char* name, const char* path) {
  HANDLE from = OpenFile(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL);
  if (!from) return nullptr;
  HANDLE copy = OpenFile(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW,
                         FILE_ATTRIBUTE_TEMPORARY);
  if (copy && !CopyContents(from, copy)) {
    CloseHandle(copy);
    DeleteFileA(path);
    copy = nullptr;
  }
  CloseHandle(from);
  return copy;
}

}  // namespace

bool BackUp(FileObject* file) {
  auto* backup = static_cast<Backup*>(calloc(1, sizeof(Backup)));
  if (!backup) return ErrRaise(kModule, 150, 3), false;
  char* path = backup->path;
  if (GetTempPathA(MAX_PATH, path) >= MAX_PATH) *path = '\0';
  char name[MAX_PATH];
  if (GetTempFileNameA(path, "", 0, name) != 0) {
    DeleteFileA(name);  // it was made with its name
    strcat(path, name);
  }
  if (!*path) {
    free(backup);
    ErrRaiseText(kModule, 158, ERR_LIBRARY | 5, kNoBackup);
    return true;
  }
  DropBackup(file);
  file->pszBackup = path;
  backup->copy = CopyToNew(file->pName->szFull, path);
  if (!backup->copy) ErrRaiseText(kModule, 163, ERR_LIBRARY | 4, kNoBackup);
  return true;
}

bool PutBack(FileObject* file) {
  Backup* backup = BackupOf(file);
  if (!backup->copy) return SetLastError(ERROR_FILE_NOT_FOUND), false;
  HANDLE to = OpenFile(file->pName->szFull, GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL);
  if (!to) return false;
  bool copied = CopyContents(backup->copy, to);
  DWORD reason = GetLastError();
  CloseHandle(to);
  SetLastError(reason);
  if (!copied) return false;
  CloseHandle(backup->copy);
  backup->copy = nullptr;
  return DeleteFileA(backup->path);
}

void DropBackup(FileObject* file) {
  if (!file->pszBackup) return;
  if (HANDLE copy = BackupOf(file)->copy) CloseHandle(copy);
  free(file->pszBackup);
  file->pszBackup = nullptr;
}

}  // namespace quern
