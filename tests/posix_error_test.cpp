// What becomes of the system's error numbers.
#include "platform/posix/native.h"
#include "tests/support/test.h"

namespace {

using tavrix_test::CallFault;

TEST(PosixError, TellsErrorsInTheTermsOfWindows) {
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
    EXPECT_EQ(CreateFileA("text", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), error);
  }
}

}  // namespace
