// The registry: attaching, detaching, collecting, and what is traced of it.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cobj.h"
#include "quern/csys.h"
#include "tests/support/alloc.h"
#include "tests/support/leaks.h"
#include "tests/support/trail.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;

struct Thing {
  InstanceHeader header;
  int value;
};

std::vector<std::string> released;  // class number and value, in order

uint32_t ThingClass(uintptr_t argument) {
  auto* thing = reinterpret_cast<Thing*>(argument);
  released.push_back(std::to_string(thing->header.classNumber) + ":" +
                     std::to_string(thing->value));
  uint32_t tag = thing->header.tag;
  ClsDetach(tag, &thing);
  return 0;
}

Thing* Make(const char* tag, uint32_t classNumber, int value, ClassProc proc = ThingClass) {
  auto* thing =
      static_cast<Thing*>(ClsAttach(ClassTag(tag), nullptr, classNumber, sizeof(Thing), proc));
  thing->value = value;
  return thing;
}

// What is traced while it lives.
class Traced {
 public:
  explicit Traced(int32_t level) {
    TraceFile = tmpfile();
    TraceLevel = level;
  }
  ~Traced() {
    fclose(TraceFile);
    TraceFile = nullptr;
    TraceLevel = 0;
  }
  std::string Text() {
    std::string text(static_cast<size_t>(ftell(TraceFile)), '\0');
    rewind(TraceFile);
    text.resize(fread(text.data(), 1, text.size(), TraceFile));
    return text;
  }
};

bool Contains(const std::string& text, const char* part) { return text.find(part) != text.npos; }

TEST(Objects, CallersMemoryIsZeroedAtBothEnds) {
  Thing own;
  memset(&own, 0xAA, sizeof own);
  own.header.tag = 0;
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), &own, 8, sizeof own, ThingClass), &own);
  EXPECT_EQ(ClsNew, 1u);
  EXPECT_EQ(own.header.tag, 0x46494C45u);
  EXPECT_EQ(own.header.flags, 0u);
  EXPECT_EQ(own.header.size, sizeof own);
  EXPECT_EQ(own.value, 0);
  own.value = 5;
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), &own, 3, 1, nullptr), &own);  // already one
  EXPECT_EQ(ClsNew, 0u);
  EXPECT_EQ(own.value, 5);
  EXPECT_EQ(ClsAttach(ClassTag("SCAN"), &own, 10, sizeof own, nullptr), nullptr);
  EXPECT_EQ(ErrLine, 79);
  Traced traced(4);
  Thing* variable = &own;
  EXPECT_EQ(ClsDetach(ClassTag("FILE"), &variable), 0);
  EXPECT_EQ(variable, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&own), sizeof own), std::string(sizeof own, '\0'));
  EXPECT_TRUE(Contains(traced.Text(), "CLS detach: deleted instance of class 'FILE'\n"));
  EXPECT_EQ(ClearedTrail(), "04");
}

TEST(Objects, ListsKeepAttachOrderAndAreCollectedNewestFirst) {
  Thing* things[] = {Make("FILE", 8, 1), Make("FILE", 8, 2), Make("FILE", 8, 3)};
  EXPECT_EQ(things[0]->header.flags, INST_OWNED);
  EXPECT_EQ(ClassLists[8], &things[0]->header);
  EXPECT_EQ(things[2]->header.pPrev, &things[1]->header);
  Thing* head = things[0];
  ClsSavedFile = &head->header;
  ClsDetach(ClassTag("FILE"), &head);
  EXPECT_EQ(ClsSavedFile, nullptr);
  EXPECT_EQ(ClassLists[8], &things[1]->header);
  Traced traced(3);
  EXPECT_EQ(ClsGarbage(ClassTag("FILE")), 0u);
  EXPECT_EQ(released, (std::vector<std::string>{"8:3", "8:2"}));
  EXPECT_TRUE(Contains(traced.Text(), "CLS garbage: removed 2 instances of class 'FILE'\n"));
  EXPECT_FALSE(Contains(traced.Text(), "detach"));  // silent while collecting
  EXPECT_EQ(ClassLists[8], nullptr);
}

TEST(Objects, EverythingIsCollectedFromTheHighestClassDown) {
  for (uint32_t number : {2u, 9u, 15u, 7u, 10u, 8u}) Make("ABCD", number, static_cast<int>(number));
  Make("EFGH", 9, 99);
  EXPECT_EQ(ClsGarbage(ClassTag("EFGH")), 0u);  // only the head's tag is compared
  EXPECT_TRUE(released.empty());
  ErrRaise("test", 1, 1);
  ClsFlags |= kClsArmed;  // even then nothing counts as garbage
  ClsGarbage(0);
  EXPECT_EQ(released,
            (std::vector<std::string>{"15:15", "10:10", "9:99", "9:9", "8:8", "7:7", "2:2"}));
  EXPECT_EQ(ErrCurrent, nullptr);
}

