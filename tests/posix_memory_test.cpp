// Probes of memory: every protection, every edge, nothing touched.
#include "tests/support/test.h"

namespace {

constexpr size_t kPage = 4096;

// Pages in a row: plain, read-only, without any right, plain, behind the end of the mapped file.
class PosixMemory : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ftruncate(fileno(file_), 4 * kPage), 0);
    void* block = mmap(nullptr, 5 * kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file_), 0);
    ASSERT_NE(block, MAP_FAILED);
    plain_ = static_cast<char*>(block);
    memset(plain_, 'a', 4 * kPage);
    ASSERT_EQ(mprotect(readOnly_ = plain_ + kPage, kPage, PROT_READ), 0);
    ASSERT_EQ(mprotect(shut_ = readOnly_ + kPage, kPage, PROT_NONE), 0);
    last_ = shut_ + kPage;
    missing_ = last_ + kPage;
  }

  void TearDown() override {
    munmap(plain_, 5 * kPage);
    fclose(file_);
  }

  void ExpectWriteProbes() {
    EXPECT_FALSE(IsBadWritePtr(readOnly_ - 1, 1));
    EXPECT_TRUE(IsBadWritePtr(readOnly_ - 1, 2));
    EXPECT_TRUE(IsBadWritePtr(shut_, 1));
    EXPECT_FALSE(IsBadWritePtr(last_, kPage));
    EXPECT_TRUE(IsBadWritePtr(last_, kPage + 1));
    EXPECT_TRUE(IsBadWritePtr(nullptr, 1));
    EXPECT_FALSE(IsBadWritePtr(this, sizeof *this));
    EXPECT_EQ(plain_[0] + last_[kPage - 1], 2 * 'a');
  }

  FILE* file_ = tmpfile();
  char *plain_, *readOnly_, *shut_, *last_, *missing_;
};

TEST_F(PosixMemory, TellsWhatCanBeRead) {
  EXPECT_FALSE(IsBadReadPtr(plain_, 2 * kPage));
  EXPECT_TRUE(IsBadReadPtr(plain_, 2 * kPage + 1));
  EXPECT_TRUE(IsBadReadPtr(shut_ + 8, 1));
  EXPECT_TRUE(IsBadReadPtr(plain_, 4 * kPage)) << "a hole inside";
  EXPECT_FALSE(IsBadReadPtr(missing_ - 3, 3));
  EXPECT_TRUE(IsBadReadPtr(missing_ - 3, 4));
  EXPECT_TRUE(IsBadReadPtr(nullptr, 1));
  EXPECT_FALSE(IsBadReadPtr(nullptr, 0));
  EXPECT_TRUE(IsBadReadPtr(plain_, ~UINT_PTR{0})) << "runs over the end of memory";
  EXPECT_TRUE(IsBadWritePtr(plain_, ~UINT_PTR{0}));
  EXPECT_FALSE(IsBadWritePtr(nullptr, 0));
  EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<void*>(~uintptr_t{0} - 3), 4));
}

TEST_F(PosixMemory, TellsWhatCanBeWrittenAlsoWithoutDescriptors) {
  ExpectWriteProbes();
  tavrix_test::Limit none(RLIMIT_NOFILE, 0);
  ExpectWriteProbes();
}

TEST_F(PosixMemory, ReadsTextsToTheirEnd) {
  for (bool permitted : {true, false}) {
    tavrix_test::CallFault fault(permitted ? "" : "process_vm_readv", EPERM);
    last_[kPage - 1] = 'a';
    EXPECT_TRUE(IsBadStringPtrA(last_, kPage + 1)) << "no terminator before the end";
    EXPECT_FALSE(IsBadStringPtrA(last_, kPage));
    last_[kPage - 1] = 0;
    EXPECT_FALSE(IsBadStringPtrA(last_ + 10, ~UINT_PTR{0}));
    EXPECT_TRUE(IsBadStringPtrA(plain_, 2 * kPage + 1)) << "runs into a page without rights";
    EXPECT_FALSE(IsBadStringPtrA(plain_, 2 * kPage)) << "goes on over pages";
    EXPECT_TRUE(IsBadStringPtrA(nullptr, 1));
    EXPECT_FALSE(IsBadStringPtrA(nullptr, 0));
    EXPECT_EQ(fault.Hit(), !permitted);
  }
}

}  // namespace
