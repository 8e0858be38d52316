// The handle table, the last error, and the facts about the system.
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <vector>

#include "platform/posix/handle.h"
#include "platform/posix/native.h"
#include "platform/win32.h"

namespace {

int closed = 0;
void Count(void* object) { closed += *static_cast<int*>(object); }
constexpr posix_layer::HandleKind kCounted = {Count};
constexpr posix_layer::HandleKind kOther = {nullptr};

TEST(PosixHandle, GivesEveryObjectAHandleOfItsOwn) {
  std::vector<int> objects(5000, 1);
  std::vector<HANDLE> handles;
  for (int& object : objects) handles.push_back(posix_layer::OpenHandle(kCounted, &object));
  EXPECT_EQ(std::set<HANDLE>(handles.begin(), handles.end()).size(), objects.size());
  for (size_t i = 0; i < objects.size(); ++i) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handles[i]) % 4, 0u);
    EXPECT_NE(handles[i], nullptr);
    ASSERT_EQ(posix_layer::HandleObject(handles[i], kCounted), &objects[i]);
  }
  for (HANDLE handle : handles) EXPECT_TRUE(CloseHandle(handle));
  EXPECT_EQ(closed, 5000);
}

TEST(PosixHandle, RefusesWhatIsNotOpen) {
  int object = 1;
  HANDLE first = posix_layer::OpenHandle(kCounted, &object);
  EXPECT_TRUE(CloseHandle(first));
  HANDLE second = posix_layer::OpenHandle(kCounted, &object);
  EXPECT_NE(first, second) << "the place is used again, the handle is not";
  for (HANDLE bad : {first, HANDLE{nullptr}, INVALID_HANDLE_VALUE, static_cast<HANDLE>(&object),
                     reinterpret_cast<HANDLE>(reinterpret_cast<uintptr_t>(second) + 1),
                     reinterpret_cast<HANDLE>(uintptr_t{0x3FFFFC})}) {
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(bad)) << bad;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
  SetLastError(0);
  EXPECT_EQ(posix_layer::HandleObject(second, kOther), nullptr) << "of another kind";
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  HANDLE other = posix_layer::OpenHandle(kOther, &object);
  EXPECT_FALSE(CloseHandle(other)) << "a kind that has a call of its own";
  EXPECT_EQ(posix_layer::TakeHandle(other, kOther), &object);
  EXPECT_TRUE(CloseHandle(second));
}

TEST(PosixHandle, KeepsTheLastErrorApartFromErrno) {
  SetLastError(1234);
  errno = ENOENT;
  EXPECT_EQ(GetLastError(), 1234u);
  int object = 1;
  EXPECT_TRUE(CloseHandle(posix_layer::OpenHandle(kCounted, &object)));
  EXPECT_EQ(GetLastError(), 1234u) << "a success leaves it alone";
}

TEST(PosixSystem, TellsTheFactsThatCallersRelyOn) {
  OSVERSIONINFOA version = {};
  SetLastError(0);
  EXPECT_FALSE(GetVersionExA(&version));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  version.dwOSVersionInfoSize = 148;
  EXPECT_TRUE(GetVersionExA(&version));
  EXPECT_EQ(version.dwPlatformId, VER_PLATFORM_WIN32_NT);
  EXPECT_GT(version.dwMajorVersion, 1u);
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  EXPECT_EQ(info.dwPageSize, 4096u);
  EXPECT_EQ(info.dwAllocationGranularity, 65536u);
  EXPECT_GE(info.dwNumberOfProcessors, 1u);
  EXPECT_NE(info.dwActiveProcessorMask, 0u);
}

}  // namespace
