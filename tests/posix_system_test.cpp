// Handles, errors and their texts, and the time of day.
#include "platform/posix/handle.h"
#include "platform/posix/native.h"
#include "tests/support/test.h"

namespace {

using namespace posix_layer;

int closed = 0;
constexpr HandleKind kCounted = {[](void* object) { closed += *static_cast<int*>(object); }};
constexpr HandleKind kOther = {nullptr, true};

TEST(PosixHandle, RefusesWhatIsNotOpen) {
  int object = 1;
  HANDLE first = OpenHandle(kCounted, &object);
  EXPECT_TRUE(CloseHandle(first));
  HANDLE second = OpenHandle(kCounted, &object), other = OpenHandle(kOther, &object);
  // The first one's place is used again; the last kind has a call of its own.
  for (HANDLE bad : {first, HANDLE{nullptr}, static_cast<HANDLE>(&object),
                     static_cast<HANDLE>(static_cast<char*>(second) + 1), other}) {
    EXPECT_FALSE(CloseHandle(bad)) << bad;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
  EXPECT_EQ(TakeHandle(second, kOther), nullptr) << "of another kind";
  EXPECT_EQ(TakeHandle(other, kOther), &object);
  SetLastError(1234);
  EXPECT_TRUE(CloseHandle(second));
  EXPECT_EQ(GetLastError(), 1234u) << "a success leaves it alone";
  EXPECT_EQ(closed, 2);
}

// With enumerations at their end and in the middle, and with errors that are pending.
TEST(PosixHandle, UnloadingGivesEverythingBack) {
  tavrix_test::Tree tree;
  for (const char* file : {"a/1", "b/2", "b/c/3"}) tree.File(file);
  const std::string roots = tree.Path() + "/*", wrong(300, 'r');  // is reported at the end
  size_t bytes = 0;
  int64_t descriptors = 0;
  for (int i = 0; i < 300; ++i) {
    if (i == 100) bytes = mallinfo2().uordblks, descriptors = tavrix_test::OpenDescriptors();
    void* library = dlopen(TAVRIX_LIBRARY, RTLD_NOW);
    auto* list = reinterpret_cast<int32_t (*)(char*, const char*, const char*, uint32_t)>(
        library ? dlsym(library, "XFileList") : nullptr);
    ASSERT_TRUE(list) << dlerror();
    char name[262];
    int names = i % 6;
    while (names-- > 0 && list(name, roots.c_str(), nullptr, FL_RECURSE)) continue;
    if (names > 0) list(name, wrong.c_str(), nullptr, 0);
    ASSERT_EQ(dlclose(library), 0);
    ASSERT_EQ(dlopen(TAVRIX_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }
  EXPECT_LE(mallinfo2().uordblks, bytes + 4000);
  EXPECT_EQ(tavrix_test::OpenDescriptors(), descriptors);
}

TEST(PosixError, IsToldInTheTermsOfWindows) {
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
  for (const auto& [error, numbers] : kRows)
    for (int number : numbers) EXPECT_EQ(ErrorFromErrno(number), error) << number;
  // Names that no call can have got so far with.
  const std::string longest = std::string(5000, 'a') + "/b";
  EXPECT_EQ(MissingError(longest.c_str(), ENOENT), ERROR_FILENAME_EXCED_RANGE);
  EXPECT_EQ(MissingError(longest.c_str(), ENOTDIR), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(MissingError("///", ENOENT), ERROR_FILE_NOT_FOUND);
  // An open has reasons of its own.
  for (auto [number, error] :
       {std::pair(EAGAIN, ERROR_SHARING_VIOLATION), {ENODEV, ERROR_ACCESS_DENIED}}) {
    tavrix_test::CallFault fault("open", number);
    CreateFileA("text", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(GetLastError(), error);
  }
}

// The text, or "<error>" when there is none.
std::string Message(DWORD code) {
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  char* text;
  char* where = reinterpret_cast<char*>(&text);
  const DWORD length = FormatMessageA(kFlags, nullptr, code, 0, where, 0, nullptr);
  if (length == 0) return "<" + std::to_string(GetLastError()) + ">";
  const std::string result = text;
  EXPECT_EQ(length, result.size());
  EXPECT_EQ(LocalFree(text), nullptr);
  return result;
}

TEST(PosixError, TextsAreFoundByTheirCodes) {
  EXPECT_EQ(Message(ERROR_SUCCESS), "The operation completed successfully.\r\n");
  EXPECT_EQ(Message(ERROR_PRIVILEGE_NOT_HELD),
            "A required privilege is not held by the client.\r\n");
  EXPECT_EQ(Message(ERROR_BAD_EXE_FORMAT), "<87>") << "has inserts";
  EXPECT_EQ(Message(~DWORD{0}), "<317>");
  std::map<std::string, std::string> codes;  // with each text
  for (DWORD code = 0; code < 0x10000; ++code) {
    const std::string text = Message(code);
    if (text == "<317>" || text == "<87>") continue;
    codes[text] += std::to_string(code) + " ";
    EXPECT_TRUE(text.ends_with(".\r\n") && text.find('%') == text.npos) << text;
  }
  EXPECT_GT(codes.size(), 250u);
  std::erase_if(codes,
                [](const auto& text) { return text.second.find(' ') + 1 == text.second.size(); });
  std::string shared;
  for (const auto& [text, numbers] : codes) shared += numbers + "; ";
  EXPECT_EQ(shared, "1453 1454 ; 1450 1451 1452 ; 196 199 ; ") << "and no other";
}

// The zone's time of day, once by the C runtime and once by the layer, within one second.
TEST(PosixClock, TellsTheTimeOfTheZoneInForce) {
  auto now = [] {  // the function time lags behind the clock
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  };
  // Neighbours share a name, both names, or the offset; three have summer all year.
  for (const char* zone :
       {"UTC0", "AAA-13", "AAA12", "AAA12AAA11,0/0,J365/25", "AAA11BBB", "AAA12BBB11,0/0,J365/25",
        "AAA12CCC8,0/0,J365/25", "<+0545>-5:45", "CCC-5:45", "LMT-0:53:28", "UTC0"}) {
    setenv("TZ", zone, 1);
    tzset();
    char expected[64], text[64];
    SYSTEMTIME time;
    time_t before;
    do {
      before = now();
      GetLocalTime(&time);
      strftime(expected, sizeof expected, "%w %Y-%m-%d %H:%M:%S", localtime(&before));
    } while (now() != before);
    snprintf(text, sizeof text, "%u %04u-%02u-%02u %02u:%02u:%02u", time.wDayOfWeek, time.wYear,
             time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
    EXPECT_STREQ(text, expected) << zone;
  }
}

}  // namespace
