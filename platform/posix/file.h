// What stands behind the handles of standard streams and of files.
#pragma once

#include <signal.h>
#include <sys/stat.h>

#include "platform/win32.h"

namespace posix_layer {

// The descriptor of a handle of GetStdHandle, or -1 after setting ERROR_INVALID_HANDLE.
int Descriptor(HANDLE file);

// Keeps SIGPIPE and SIGXFSZ from the process while it lives: a pipe without a reader and a file at
// its limit are errors like any other.
class NoWriteSignals {
 public:
  NoWriteSignals();
  ~NoWriteSignals();
  NoWriteSignals(const NoWriteSignals&) = delete;
  NoWriteSignals& operator=(const NoWriteSignals&) = delete;

 private:
  sigset_t raised_;  // those of the two that were not pending before
  sigset_t before_;
};

// Writes all bytes to a descriptor; returns 0 or the errno, and adds what went out to `written`. A
// pipe without a reader raises no signal.
int WriteAll(int descriptor, const void* data, size_t size, size_t* written);

// What tells one file from another, whatever its names. {0, 0} is no file.
struct FileIdentity {
  uint64_t device, inode;
  bool operator==(const FileIdentity&) const = default;
};

FileIdentity IdentityOf(const struct statx& facts);

// An open file of CreateFileA. It lives as long as its handle or a mapping of it.
struct File {
  FileIdentity identity;
  int descriptor;  // its own position means nothing
  uint32_t references;
  DWORD access;       // GENERIC_READ, GENERIC_WRITE
  DWORD uses;         // the same as FILE_SHARE_READ, FILE_SHARE_WRITE
  DWORD share;        // what others may do
  uint64_t position;  // of SetFilePointer
  File* next;         // in the list of those whose handle is open
  uint32_t origin;    // the generation that opened it (fork.h)
  bool claimsMapped;  // ClaimMapped
};

// The file behind a handle, or null after setting ERROR_INVALID_HANDLE.
File* FileOf(HANDLE handle);

// Gives a reference back.
void ReleaseFile(File* file);

// Whether a handle of CreateFileA is open for the file.
bool IsOpen(const FileIdentity& identity);

// Whether a mapping of the file, or a view, reaches beyond its first `size` bytes (in mapping.cpp).
bool IsMappedBeyond(const FileIdentity& identity, uint64_t size);

// Ends the claims of what was mapped, if nothing of the file is mapped here any more. An open that
// goes on keeps its claim until somebody asks: to end it at once would cost every close a call.
void SettleMapped(const FileIdentity& identity);

// The times of a file; any of the three may be null. Without a creation time it is that of the last
// write.
void TimesOf(const struct statx& facts, FILETIME* creation, FILETIME* access, FILETIME* write);

}  // namespace posix_layer
