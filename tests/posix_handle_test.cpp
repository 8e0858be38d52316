// The handle table and the last error.

#include "platform/posix/handle.h"
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

}  // namespace
