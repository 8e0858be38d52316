// Expansion of environment references.

#include "tests/support/test.h"

namespace quern {
namespace {

// What the buffer holds after an expansion, and whether it was returned.
struct Expanded {
  std::string text;
  bool returned;
  bool operator==(const Expanded&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Expanded& expanded) {
  return out << '"' << expanded.text << "\" " << (expanded.returned ? "returned" : "null");
}

Expanded Expand(const char* text) {
  bool returned = CslExpand(text) != nullptr;
  char* taken = CslExpandTake();
  Expanded expanded{taken ? taken : "", returned};
  free(taken);
  return expanded;
}

TEST(Expand, ReferencesAreReplacedFromTheLeft) {
  SetEnvironmentVariableA("TVX_A", "alpha");
  SetEnvironmentVariableA("TVX_B", "b");
  SetEnvironmentVariableA("TVX_NESTED", "<%TVX_A%>");
  SetEnvironmentVariableA("TVX_HALF", "TVX_B%");
  SetEnvironmentVariableA("TVX_UNSET", nullptr);
  EXPECT_EQ(Expand("%TVX_A%"), (Expanded{"alpha", true}));
  EXPECT_EQ(Expand("x%TVX_A%y%TVX_B%z"), (Expanded{"xalphaybz", true}));
  EXPECT_EQ(Expand("%TVX_B%%TVX_B%%TVX_A%"), (Expanded{"bbalpha", true}));
  EXPECT_EQ(Expand("[%TVX_NESTED%]"), (Expanded{"[<alpha>]", true}));
  EXPECT_EQ(Expand("%TVX_A%TVX_B"), (Expanded{"alphaTVX_B", true}));   // no bare name any more
  EXPECT_EQ(Expand("%%TVX_HALF%"), (Expanded{"%%TVX_HALF%", false}));  // "%%" names nothing
  SetEnvironmentVariableA("%TVX_B", "no name of a reference");
  EXPECT_EQ(Expand("%%TVX_B%"), (Expanded{"%%TVX_B%", false}));
  EXPECT_EQ(Expand("%TVX_UNSET%"), (Expanded{"%TVX_UNSET%", false}));
  EXPECT_EQ(Expand("%TVX_UNSET%%TVX_A%"), (Expanded{"%TVX_UNSET%alpha", true}));
  // The walk goes on behind an unknown name by as much again as the name lies from the start.
  EXPECT_EQ(Expand("1%TVX_UNSET%--%TVX_A%"), (Expanded{"1%TVX_UNSET%--alpha", true}));
  EXPECT_EQ(Expand("1234%TVX_UNSET%%TVX_A%"), (Expanded{"1234%TVX_UNSET%%TVX_A%", false}));
  EXPECT_EQ(Expand("123456789%TVX_UNSET%end"), (Expanded{"123456789%TVX_UNSET%end", false}));
  EXPECT_EQ(Expand("TVX_A"), (Expanded{"alpha", true}));  // a bare name
  EXPECT_EQ(Expand("TVX_NESTED"), (Expanded{"<%TVX_A%>", true}));
  EXPECT_EQ(Expand("TVX_UNSET"), (Expanded{"TVX_UNSET", false}));
  EXPECT_EQ(Expand("100%"), (Expanded{"100%", false}));
  // 20 bytes are left behind the text, and the signs of what was replaced.
  for (auto [given, size] : {std::pair("TVX_A", 25u), std::pair("x%TVX_A%y%TVX_B%z", 33u),
                             std::pair("[%TVX_NESTED%]", 33u), std::pair("%TVX_UNSET%", 31u)}) {
    CslExpand(given);
    EXPECT_EQ(CslCurrent->bufExpand.nSize, size) << given;
  }
  EXPECT_EQ(CslExpand(""), nullptr);
  EXPECT_EQ(CslExpand(nullptr), nullptr);
  EXPECT_EQ(CslExpandTake(), nullptr);
}

TEST(Expand, EmptyValuesExist) {
  SetEnvironmentVariableA("TVX_EMPTY", "");
  SetEnvironmentVariableA("TVX_A", "alpha");
  EXPECT_EQ(Expand("<%TVX_EMPTY%>"), (Expanded{"<>", false}));
  EXPECT_EQ(Expand("%TVX_EMPTY%%TVX_A%"), (Expanded{"alpha", true}));
  EXPECT_EQ(Expand("%TVX_A%%TVX_EMPTY%"), (Expanded{"alpha", false}));  // the last one was empty
}

TEST(Expand, LongAndEndlessValuesEnd) {
  std::string large(32000, 'v');
  SetEnvironmentVariableA("TVX_LARGE", large.c_str());
  EXPECT_EQ(Expand("<%TVX_LARGE%|%TVX_LARGE%>"), (Expanded{"<" + large + "|" + large + ">", true}));
  SetEnvironmentVariableA("TVX_SELF", "%TVX_SELF%");
  EXPECT_EQ(Expand("a%TVX_SELF%z"), (Expanded{"a%TVX_SELF%z", true}));
  // Both kinds of growth have an end: 1000 replacements, or the first text above 2^20 bytes.
  SetEnvironmentVariableA("TVX_SLOW", "x%TVX_SLOW%");
  EXPECT_EQ(Expand("%TVX_SLOW%"), (Expanded{std::string(1000, 'x') + "%TVX_SLOW%", true}));
  SetEnvironmentVariableA("TVX_FAST", ("%TVX_FAST%" + large).c_str());
  std::string fast = "%TVX_FAST%";
  while (fast.size() <= 1 << 20) fast += large;
  EXPECT_EQ(Expand("%TVX_FAST%"), (Expanded{fast, true}));
}

TEST(Expand, TextWithinTheBuffer) {
  SetEnvironmentVariableA("TVX_A", "alpha");
  SetEnvironmentVariableA("TVX_LATER", nullptr);
  char* text = CslExpand("%TVX_A%0123456789012345678901234567890%TVX_LATER%tail");
  ASSERT_NE(text, nullptr);
  SetEnvironmentVariableA("TVX_LATER", "now");
  EXPECT_STREQ(CslExpand(text + 30), "567890nowtail");
  // The end of a text within the buffer stays whole.
  EXPECT_EQ(CslExpand("bz%TVX_Q%"), nullptr);
  SetEnvironmentVariableA("TVX_Q", "q");
  EXPECT_STREQ(CslExpand(CslCurrent->bufExpand.pData + 1), "zq");
}

TEST(Expand, ConsolesAreMadeOnDemandAndReleased) {
  EXPECT_EQ(CslClass(0), 0u);
  EXPECT_EQ(CslCurrent, nullptr);
  EXPECT_EQ(CslExpandTake(), nullptr);
  CslExpand("x");
  EXPECT_EQ(CslCurrent->header.flags, INST_OWNED | INST_IMPLICIT);
  Console own = {};
  EXPECT_EQ(CslSelect(&own), &own);
  EXPECT_EQ(ClsGarbage(kCslTag), 0u);
  EXPECT_EQ(ClassLists[kCslClass], nullptr);
  EXPECT_EQ(CslCurrent, nullptr);
  own.header.tag = ClassTag("FILE");
  EXPECT_EQ(CslSelect(&own), nullptr);
  EXPECT_EQ(ErrLine, 33);
  EXPECT_EQ(tavrix_test::ClearedTrail(), "1000.04");
}

}  // namespace
}  // namespace quern
