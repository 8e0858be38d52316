// The error stack: entries, flags and trail against a model, and the ends of the process.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "exports/tavrix32.h"
#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cobj.h"
#include "tests/support/alloc.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::AllocationFault;
using tavrix_test::ClearedTrail;

constexpr char kModule[] = "test";

// The stack's rules over a plain list; fatal and reporting flags are left to other tests.
struct Model {
  struct Entry {
    uint32_t flags;
    uint32_t value;
  };
  std::vector<Entry> entries;
  uint32_t pending = 0;
  int32_t last = 0;

  void Push(uint32_t kind, uint32_t code) {
    uint32_t flags = kind | (code & 0xFF000000) | pending;
    last = 0;
    pending |= flags & 0xE000FFFF;
    entries.push_back({flags, code & 0xFFFF});
  }
  void Raise(uint32_t code) {
    uint32_t flags = ERR_RAISED | (code & 0xFF000000) | pending;
    if (!entries.empty()) entries.back().flags |= flags;
    last = static_cast<int32_t>(code & 0xFFFF);
    if (flags & ERR_NEGATE) last = -last;
    pending = 0;
  }
  std::string Trail(int depth) const {
    std::string trail;
    int level = -1;
    bool hide = false, separate = false;
    for (size_t i = entries.size(); i-- > 0;) {
      const Entry& entry = entries[i];
      if (entry.flags & ERR_RAISED) {
        ++level;
        hide = false;
        separate = true;
      }
      if (entry.flags & ERR_SKIP) hide = true;
      if (hide) continue;
      if (depth >= 0 && level > depth) break;
      if (!(entry.flags & ERR_CODE) || entry.value == 0) continue;
      if (separate && !trail.empty()) trail += entry.flags & ERR_RAISED ? "." : ":";
      std::string digits = std::to_string(entry.value);
      trail += digits.size() < 2 ? "0" + digits : digits;
      separate = false;
    }
    return trail;
  }
};

TEST(Errors, AgreeWithAModelOverRandomSequences) {
  std::mt19937 random(19);
  ErrRaise(kModule, 1, 1);
  ErrClear();
  for (int round = 0; round < 5000; ++round) {
    Model model;
    ErrCurrent->nPending = 0;
    while (model.entries.size() < 19) {
      uint32_t category =
          (const uint32_t[]){0, 0, 0x80000000, 0x40000000, 0x10000000}[random() % 5];
      uint32_t code =
          category | (const uint32_t[]){0, 1, 9, 10, 1000, 65535, 0x123456}[random() % 7];
      switch (random() % 6) {
        case 0:
        case 1:
          ErrPush(code);
          model.Push(ERR_CODE, code);
          break;
        case 2:
          SetLastError(random() % 3000);
          model.Push(ERR_SYSVALUE, GetLastError());
          ErrPush(code | ERR_SYSTEM);
          model.Push(ERR_CODE, code | ERR_SYSTEM);
          break;
        case 3: {
          uint32_t flags = random() % 3 ? 0 : ERR_SKIP;
          ErrPushEntry(flags | ERR_TEXT, reinterpret_cast<uintptr_t>("text"));
          model.Push(flags | ERR_TEXT, 0);
          break;
        }
        default:
          ErrThrow(code);
          model.Raise(code);
      }
      ASSERT_EQ(ErrLast, model.last);
      ASSERT_EQ(ErrCurrent->nPending, model.pending);
    }
    ASSERT_EQ(ErrCurrent->nCount, model.entries.size());
    for (size_t i = 0; i < model.entries.size(); ++i)
      ASSERT_EQ(ErrCurrent->entries[i].flags, model.entries[i].flags);
    for (int depth : {-1, 0, 1, 3}) {
      char trail[256] = "untouched";
      char* result = ErrInfo(trail, depth);
      std::string wanted = model.Trail(depth);
      ASSERT_EQ(trail, wanted.empty() ? "untouched" : wanted);
      ASSERT_EQ(result, wanted.empty() ? nullptr : trail);
    }
    ErrClear();
  }
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

TEST(Errors, TextsStayWhereTheyAre) {
  ErrPush(1);
  std::vector<const char*> texts;
  texts.reserve(100);
  int64_t before = tavrix_test::LiveBlocks();
  for (int i = 0; i < 100; ++i) texts.push_back(ErrText(31, std::to_string(i).c_str()));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(texts[i], "Failed to open " + std::to_string(i));
  EXPECT_EQ(ErrCurrent->bufText.nAlign, 128u);
  ErrClear();
  EXPECT_EQ(ErrCurrent->bufText.nSize, 0u);
  EXPECT_LE(tavrix_test::LiveBlocks(), before + 1);  // the buffer is kept, what it outgrew is not
  const char* plain = "no conversions";
  EXPECT_EQ(ErrFormat(reinterpret_cast<uintptr_t>(plain)), plain);
  EXPECT_STREQ(ErrFormat(reinterpret_cast<uintptr_t>("%s"), ""), "");
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
  EXPECT_EXIT(raise(19, 29), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(raise(19, 7), testing::ExitedWithCode(19), "");
  EXPECT_EXIT(raise(19, 0), testing::ExitedWithCode(19), "");  // an unknown code is fatal
  EXPECT_EXIT((dup2(2, 1), ErrRaise(kModule, 1, 9), ErrPushText(0, 29)), testing::ExitedWithCode(1),
              "   Fatal error: No error handler is defined");
  ErrPush(3);
  ErrPushText(0, 24);  // writes the report
  ErrThrow(3);
  EXPECT_EQ(ErrLast, 3);
  EXPECT_EQ(ErrCurrent->nCount, 0u);
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
