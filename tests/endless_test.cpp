// The calls that never end, each in a child with a deadline.

#include "tests/support/test.h"

namespace quern {
namespace {

constexpr int kStillRunning = 42;

template <class Call>
void ExpectEndless(Call call) {
  auto run = [call] {
    tavrix_test::EndAfter(200, kStillRunning);
    call();
    exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(kStillRunning), "");
}

TEST(EndlessDeathTest, CallsThatNeverReturn) {
  ExpectEndless([] {
    MemBuf buf = {16, 0, 0, nullptr};
    MemBufSet(&buf, "abc", 3);
    MemBufReplace(&buf, "b", 1, "x", 1, 0);
  });
  ExpectEndless([] { MemCountAny("abc", 3, "a", 1, 0); });
  ExpectEndless([] {
    char text[] = "abc";
    MemReplaceAll(text, 3, "c", 1, nullptr, 0, 0);
  });
  static ScanDef table[] = {{"x", 1, SCAN_STRING, 0, 0},
                            {"az", 1, SCAN_RANGES, 0, 0},
                            {"!", 2, SCAN_STRING, 0, 0},
                            {nullptr, 0, 0, 0, 0}};
  ExpectEndless([] {
    ScanText("abc", 3, table);
    ScanSymbol(1);
  });
  ExpectEndless([] {
    ScanText("abc", 3, table);
    ScanFirstOf(2, static_cast<int32_t>(SCAN_LIST_END | SCAN_BACKWARD));
  });
}

}  // namespace
}  // namespace quern
