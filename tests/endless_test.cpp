// The calls that never end, each in a child with a deadline.

#include "tests/support/test.h"

namespace quern {
namespace {

TEST(EndlessDeathTest, CallsThatNeverReturn) {
  static char text[] = "abc";
  static ScanDef table[] = {{"x", 1, SCAN_STRING, 0, 0},
                            {"az", 1, SCAN_RANGES, 0, 0},
                            {"!", 2, SCAN_STRING, 0, 0},
                            {nullptr, 0, 0, 0, 0}};
  void (*const kCalls[])() = {[] {
                                MemBuf buf = {16, 0, 0, nullptr};
                                MemBufSet(&buf, "abc", 3);
                                MemBufReplace(&buf, "b", 1, "x", 1, 0);
                              },
                              [] { MemCountAny("abc", 3, "a", 1, 0); },
                              [] { MemReplaceAll(text, 3, "c", 1, nullptr, 0, 0); },
                              [] { ScanText("abc", 3, table), ScanSymbol(1); },
                              [] {
                                ScanText("abc", 3, table);
                                ScanFirstOf(2, static_cast<int32_t>(SCAN_LIST_END | SCAN_BACKWARD));
                              }};
  for (auto call : kCalls)
    EXPECT_EXIT((tavrix_test::EndAfter(200, 42), call(), exit(0)), testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace quern
