// The registry: attaching, detaching, collecting, and what is traced of it.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Traced;

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
  EXPECT_EQ(ClsAttach(ClassTag("SCAN"), &own, 10, sizeof own.header - 1, nullptr), nullptr);
  TraceLevel = 4;
  Thing* variable = &own;
  EXPECT_EQ(Traced([&] { EXPECT_EQ(ClsDetach(ClassTag("FILE"), &variable), 0); }),
            "CLS detach: deleted instance of class 'FILE'\n");
  EXPECT_EQ(variable, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&own), sizeof own), std::string(sizeof own, '\0'));
  variable = Make("SCAN", 10, 1);
  EXPECT_EQ(Traced([&] { ClsDetach(ClassTag("SCAN"), &variable); }),
            "CLS detach: removed instance of class 'SCAN'\n");
  EXPECT_EQ(ClearedTrail(), "04.04");
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
  TraceLevel = 4;  // detaching is silent while collecting
  EXPECT_EQ(Traced([] { EXPECT_EQ(ClsGarbage(ClassTag("FILE")), 0u); }),
            "CLS garbage: removed 2 instances of class 'FILE'\n");
  EXPECT_EQ(released, (std::vector<std::string>{"8:3", "8:2"}));
  EXPECT_EQ(ClassLists[8], nullptr);
  EXPECT_EQ(Traced([] { ClsGarbage(ClassTag("FILE")); }), "");
  Make("FILE", 8, 4);
  EXPECT_EQ(Traced([] { ClsGarbage(ClassTag("FILE")); }),
            "CLS garbage: removed 1 instances of class 'FILE'\n");
  released.pop_back();
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

int keptCalls;

uint32_t KeepingClass(uintptr_t) {
  ++keptCalls;
  if (partner) ThingClass(reinterpret_cast<uintptr_t>(std::exchange(partner, nullptr)));
  return 0;
}

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
  // No more calls than there were instances, also when it is the last one again.
  partner = Make("KEEP", 4, 2);
  kept = Make("KEEP", 4, 3, KeepingClass);
  keptCalls = 0;
  ClsGarbage(ClassTag("KEEP"));
  EXPECT_EQ(keptCalls, 2);
  EXPECT_EQ(ClassLists[4], &kept->header);
  ClsDetach(ClassTag("KEEP"), &kept);
}

TEST(Objects, FailuresAreRaisedAndAllocationsMayFail) {
  auto attach = [](void* memory, uint32_t tag, uint32_t classNumber) {
    return ClsAttach(tag, memory, classNumber, sizeof(Thing), nullptr);
  };
  const uint32_t tag = ClassTag("FILE");
  Thing thing = {};
  Thing* variable = &thing;
  Thing* none = nullptr;
  EXPECT_EQ(ClsDetach(1, nullptr), -1);
  EXPECT_EQ(ClsDetach(tag, &variable), -2);
  EXPECT_EQ(variable, &thing);
  EXPECT_EQ(ClsDetach(tag, &none), -2);
  EXPECT_EQ(attach(nullptr, tag, 16), nullptr);
  EXPECT_EQ(ClearedTrail(), "02.02.01");
  // Too small: behind the checks of tag and class, and nothing is allocated or written.
  constexpr uint32_t kSmall = sizeof(InstanceHeader) - 1;
  int64_t blocks = tavrix_test::LiveBlocks();
  thing.value = 5;
  for (void* memory : {static_cast<void*>(nullptr), static_cast<void*>(&thing)}) {
    EXPECT_EQ(ClsAttach(0, nullptr, 1, kSmall, nullptr), nullptr);
    EXPECT_EQ(ClsAttach(tag, memory, 0, kSmall, nullptr), nullptr);
    EXPECT_EQ(ClsAttach(tag, memory, 8, kSmall, nullptr), nullptr);
  }
  EXPECT_EQ(tavrix_test::LiveBlocks(), blocks);
  EXPECT_EQ(thing.value, 5);
  EXPECT_EQ(ClearedTrail(), "06.05.06.05");
  {
    tavrix_test::AllocationFault fault(1);
    EXPECT_EQ(attach(nullptr, tag, 8), nullptr);
  }
  {
    tavrix_test::LeakExpected leak;  // the block stays allocated on these two paths, on purpose
    int64_t before = tavrix_test::LiveBlocks();
    EXPECT_EQ(attach(nullptr, 0, 8), nullptr);
    EXPECT_EQ(attach(nullptr, tag, 0), nullptr);
    EXPECT_EQ(tavrix_test::LiveBlocks(), before + 2);
  }
  EXPECT_EQ(ClearedTrail(), "06.05.02");
  static const Thing constant = {};  // in memory that cannot be written
  SetLastError(77);
  EXPECT_EQ(attach(const_cast<Thing*>(&constant), tag, 8), nullptr);
  EXPECT_EQ(ErrCurrent->entries[0].flags & ERR_SYSVALUE, ERR_SYSVALUE);
  EXPECT_EQ(attach(reinterpret_cast<void*>(uintptr_t{0x1000}), tag, 8), nullptr);
  EXPECT_EQ(ClearedTrail(), "03.03");
  EXPECT_STREQ(ErrFile, "cobj");
  EXPECT_EQ(ClassLists[8], nullptr);
}

