// The error stack: entries, flags and trail, and the ends of the process.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;

constexpr char kModule[] = "test";

TEST(Errors, TrailsOfPushesAndRaises) {
  struct {
    const char* steps;  // digits: codes; t: a text; s: a hidden one; r: a raise
    int depth;
    const char* trail;
  } const kRows[] = {
      {"1r2r", -1, "02.01"},     {"1r2r", 0, "02"},          {"1r2r3r", 1, "03.02"},
      {"1tr2r", -1, "02:01"},    {"53r", -1, "0305"},        {"1r53r", -1, "0305.01"},
      {"1r53tr", -1, "0305.01"}, {"53tr1r", -1, "01:0305"},  {"1r2", 0, "02.01"},
      {"1r2r3", 0, "03.02"},     {"0r", -1, "none"},         {"1r0r", -1, "01"},
      {"tr", -1, "none"},        {"1r2sr3r", -1, "03.01"},   {"1rs2r", -1, "01"},
      {"1rs2r", 0, "none"},      {"12t34r", -1, "04030201"}, {"r1r", -1, "01"},
  };
  for (const auto& row : kRows) {
    ErrRaise(kModule, 1, 1);
    ErrClear();
    for (const char* step = row.steps; *step; ++step) {
      if (*step == 'r') {
        ErrThrow(1);
      } else if (*step == 't' || *step == 's') {
        ErrPushEntry(*step == 's' ? ERR_TEXT | ERR_SKIP : ERR_TEXT,
                     reinterpret_cast<uintptr_t>(""));
      } else {
        ErrPush(static_cast<uint32_t>(*step - '0'));
      }
      EXPECT_EQ(ErrLast, *step == 'r' ? 1 : 0);
    }
    char trail[64] = "none";
    EXPECT_EQ(ErrInfo(trail, row.depth) == trail, strcmp(row.trail, "none") != 0);
    EXPECT_STREQ(trail, row.trail) << row.steps << ' ' << row.depth;
  }
}

TEST(Errors, CategoriesAreMergedAndStayPending) {
  ErrPush(0xC0120005);  // between categories and code nothing counts
  ErrPush(ERR_NEGATE | 6);
  const ErrorEntry* entries = ErrCurrent->entries;
  EXPECT_EQ(entries[0].value, 5u);
  EXPECT_EQ(entries[0].flags, ERR_CODE | 0xC0000000);
  EXPECT_EQ(entries[1].flags, ERR_CODE | ERR_NEGATE | 0xC0000000);
  EXPECT_EQ(ErrCurrent->nPending, 0xC0000000);
  ErrThrow(ERR_NEGATE | 7);
  EXPECT_EQ(ErrLast, -7);
  EXPECT_EQ(ErrCurrent->nLastRaised, -7);
  EXPECT_EQ(ErrCurrent->nPending, 0u);
  EXPECT_EQ(entries[0].flags, ERR_CODE | 0xC0000000);
  EXPECT_EQ(entries[1].flags, ERR_CODE | ERR_NEGATE | ERR_RAISED | 0xC0000000);
}

TEST(Errors, TrailOfNestedFailures) {
  char trail[64] = "";
  EXPECT_EQ(ErrInfo(trail, -1), nullptr);  // makes no stack
  EXPECT_EQ(ErrClear(), -1);
  EXPECT_EQ(ErrClass(0), 0u);
  EXPECT_EQ(ErrCurrent, nullptr);
  EXPECT_EQ(ErrRaise(kModule, 12, 2), -2);
  EXPECT_STREQ(ErrFile, "test");
  EXPECT_EQ(ErrLine, 12);
  ErrRaise(kModule, 13, 1000);
  EXPECT_STREQ(ErrInfo(trail, -1), "1000.02");
  EXPECT_STREQ(ErrInfo(trail, 0), "1000");
  EXPECT_EQ(XErrorInfo(strcpy(trail, "")), 0);
  EXPECT_STREQ(trail, "1000");
  SetLastError(5);
  EXPECT_EQ(ErrClear(), 0);
  EXPECT_EQ(GetLastError(), 0u);
  ErrRaiseText(kModule, 14, ERR_LIBRARY | 4, 31, "here");
  EXPECT_STREQ(reinterpret_cast<const char*>(ErrCurrent->entries[1].value), "Failed to open here");
  ErrRaise(kModule, 15, 13);
  EXPECT_EQ(ClearedTrail(), "13:04");
  SetLastError(1234);
  ErrRaise(kModule, 16, ERR_SYSTEM | 3);
  ASSERT_EQ(ErrCurrent->nCount, 2u);
  EXPECT_EQ(ErrCurrent->entries[0].value, 1234u);
  EXPECT_EQ(ClearedTrail(), "03");
  EXPECT_EQ(ErrRaiseText(kModule, 17, 3, "text"), -3);
  EXPECT_EQ(ErrCurrent->entries[1].flags, ERR_TEXT | ERR_RAISED);
  EXPECT_EQ(ClearedTrail(), "03");
  ErrRaise(kModule, 17, ERR_LIBRARY);  // value 0: as if nothing had failed
  EXPECT_EQ(ErrLast, 0);
  EXPECT_EQ(ClearedTrail(), "");
}

