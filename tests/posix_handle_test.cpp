// The handle table and the last error.
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <vector>

#include "platform/posix/handle.h"
#include "platform/win32.h"
#include "tests/support/call.h"

namespace {

using namespace posix_layer;

int closed = 0;
constexpr HandleKind kCounted = {[](void* object) { closed += *static_cast<int*>(object); }};
constexpr HandleKind kOther = {nullptr, true};

TEST(PosixHandle, GivesEveryObjectAHandleOfItsOwn) {
  std::vector<int> objects(5000, 1);
  std::vector<HANDLE> handles = {nullptr};
  for (int& object : objects) handles.push_back(OpenHandle(kCounted, &object));
  EXPECT_EQ(std::set(handles.begin(), handles.end()).size(), 5001u);
  for (size_t i = 1; i < handles.size(); ++i) {
    ASSERT_EQ(HandleObject(handles[i], kCounted), &objects[i - 1]);
    ASSERT_EQ(reinterpret_cast<uintptr_t>(handles[i]) % 4, 0u);
    EXPECT_TRUE(CloseHandle(handles[i]));
  }
  EXPECT_EQ(closed, 5000);
}

TEST(PosixHandle, RefusesWhatIsNotOpen) {
  int object = 1;
  HANDLE first = OpenHandle(kCounted, &object);
  EXPECT_TRUE(CloseHandle(first));
  HANDLE second = OpenHandle(kCounted, &object), other = OpenHandle(kOther, &object);
  // The first one's place is used again; the last kind has a call of its own.
  for (HANDLE bad : {first, HANDLE{nullptr}, static_cast<HANDLE>(&object),
                     static_cast<HANDLE>(static_cast<char*>(second) + 1),
                     reinterpret_cast<HANDLE>(uintptr_t{0x3FFFFC}), other}) {
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(bad)) << bad;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
  EXPECT_EQ(TakeHandle(second, kOther), nullptr) << "of another kind";
  EXPECT_EQ(TakeHandle(other, kOther), &object);
  SetLastError(1234);
  EXPECT_TRUE(CloseHandle(second));
  EXPECT_EQ(GetLastError(), 1234u) << "a success leaves it alone";
}

TEST(PosixHandle, GrowsAsFarAsHandlesReach) {
  EXPECT_TRUE(ReserveHandles(100));
  EXPECT_TRUE(ReserveHandles(3'000'000));
  EXPECT_TRUE(ReserveHandles(4'000'000)) << "less than twice as many";
  EXPECT_FALSE(ReserveHandles(1 << 22));
  EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_OPEN_FILES);
}

TEST(PosixSystem, TellsItsVersionToARecordOfTheRightSize) {
  OSVERSIONINFOA version = {};
  EXPECT_FALSE(GetVersionExA(&version) || GetVersionExA(nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  for (DWORD size : {148, 156}) {
    version.dwOSVersionInfoSize = size;
    EXPECT_TRUE(GetVersionExA(&version));
    EXPECT_EQ(version.dwPlatformId, VER_PLATFORM_WIN32_NT);
  }
}

TEST(PosixSystem, CountsOneProcessorWhereNobodyTells) {
  tavrix_test::CallFault fault("sched_getaffinity", EINVAL);  // more than there is room for
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  EXPECT_EQ(info.dwNumberOfProcessors, 1u);
  EXPECT_EQ(info.dwActiveProcessorMask, 1u);
}

}  // namespace