// Links are followed as they are, whatever a caller made of the words.
TEST(Objects, InstancesAreKnownByTheirLinks) {
  Thing* things[] = {Make("FILE", 8, 1), Make("FILE", 8, 2), Make("FILE", 8, 3)};
  Thing loose = {};
  for (Thing* thing : things) {
    EXPECT_TRUE(ClsAlive(thing));
    for (uint32_t number : {7u, 8u, 9u, 16u})
      EXPECT_EQ(ClsLinked(ClassTag("FILE"), number, thing), number == 8) << number;
    EXPECT_FALSE(ClsLinked(ClassTag("SCAN"), 8, thing));
  }
  EXPECT_FALSE(ClsLinked(ClassTag("FILE"), 8, nullptr));
  EXPECT_FALSE(ClsLinked(ClassTag("FILE"), 8, &loose));
  EXPECT_FALSE(ClsAlive(&loose));
  EXPECT_FALSE(ClsAlive(nullptr));
  ErrRaise("test", 1, 1);
  EXPECT_TRUE(ClsAlive(ErrCurrent));
  ErrClear();
  for (uint32_t number : {8u, 16u}) {  // one that is linked nowhere leaves the lists alone
    Thing* variable = &loose;
    loose.header = {ClassTag("FILE"), number, sizeof loose, 0, nullptr, nullptr, nullptr};
    EXPECT_EQ(ClsDetach(ClassTag("FILE"), &variable), 0);
    EXPECT_EQ(ClassLists[8], &things[0]->header);
  }
  // The middle, the end, the beginning.
  for (int i : {1, 2, 0}) ThingClass(reinterpret_cast<uintptr_t>(things[i]));
  EXPECT_EQ(released, (std::vector<std::string>{"8:2", "8:3", "8:1"}));
  EXPECT_EQ(ClassLists[8], nullptr);
  // Zeroed memory that a list names already is taken as it is.
  ClassLists[8] = &loose.header;
  EXPECT_EQ(ClsAttach(ClassTag("FILE"), &loose, 8, sizeof loose, nullptr), &loose);
  EXPECT_EQ(ClsNew, 0u);
  EXPECT_EQ(loose.header.size, sizeof loose);
  ClassLists[8] = nullptr;
}

// What a released instance's memory holds by then is not touched, be it like an instance.
TEST(Objects, ProceduresRefuseWhatIsReleased) {
  auto check = [](auto select, ClassProc proc, uint32_t tag) {
    alignas(16) char own[4096] = {};
    select(own);
    ASSERT_EQ(memcmp(own, &tag, sizeof tag), 0);
    for (int call = 0; call < 2; ++call) {
      EXPECT_EQ(proc(reinterpret_cast<uintptr_t>(own)), 0u);
      EXPECT_EQ(own[sizeof(InstanceHeader)], call == 0 ? 0 : 'x');
      memset(own, 'x', sizeof own);
      memcpy(own, &tag, sizeof tag);
    }
    EXPECT_EQ(std::string(own + 4, 4092), std::string(4092, 'x'));
  };
  check(CslSelect, CslClass, ClassTag("CSL"));
  check(FileSelect, FileClass, ClassTag("FILE"));
  check(FileFinderSelect, FileFinderClass, ClassTag("FINF"));
  check(FmtSelect, FmtClass, ClassTag("FMT"));
  check(MemAttach, MemClass, ClassTag("MEM"));
  check(ScanSelect, ScanClass, ClassTag("SCAN"));
  check(ErrStackAttach, ErrClass, ClassTag("ERR"));
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
  EXPECT_STREQ(ClsTagName(0), "");
}

TEST(ObjectsDeathTest, TheExitHookCollects) {
  auto end = [] {
    Make("FILE", 8, 1);
    ClsExitHook = [] {
      fputs(ClassLists[8] ? "there " : "gone ", stderr);
      fputs(ClsFlags & kClsArmed && ClsExiting() ? "armed" : "reported", stderr);
      ClsExitHook = nullptr;
    };
    atexit([] {});
    exit(0);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(0), "there armed");
  EXPECT_EXIT((ErrPush(1), end()), testing::ExitedWithCode(0), "there reported");
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
