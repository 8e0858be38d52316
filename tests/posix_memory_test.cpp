// Probes of memory: every protection, every edge, nothing touched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "platform/win32.h"

namespace {

constexpr size_t kPage = 4096;

// Pages in a row: plain, read-only, without any right, plain, not mapped.
class PosixMemory : public testing::Test {
 protected:
  void SetUp() override {
    void* block =
        mmap(nullptr, 5 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    plain_ = static_cast<char*>(block);
    readOnly_ = plain_ + kPage;
    shut_ = readOnly_ + kPage;
    last_ = shut_ + kPage;
    missing_ = last_ + kPage;
    memset(plain_, 'a', 4 * kPage);
    ASSERT_EQ(mprotect(readOnly_, kPage, PROT_READ), 0);
    ASSERT_EQ(mprotect(shut_, kPage, PROT_NONE), 0);
    ASSERT_EQ(munmap(missing_, kPage), 0);
  }

  void TearDown() override { munmap(plain_, 4 * kPage); }

  void ExpectWriteProbes() {
    EXPECT_FALSE(IsBadWritePtr(plain_, kPage));
    EXPECT_FALSE(IsBadWritePtr(readOnly_ - 1, 1));
    EXPECT_TRUE(IsBadWritePtr(readOnly_ - 1, 2));
    EXPECT_TRUE(IsBadWritePtr(readOnly_, 1));
    EXPECT_TRUE(IsBadWritePtr(shut_, 1));
    EXPECT_FALSE(IsBadWritePtr(last_, kPage));
    EXPECT_TRUE(IsBadWritePtr(last_, kPage + 1));
    EXPECT_TRUE(IsBadWritePtr(nullptr, 1));
    EXPECT_TRUE(IsBadWritePtr(const_cast<char*>("literal"), 4));
    int local = 0;
    EXPECT_FALSE(IsBadWritePtr(&local, sizeof local));
  }

  char *plain_, *readOnly_, *shut_, *last_, *missing_;
};

TEST_F(PosixMemory, TellsWhatCanBeRead) {
  EXPECT_FALSE(IsBadReadPtr(plain_, 2 * kPage));
  EXPECT_TRUE(IsBadReadPtr(plain_, 2 * kPage + 1));
  EXPECT_FALSE(IsBadReadPtr(shut_ - 1, 1));
  EXPECT_TRUE(IsBadReadPtr(shut_ + 8, 1));
  EXPECT_TRUE(IsBadReadPtr(plain_, 4 * kPage)) << "a hole inside";
  EXPECT_FALSE(IsBadReadPtr(missing_ - 3, 3));
  EXPECT_TRUE(IsBadReadPtr(missing_ - 3, 4));
  EXPECT_TRUE(IsBadReadPtr(nullptr, 1));
  EXPECT_FALSE(IsBadReadPtr(nullptr, 0));
  EXPECT_TRUE(IsBadReadPtr(plain_, ~UINT_PTR{0})) << "runs over the end of memory";
  EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<void*>(~uintptr_t{0} - 3), 4));
  EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<void*>(~uintptr_t{0} / 3 * 2), 1));
}

TEST_F(PosixMemory, TellsWhatCanBeWritten) {
  ExpectWriteProbes();
  EXPECT_EQ(plain_[0], 'a');
  EXPECT_EQ(last_[kPage - 1], 'a');
}

TEST_F(PosixMemory, TellsWhatCanBeWrittenWithoutDescriptors) {
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = {0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  ASSERT_LT(open("/proc/self/maps", O_RDONLY), 0);
  ExpectWriteProbes();
  EXPECT_EQ(plain_[0], 'a');
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(PosixMemory, ReadsTextsToTheirEnd) {
  EXPECT_TRUE(IsBadStringPtrA(last_, kPage + 1)) << "no terminator before the end";
  EXPECT_FALSE(IsBadStringPtrA(last_, kPage));
  last_[kPage - 1] = 0;
  EXPECT_FALSE(IsBadStringPtrA(last_ + 10, ~UINT_PTR{0}));
  EXPECT_FALSE(IsBadStringPtrA(missing_ - 1, 100));
  EXPECT_TRUE(IsBadStringPtrA(readOnly_, 2 * kPage)) << "runs into a page without rights";
  EXPECT_FALSE(IsBadStringPtrA(plain_, 2 * kPage)) << "goes on over pages";
  EXPECT_TRUE(IsBadStringPtrA(nullptr, 1));
  EXPECT_FALSE(IsBadStringPtrA(nullptr, 0));
  EXPECT_TRUE(IsBadStringPtrA(shut_, 1));
}

TEST_F(PosixMemory, LeavesAMappedFileAlone) {
  char name[] = "/tmp/tavrix-map-XXXXXX";
  int file = mkstemp(name);
  ASSERT_GE(file, 0);
  unlink(name);
  ASSERT_EQ(ftruncate(file, kPage), 0);
  void* view = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ASSERT_NE(view, MAP_FAILED);
  EXPECT_FALSE(IsBadWritePtr(view, kPage));
  EXPECT_TRUE(IsBadReadPtr(view, kPage + 1)) << "behind the end of the file";
  EXPECT_TRUE(IsBadWritePtr(view, kPage + 1));
  munmap(view, 2 * kPage);
  close(file);
}

}  // namespace