TEST(Errors, AddressesAndSystemValuesAreNoCategories) {
  ErrPush(1);
  const uint32_t flags[] = {ERR_TEXT, ERR_SYSVALUE, ERR_SYSVALUE};
  const uint32_t values[] = {0x6B640000, 0x02000010, 0x88760868};  // merged: a raise, a text
  for (int i = 0; i < 3; ++i) ErrPushEntry(flags[i], values[i]);
  ASSERT_EQ(ErrCurrent->nCount, 4u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ErrCurrent->entries[i + 1].flags, flags[i]);
  EXPECT_EQ(ErrCurrent->entries[1].value, 0x6B640000u);
  EXPECT_EQ(ErrCurrent->entries[2].value, 0x10u);
}

TEST(Errors, StacksAreAttachedAndReplaced) {
  static const MessageRow table[] = {{50, "fifty", 0}, {44, "forty-four", 0}, {0, "none", 0}};
  EXPECT_EQ(ErrSetTable(nullptr, table), ErrCurrent);
  EXPECT_EQ(ErrCurrent->nHighest, 50u);
  EXPECT_EQ(ErrCurrent->header.flags, INST_OWNED);  // not on demand
  ErrorStack own = {};
  ErrorStack* first = ErrCurrent;
  EXPECT_EQ(ErrStackAttach(&own), &own);
  EXPECT_EQ(own.nHighest, 39u);
  EXPECT_EQ(ErrStackAttach(first), first);
  EXPECT_EQ(first->nHighest, 50u);
  EXPECT_EQ(ErrSetTable(nullptr, nullptr), first);
  EXPECT_EQ(first->nHighest, 39u);
  EXPECT_EQ(ErrClass(reinterpret_cast<uintptr_t>(&own)), 0u);
  EXPECT_EQ(own.header.tag, 0u);
  EXPECT_EQ(ErrCurrent, nullptr);
  ErrRaise(kModule, 18, 7);  // a new one on demand
  EXPECT_EQ(ErrCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
  EXPECT_NE(ErrCurrent, first);
  EXPECT_EQ(ErrClass(kCollectRequest), 0u);
  EXPECT_EQ(ErrCurrent, nullptr);
  uint32_t foreign[sizeof(ErrorStack) / 4] = {1234};
  EXPECT_EQ(ErrStackAttach(foreign), nullptr);
  EXPECT_EQ(ErrLine, 56);
  ErrClear();
  EXPECT_EQ(ErrSetTable(foreign, table), nullptr);
  EXPECT_EQ(ErrLine, 73);
  EXPECT_EQ(ClearedTrail(), "01.1000.04");
}

TEST(Errors, TextsBelongToTheirStack) {
  EXPECT_STREQ(ErrFormat(31, "first"), "Failed to open first");  // without a stack: built-in
  ErrorStack* first = ErrCurrent;
  std::string longText(100, 'x');
  const char* kept = ErrText(31, longText.c_str());
  ErrText(31, longText.c_str());  // the buffer moves
  ErrorStack own = {};
  ErrStackAttach(&own);
  ErrClear();
  ErrClass(0);
  ErrStackAttach(first);
  EXPECT_EQ(kept, "Failed to open " + longText);
}

using ErrorsDeathTest = testing::Test;

TEST(ErrorsDeathTest, TwentyEntriesAreTheLimit) {
  const char* text = "   Fatal error: Stack for errors exceeded limits";
  for (int i = 0; i < 19; ++i) ErrPush(1);
  EXPECT_EXIT((dup2(2, 1), ErrPush(1), ErrPush(1)), testing::ExitedWithCode(1), text);
  EXPECT_EXIT((dup2(2, 1), ErrPush(1), ErrThrow(1)), testing::ExitedWithCode(1), text);
}

TEST(ErrorsDeathTest, NoMemoryForTheStack) {
  auto raise = [] {
    dup2(2, 1);
    AllocationFault fault(1);
    ErrRaise(kModule, 1, 5);
  };
  EXPECT_EXIT(raise(), testing::ExitedWithCode(1), "   Fatal error: No error handler is defined");
}

TEST(ErrorsDeathTest, FlagsOfMessagesActOnTheNextRaise) {
  auto raise = [](uint32_t code, uintptr_t message) {
    ErrPush(code);
    ErrPushText(0, message);
    ErrThrow(code);
    exit(0);
  };
  EXPECT_EXIT(raise(19, 7), testing::ExitedWithCode(19), "");
  EXPECT_EXIT(raise(19, 0), testing::ExitedWithCode(19), "");  // an unknown code is fatal
  EXPECT_EXIT((dup2(2, 1), ErrRaise(kModule, 1, 9), ErrPushText(0, 29)), testing::ExitedWithCode(1),
              "   Fatal error: No error handler is defined");
}

TEST(ErrorsDeathTest, FailuresWhileTheProcessEndsEndItAtOnce) {
  auto end = [] {
    ErrRaise(kModule, 1, 1);
    ErrClear();
    ClsExitHook = [] {
      fputs("hook ", stderr);
      ErrExit(-4);
    };
    exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(4), "hook ");
  auto later = [] {
    atexit([] { fputs("orderly", stderr); });
    if (ClsExit() != 0) fputs("dis", stderr);  // by hand, before the end
    ErrExit(-5);
  };
  EXPECT_EXIT(later(), testing::ExitedWithCode(5), "^orderly");
}

}  // namespace
}  // namespace quern
