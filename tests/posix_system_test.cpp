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
    SetLastError(1234);
    EXPECT_TRUE(!CloseHandle(bad) && GetLastError() == ERROR_INVALID_HANDLE) << bad;
  }
  EXPECT_EQ(TakeHandle(second, kOther), nullptr) << "of another kind";
  EXPECT_TRUE(TakeHandle(other, kOther) == &object && CloseHandle(second) && closed == 2);
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
    auto* list =
        reinterpret_cast<decltype(&XFileList)>(library ? dlsym(library, "XFileList") : nullptr);
    ASSERT_TRUE(list) << dlerror();
    char name[262];
    for (int names = i % 6; names > 0; --names)
      list(name, (i % 6 == 5 ? wrong : roots).c_str(), nullptr, FL_RECURSE);
    ASSERT_EQ(dlclose(library), 0);
    ASSERT_EQ(dlopen(TAVRIX_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }
  EXPECT_LE(mallinfo2().uordblks, bytes + 4000);
  EXPECT_EQ(tavrix_test::OpenDescriptors(), descriptors);
}

// The text, or "<error>" when there is none.
std::string Message(DWORD code) {
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
  char* text;
  char* where = reinterpret_cast<char*>(&text);
  const DWORD length = FormatMessageA(kFlags, nullptr, code, 0, where, 0, nullptr);
  const std::string result(text ? text : "", length);
  EXPECT_EQ(LocalFree(text), nullptr);
  return length ? result : "<" + std::to_string(GetLastError()) + ">";
}

TEST(PosixError, IsToldInTheTermsOfWindows) {
  EXPECT_EQ(Message(0) + Message(ERROR_BAD_EXE_FORMAT) + Message(4391),
            "The operation completed successfully.\r\n<87><317>");  // inserts; no such code
  std::string all;
  for (DWORD code = 0; code < 0x10000; ++code) all += Message(code);
  EXPECT_EQ(tavrix_test::Sum(all), 18443518634368351288u);
  // An open has reasons of its own.
  tavrix_test::CallFault fault("open", EAGAIN);
  CreateFileA("text", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
}

TEST(PosixClock, TellsTheTimeOfTheZoneInForce) {
  auto now = [] {  // the function time lags behind the clock
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  };
  // Each differs from the one before in one thing that a zone tells of itself.
  for (const char* zone : {"AAA-13", "AAA12", "AAA12AAA11,0/0,J365/25", "AAA12CCC8,0/0,J365/25"}) {
    setenv("TZ", zone, 1);
    tzset();
    SYSTEMTIME t;
    const time_t before = now();
    GetLocalTime(&t);
    tm parts = {t.wSecond, t.wMinute, t.wHour, t.wDay, t.wMonth - 1, t.wYear - 1900,
                0,         0,         -1,      0,      nullptr};
    const time_t told = mktime(&parts);
    EXPECT_TRUE(before <= told && told <= now() && parts.tm_wday == t.wDayOfWeek) << zone;
  }
}

}  // namespace
