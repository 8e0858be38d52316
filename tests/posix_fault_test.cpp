// Every call of the layer where memory and the system fail it, one allocation and one system call
// after the other. The console and the dialog have such cases of their own.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/posix/directory.h"
#include "platform/posix/handle.h"
#include "platform/posix/message_table.h"
#include "platform/posix/native.h"
#include "platform/win32.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/tree.h"

namespace {

using tavrix_test::AllocationFault;
using tavrix_test::CallFault;
using tavrix_test::LiveBlocks;
using tavrix_test::OpenDescriptors;

constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

class PosixFault : public testing::Test {
 protected:
  PosixFault() {
    tree_.Dir("dir");
    posix_layer::ReserveHandles(1);
  }

  // Calls of the layer that belong together. Whether they were done; what they opened is closed.
  struct Row {
    const char* name;
    std::function<bool()> call;
  };

  // The next handle needs memory.
  static void FillHandles() {
    static constexpr posix_layer::HandleKind kKind = {nullptr};
    static char object;
    AllocationFault none(1);
    while (posix_layer::OpenHandle(kKind, &object)) continue;
  }

  // Lets the first allocation (or system call) of a row fail, then the second, until there are no
  // more. `refuses` tells whether an error may be the reason.
  template <typename Fault>
  void ExpectErrors(bool (*refuses)(DWORD)) {
    for (const Row& row : rows_) {
      SCOPED_TRACE(row.name);
      bool hit = true;
      for (int64_t attempt = 0; hit; ++attempt) {
        // The table of handles grows once, and then each of the others has its turn.
        if (std::is_same_v<Fault, AllocationFault> && attempt == 0) FillHandles();
        if (attempt == 1) posix_layer::ReserveHandles(2);
        posix_layer::ForgetDirectory();
        tree_.File("text", "old");
        int64_t blocks = LiveBlocks(), descriptors = OpenDescriptors();
        bool done;
        SetLastError(0);
        {
          Fault fault(std::max<int64_t>(attempt, 1));
          done = row.call();
          hit = fault.Hit();
        }
        EXPECT_TRUE(done || (hit && refuses(GetLastError()))) << attempt << " " << GetLastError();
        posix_layer::ForgetDirectory();
        EXPECT_EQ(LiveBlocks(), blocks) << attempt;
        EXPECT_EQ(OpenDescriptors(), descriptors) << attempt;
        ASSERT_LT(attempt, 100);
      }
    }
  }

  static bool Closed(HANDLE handle) {
    return handle && handle != INVALID_HANDLE_VALUE && CloseHandle(handle);
  }

  HANDLE Open(const char* name, DWORD disposition) {
    return CreateFileA(tree_.Path(name).c_str(), kBoth, kShareAll, nullptr, disposition, 0,
                       nullptr);
  }

  // A view of a file, or of memory, that grows to this size.
  bool Maps(HANDLE file) {
    HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 600'000, nullptr);
    if (!mapping) return false;
    void* view = MapViewOfFileEx(mapping, FILE_MAP_WRITE, 0, 0, 0, nullptr);
    DWORD error = GetLastError();
    CloseHandle(mapping);
    SetLastError(error);
    return view && UnmapViewOfFile(view);
  }

  bool Grows() {
    HANDLE file = Open("text", OPEN_ALWAYS);
    if (file == INVALID_HANDLE_VALUE) return false;
    bool mapped = Maps(file);
    return Closed(file) && mapped;
  }

  bool Changes() {
    HANDLE file = Open("text", OPEN_EXISTING);
    if (file == INVALID_HANDLE_VALUE) return false;
    FILETIME time;
    DWORD written = 0;
    bool done = GetFileSize(file, nullptr) == 3 && GetFileTime(file, &time, &time, &time) &&
                SetFilePointer(file, 4, nullptr, FILE_BEGIN) == 4 && SetEndOfFile(file) &&
                WriteFile(file, "new", 3, &written, nullptr);
    CloseHandle(file);
    std::string text = tree_.Read("text");
    EXPECT_EQ(written, done ? 3u : 0u);
    EXPECT_EQ(text, (std::string("old\0new", text.size()))) << "never in another place";
    return done;
  }

  bool Lists(HANDLE search, WIN32_FIND_DATAA* data) {
    if (search == INVALID_HANDLE_VALUE) return false;
    while (FindNextFileA(search, data)) continue;
    return GetLastError() == ERROR_NO_MORE_FILES && FindClose(search);
  }

  bool MakesTemporary() {
    char name[MAX_PATH];
    if (GetTempFileNameA(tree_.Path("dir").c_str(), "x", 0, name) == 0) return false;
    EXPECT_EQ(access(name, F_OK), 0);
    return remove(name) == 0;
  }

  bool Runs() {
    char line[] = "sh -c \"exit 3\"";
    PROCESS_INFORMATION information;
    if (!CreateProcessA(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr,
                        &information)) {
      return false;
    }
    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(information.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(information.hProcess, &code));
    EXPECT_EQ(code, 3u);
    return Closed(information.hThread) && Closed(information.hProcess);
  }

  // Right whatever fails. Half of the block may not be written.
  bool Probes() {
    constexpr size_t kPage = 4096;
    alignas(kPage) static char block[2 * kPage];
    mprotect(block + kPage, kPage, PROT_READ);
    return !IsBadReadPtr(block, sizeof block) && !IsBadWritePtr(block, kPage) &&
           IsBadWritePtr(block, kPage + 1) && !IsBadStringPtrA(block, sizeof block) &&
           IsBadStringPtrA(nullptr, 1);
  }

