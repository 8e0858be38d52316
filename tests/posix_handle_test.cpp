// The handle table and the last error.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "platform/posix/handle.h"
#include "platform/win32.h"
#include "tests/support/call.h"
#include "tests/support/tree.h"

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

// With enumerations at their end and in the middle, and with errors that are pending.
TEST(PosixHandle, UnloadingGivesEverythingBack) {
  tavrix_test::Tree tree;
  for (const char* file : {"a/1", "b/2", "b/c/3"}) tree.File(file);
  std::string roots = tree.Path() + "/*";
  auto cycle = [&roots](int names) {
    void* library = dlopen(TAVRIX_LIBRARY, RTLD_NOW);
    auto* list = reinterpret_cast<int32_t (*)(char*, const char*, const char*, uint32_t)>(
        library ? dlsym(library, "XFileList") : nullptr);
    ASSERT_TRUE(list) << dlerror();
    char name[262];
    while (names-- > 0 && list(name, roots.c_str(), nullptr, 0x80000000)) continue;
    if (names > 0) list(name, std::string(300, 'r').c_str(), nullptr, 0);  // is reported at the end
    ASSERT_EQ(dlclose(library), 0);
    ASSERT_EQ(dlopen(TAVRIX_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
  };
  size_t bytes = 0;
  int64_t descriptors = 0;
  for (int i = 0; i < 300; ++i) {
    if (i == 100) bytes = mallinfo2().uordblks, descriptors = tavrix_test::OpenDescriptors();
    cycle(i % 6);
  }
  EXPECT_LE(mallinfo2().uordblks, bytes + 4000);
  EXPECT_EQ(tavrix_test::OpenDescriptors(), descriptors);
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
