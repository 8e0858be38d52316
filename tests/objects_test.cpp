// The registry: attaching, detaching, collecting, and what is traced of it.

#include "tests/support/test.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace quern {
namespace {

using tavrix_test::Traced;

struct Thing {
  InstanceHeader header;
  int value;
};

const uint32_t kTag = ClassTag("FILE");
constexpr uint32_t kSmall = sizeof(InstanceHeader) - 1;
std::string released;  // class number and value, in order
Thing* partner;        // what a procedure releases as well

uint32_t ThingClass(uintptr_t argument) {
  auto* thing = reinterpret_cast<Thing*>(argument);
  released += tavrix_test::Line("%u:%d ", thing->header.classNumber, thing->value);
  ClsDetach(thing->header.tag, &thing);
  return 0;
}

uint32_t KeepingClass(uintptr_t) {
  released += "kept ";
  if (partner) ThingClass(reinterpret_cast<uintptr_t>(std::exchange(partner, nullptr)));
  return 0;
}

uint32_t PairClass(uintptr_t argument) {
  KeepingClass(0);
  return ThingClass(argument);
}

Thing* Make(const char* tag, uint32_t classNumber, int value, ClassProc proc = ThingClass) {
  void* made = ClsAttach(ClassTag(tag), nullptr, classNumber, sizeof(Thing), proc);
  auto* thing = static_cast<Thing*>(made);
  thing->value = value;
  return thing;
}

TEST(Objects, CallersMemoryIsZeroedAtBothEnds) {
  Thing own;
  memset(&own, 0xAA, sizeof own);
  own.header.tag = 0;
  EXPECT_EQ(ClsAttach(kTag, &own, 8, sizeof own, ThingClass), &own);
  EXPECT_TRUE(ClsNew == 1 && own.header.flags == 0 && own.value == 0);
  own.value = 5;
  EXPECT_EQ(ClsAttach(kTag, &own, 3, 1, nullptr), &own);  // already one
  EXPECT_TRUE(ClsNew == 0 && own.value == 5);
  TraceLevel = 4;
  Thing* variable = &own;
  EXPECT_EQ(Traced([&] { ClsDetach(kTag, &variable); }),
            "CLS detach: deleted instance of class 'FILE'\n");
  EXPECT_TRUE(!variable && own.header.tag == 0 && own.value == 0);
}

TEST(Objects, CollectingIsNewestFirstFromTheHighestClassDown) {
  Thing *head = Make("FILE", 8, 1), *second = Make("FILE", 8, 2), *third = Make("FILE", 8, 3);
  EXPECT_TRUE(head->header.flags == INST_OWNED && third->header.pPrev == &second->header);
  ClsSavedFile = &head->header;
  ClsDetach(kTag, &head);
  EXPECT_TRUE(!ClsSavedFile && ClassLists[8] == &second->header);
  TraceLevel = 4;  // detaching is silent while collecting
  EXPECT_EQ(Traced([] { EXPECT_EQ(ClsGarbage(kTag), 0u); }),
            "CLS garbage: removed 2 instances of class 'FILE'\n");
  for (uint32_t number : {2u, 9u, 15u, 7u, 10u, 8u}) Make("ABCD", number, 0);
  Make("EFGH", 9, 99);
  ClsGarbage(ClassTag("EFGH"));  // only the head's tag is compared
  ClsFlags |= kClsArmed;         // even then nothing counts as garbage
  EXPECT_EQ(ClsGarbage(0), 0u);
  EXPECT_EQ(released, "8:3 8:2 15:0 10:0 9:99 9:0 8:0 7:0 2:0 ");
}

TEST(Objects, CollectingSurvivesProceduresThatReleaseOthersOrNothing) {
  Make("PAIR", 5, 1);
  partner = Make("PAIR", 5, 2);
  Make("PAIR", 5, 3, PairClass);
  Make("BARE", 6, 1, nullptr);
  Thing* kept = Make("KEEP", 4, 1, KeepingClass);
  ClsGarbage(0);
  EXPECT_TRUE(!ClassLists[6] && ClassLists[4] == &kept->header);
  ClsDetach(ClassTag("KEEP"), &kept);
  // No more calls than there were instances, also when it is the last one again.
  partner = Make("KEEP", 4, 2);
  kept = Make("KEEP", 4, 3, KeepingClass);
  ClsGarbage(ClassTag("KEEP"));
  EXPECT_EQ(released, "kept 5:2 5:3 5:1 kept kept 4:2 kept ");
  ClsDetach(ClassTag("KEEP"), &kept);
}

TEST(Objects, AttachingChecksInOrder) {
  static const Thing constant = {};  // in memory that cannot be written
  Thing fresh = {}, foreign = {};
  foreign.header.tag = 1234;
  auto* bad = reinterpret_cast<Thing*>(uintptr_t{0x1000});
  const struct {
    const Thing* memory;
    uint32_t tag, classNumber, size;
    const char* trail;
    int leaked;
  } kRows[] = {
      {&foreign, 0, 0, 0, "04", 0},        {&constant, kTag, 0, 99, "03", 0},
      {bad, kTag, 8, 99, "03", 0},         {nullptr, 0, 0, kSmall, "05", 0},
      {nullptr, kTag, 0, kSmall, "06", 0}, {&fresh, kTag, 0, kSmall, "06", 0},
      {&fresh, kTag, 8, kSmall, "", 0},    {nullptr, kTag, 8, kSmall, "", 0},
      {nullptr, 0, 8, 99, "05", 1},        {nullptr, kTag, 0, 99, "06", 1},
  };
#ifdef __SANITIZE_ADDRESS__
  __lsan::ScopedDisabler leaks;  // the block stays allocated on two paths
#endif
  ErrRaise("test", 1, 1), ErrClear();
  fresh.value = 5;
  for (const auto& row : kRows) {
    const int64_t before = tavrix_test::LiveBlocks();
    auto* memory = const_cast<Thing*>(row.memory);
    EXPECT_EQ(ClsAttach(row.tag, memory, row.classNumber, row.size, nullptr), nullptr);
    EXPECT_EQ(tavrix_test::LiveBlocks(), before + row.leaked);
    EXPECT_EQ(tavrix_test::ClearedTrail(), row.trail) << &row - kRows;
  }
  EXPECT_TRUE(fresh.value == 5 && !ClassLists[8]);
  Thing* variable = &fresh;
  EXPECT_TRUE(ClsDetach(1, nullptr) == -1 && ClsDetach(kTag, &variable) == -2);
}

// Links are followed as they are, whatever a caller made of the words.
TEST(Objects, InstancesAreKnownByTheirLinks) {
  Thing* things[] = {Make("FILE", 8, 1), Make("FILE", 8, 2), Make("FILE", 8, 3)};
  Thing loose = {};
  EXPECT_TRUE(ClsAlive(things[1]) && ClsLinked(kTag, 8, things[1]));
  EXPECT_FALSE(ClsLinked(kTag, 16, things[1]) || ClsLinked(1, 8, things[1]));
  EXPECT_FALSE(ClsLinked(kTag, 8, &loose) || ClsAlive(&loose));
  // The middle, the end, the beginning.
  for (int i : {1, 2, 0}) ThingClass(reinterpret_cast<uintptr_t>(things[i]));
  EXPECT_EQ(released, "8:2 8:3 8:1 ");
  EXPECT_EQ(ClassLists[8], nullptr);
}

// What a released instance's memory holds by then is not touched, be it like an instance.
TEST(Objects, ProceduresRefuseWhatIsReleased) {
  auto check = [](auto select, ClassProc proc) {
    alignas(16) char own[4096] = {}, like[4096];
    select(own);
    ASSERT_NE(own[0], 0);
    memset(like, 'x', sizeof like);
    memcpy(like, own, sizeof(uint32_t));  // the tag
    EXPECT_EQ(proc(reinterpret_cast<uintptr_t>(own)), 0u);
    EXPECT_EQ(own[sizeof(InstanceHeader)], 0);
    memcpy(own, like, sizeof own);
    EXPECT_EQ(proc(reinterpret_cast<uintptr_t>(own)), 0u);
    EXPECT_EQ(memcmp(own, like, sizeof own), 0);
  };
  check(CslSelect, CslClass);
  check(FileSelect, FileClass);
  check(FileFinderSelect, FileFinderClass);
  check(FmtSelect, FmtClass);
  check(MemAttach, MemClass);
  check(ScanSelect, ScanClass);
  check(ErrStackAttach, ErrClass);
}

TEST(ObjectsDeathTest, TheExitHookRunsBeforeTheCollection) {
  auto end = [] {
    Make("FILE", 8, 1, [](uintptr_t) -> uint32_t { return fputs(" collected", stderr), 0; });
    ClsExitHook = [] {
      fputs(ClsFlags & kClsArmed && ClsExiting() ? "armed" : "reported", stderr);
    };
    exit(3);
  };
  EXPECT_EXIT(end(), testing::ExitedWithCode(3), "^armed collected$");
  EXPECT_EXIT((ErrPush(1), end()), testing::ExitedWithCode(3), "reported collected$");
}

}  // namespace
}  // namespace quern