  bool Names() {
    char buffer[MAX_PATH];
    return GetFileAttributesA(tree_.Path("text").c_str()) == FILE_ATTRIBUTE_ARCHIVE &&
           GetFullPathNameA("text", sizeof buffer, buffer, nullptr) &&
           GetTempPathA(sizeof buffer, buffer) &&
           GetModuleFileNameA(nullptr, buffer, sizeof buffer);
  }

  tavrix_test::Tree tree_;
  WIN32_FIND_DATAA data_;
  const std::vector<Row> rows_ = {
      {"CreateFileA",
       [&] {
         bool opened = Closed(Open("text", CREATE_ALWAYS));
         EXPECT_EQ(tree_.Read("text"), opened ? "" : "old");
         return opened;
       }},
      {"OpenStream",
       [&] {
         FILE* stream = OpenStream(tree_.Path("text").c_str(), "r+b");
         if (stream) CloseStream(stream);
         return stream != nullptr;
       }},
      {"WriteFile", [&] { return Changes(); }},
      {"CreateFileMappingA", [&] { return Grows(); }},
      {"memory", [&] { return Maps(INVALID_HANDLE_VALUE); }},
      {"FindFirstFileA",
       [&] { return Lists(FindFirstFileA(tree_.Path("*").c_str(), &data_), &data_); }},
      {"FindFirstName",
       [&] { return Lists(FindFirstName(tree_.Path("*").c_str(), &data_, true), &data_); }},
      {"DeleteFileA", [&] { return DeleteFileA(tree_.Path("text").c_str()); }},
      {"GetTempFileNameA", [&] { return MakesTemporary(); }},
      {"GetFileAttributesA", [&] { return Names(); }},
      {"CreateProcessA", [&] { return Runs(); }},
      {"OpenProcessToken",
       [&] {
         HANDLE token;
         return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) && Closed(token);
       }},
      {"SetEnvironmentVariableA", [] { return SetEnvironmentVariableA("TAVRIX_TEST", "text"); }},
      {"FormatMessageA",
       [] {
         char* text;
         return FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               ERROR_DISK_FULL, 0, reinterpret_cast<char*>(&text), 0, nullptr) &&
                !LocalFree(text);
       }},
      {"IsBadWritePtr", [&] { return Probes(); }},
      {"GetDriveTypeA", [] { return GetDriveTypeA("/") <= DRIVE_RAMDISK; }},
  };
};

TEST_F(PosixFault, EveryAllocationMayFail) {
  ExpectErrors<AllocationFault>([](DWORD error) { return error == ERROR_NOT_ENOUGH_MEMORY; });
}

TEST_F(PosixFault, EverySystemCallMayFail) {
  ExpectErrors<CallFault>(
      [](DWORD error) { return error && posix_layer::FindSystemMessage(error) != nullptr; });
}

// A signal in the middle of a call is no failure of it.
TEST_F(PosixFault, EveryCallMayBeInterrupted) {
  for (const char* call :
       {"open", "read", "write", "ftruncate64", "fallocate64", "pread64", "waitpid", "poll"}) {
    for (const Row& row : rows_) {
      if (strcmp(call, "ftruncate64") == 0 && strcmp(row.name, "memory") == 0)
        continue;  // waits for nothing
      tree_.File("text", "old");
      CallFault fault(call, EINTR, 1);
      EXPECT_TRUE(row.call()) << call << " " << row.name;
    }
  }
}

TEST_F(PosixFault, TellsErrorsInTheTermsOfWindows) {
  using posix_layer::MissingError;
  const std::pair<DWORD, std::vector<int>> kRows[] = {
      {ERROR_SUCCESS, {0}},
      {ERROR_FILE_NOT_FOUND, {ENOENT, ELOOP}},
      {ERROR_PATH_NOT_FOUND, {ENOTDIR}},
      {ERROR_TOO_MANY_OPEN_FILES, {EMFILE, ENFILE}},
      {ERROR_ACCESS_DENIED, {EACCES, EPERM, EISDIR}},
      {ERROR_INVALID_HANDLE, {EBADF}},
      {ERROR_NOT_ENOUGH_MEMORY, {ENOMEM, EAGAIN}},
      {ERROR_WRITE_PROTECT, {EROFS}},
      {ERROR_SHARING_VIOLATION, {EBUSY, ETXTBSY}},
      {ERROR_ALREADY_EXISTS, {EEXIST}},
      {ERROR_INVALID_PARAMETER, {EINVAL}},
      {ERROR_DISK_FULL, {ENOSPC, EDQUOT, EFBIG}},
      {ERROR_BROKEN_PIPE, {EPIPE}},
      {ERROR_DIR_NOT_EMPTY, {ENOTEMPTY}},
      {ERROR_BAD_EXE_FORMAT, {ENOEXEC, ELIBBAD}},
      {ERROR_FILENAME_EXCED_RANGE, {ENAMETOOLONG, E2BIG}},
      {ERROR_GEN_FAILURE, {EIO, ENOSYS, EXDEV}},
  };
  for (const auto& [error, numbers] : kRows) {
    for (int number : numbers) EXPECT_EQ(posix_layer::ErrorFromErrno(number), error) << number;
  }
  // Names that no call can have got so far with.
  std::string longest = std::string(5000, 'a') + "/b";
  EXPECT_EQ(MissingError(longest.c_str(), ENOENT), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_EQ(MissingError(longest.c_str(), ENOTDIR), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MissingError("///", ENOENT), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(MissingError("///", ENOTDIR), ERROR_PATH_NOT_FOUND);
  // An open has reasons of its own.
  for (auto [number, error] :
       {std::pair(EAGAIN, ERROR_SHARING_VIOLATION), std::pair(ENODEV, ERROR_ACCESS_DENIED)}) {
    CallFault fault("open", number);
    EXPECT_EQ(Open("text", OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), error);
  }
}

}  // namespace