Thing* partner;

uint32_t PairClass(uintptr_t argument) {  // releases its partner, too
  if (partner && reinterpret_cast<uintptr_t>(partner) != argument) {
    Thing* other = partner;
    partner = nullptr;
    ThingClass(reinterpret_cast<uintptr_t>(other));
  }
  return ThingClass(argument);
}

uint32_t KeepingClass(uintptr_t) { return 0; }

TEST(Objects, CollectingSurvivesProceduresThatReleaseOthersOrNothing) {
  Make("PAIR", 5, 1);
  partner = Make("PAIR", 5, 2);
  Make("PAIR", 5, 3, PairClass);
  Make("BARE", 6, 1, nullptr);
  Thing* kept = Make("KEEP", 4, 1, KeepingClass);
  ClsGarbage(0);
  EXPECT_EQ(released, (std::vector<std::string>{"5:2", "5:3", "5:1"}));
  EXPECT_EQ(ClassLists[6], nullptr);
  EXPECT_EQ(ClassLists[4], &kept->header);
  ClsDetach(ClassTag("KEEP"), &kept);
}

TEST(Objects, FailuresAreRaised) {
  EXPECT_EQ(ClsDetach(1, nullptr), -1);
  EXPECT_EQ(ErrLine, 110);
  Thing thing = {};
  Thing* variable = &thing;
  EXPECT_EQ(ClsDetach(ClassTag("FILE"), &variable), -2);
  EXPECT_EQ(ErrLine, 111);
  EXPECT_EQ(variable, &thing);
  variable = nullptr;
  EXPECT_EQ(ClsDetach(ClassTag("FILE"), &variable), -2);
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), nullptr, 16, sizeof thing, nullptr), nullptr);
  EXPECT_EQ(ClearedTrail(), "02.02.01");
  {
    tavrix_test::AllocationFault fault(1);
    EXPECT_EQ(ClsAttach(ClassTag("FILE"), nullptr, 8, sizeof thing, nullptr), nullptr);
  }
  EXPECT_EQ(ErrLine, 64);
  {
    tavrix_test::LeakExpected leak;  // the block stays allocated on these two paths, on purpose
    EXPECT_EQ(ClsAttach(0, nullptr, 8, sizeof thing, nullptr), nullptr);
    EXPECT_EQ(ErrLine, 80);
    EXPECT_EQ(ClsAttach(ClassTag("FILE"), nullptr, 0, sizeof thing, nullptr), nullptr);
    EXPECT_EQ(ErrLine, 81);
  }
  EXPECT_EQ(ClearedTrail(), "06.05.02");
  static const Thing constant = {};  // in memory that cannot be written
  SetLastError(77);
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), const_cast<Thing*>(&constant), 8, sizeof thing, nullptr),
            nullptr);
  EXPECT_EQ(ErrLine, 75);
  EXPECT_EQ(ErrCurrent->entries[0].flags & ERR_SYSVALUE, ERR_SYSVALUE);
  auto* nowhere = reinterpret_cast<void*>(uintptr_t{0x1000});
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), nowhere, 8, sizeof thing, nullptr), nullptr);
  EXPECT_EQ(ClearedTrail(), "03.03");
  EXPECT_STREQ(ErrFile, "cobj");
}

TEST(Objects, InitialisationAndNames) {
  EXPECT_EQ(ClsFlags, 0u);
  int anything;
  EXPECT_EQ(ClsAttach(kClsInitialise, &anything, 0, 0, nullptr), &anything);
  EXPECT_EQ(ClsFlags, kClsReady);
  EXPECT_EQ(SysPlatformId, 2u);
  EXPECT_EQ(SysPageSize, 4096u);
  EXPECT_EQ(SysAllocGranularity, 65536u);
  EXPECT_STREQ(ClsTagName(0x00455252), "ERR");
  EXPECT_STREQ(ClsTagName(0x46494C45), "FILE");
  EXPECT_STREQ(ClsTagName(0), "");
}

TEST(ObjectsDeathTest, TheExitHookCollects) {
  auto end = [] {
    Make("FILE", 8, 1);
    ClsExitHook = [] {
      fputs(ClassLists[8] ? "there " : "gone ", stderr);
      ClsExitHook = nullptr;
    };
    atexit([] {});
    exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(0), "there ");
  auto procedure = [] {
    Make("FILE", 8, 1, [](uintptr_t) -> uint32_t {
      fputs("collected", stderr);
      return 0;
    });
    exit(3);
  };
  EXPECT_EXIT(procedure(), testing::ExitedWithCode(3), "collected");
}

}  // namespace
}  // namespace quern
