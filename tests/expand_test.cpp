// Expansion of environment references.

#include "tests/support/test.h"

namespace quern {
namespace {

// What the buffer holds after an expansion, with "!" where nothing was returned.
std::string Expand(const char* text) {
  const bool returned = CslExpand(text) != nullptr;
  char* taken = CslExpandTake();
  const std::string held = taken ? taken : "";
  free(taken);
  return returned ? held : held + "!";
}

TEST(Expand, ReferencesAreReplacedFromTheLeft) {
  for (auto [name, value] : {std::pair("A", "alpha"),
                             {"B", "b"},
                             {"N", "<%A%>"},
                             {"HALF", "B%"},
                             {"%B", "no name of a reference"},
                             {"E", ""},
                             {"SELF", "%SELF%"}})
    SetEnvironmentVariableA(name, value);
  SetEnvironmentVariableA("UNSET", nullptr);
  // "%%" names nothing; the walk goes on behind an unknown name by as much again as the name lies
  // from the start; a bare name stands for its value; "!" where the last value was empty.
  std::istringstream rows(R"(
      %A%=alpha x%A%y%B%z=xalphaybz %B%%B%%A%=bbalpha [%N%]=[<alpha>] %A%B=alphaB
      %%HALF%=%%HALF%! %%B%=%%B%! %UNSET%=%UNSET%! %UNSET%%A%=%UNSET%alpha
      1%UNSET%--%A%=1%UNSET%--alpha 1234%UNSET%%A%=1234%UNSET%%A%!
      123456789%UNSET%end=123456789%UNSET%end! A=alpha N=<%A%> UNSET=UNSET! 100%=100%!
      <%E%>=<>! %E%%A%=alpha %A%%E%=alpha! a%SELF%z=a%SELF%z =!)");
  for (std::string row; rows >> row;) {
    const std::string text = row.substr(0, row.find('='));
    EXPECT_EQ(text + "=" + Expand(text.c_str()), row);
  }
  CslExpand("x%A%y%B%z");  // 20 bytes are left behind the text, and the signs of what was replaced
  EXPECT_EQ(CslCurrent->bufExpand.nSize, 33u);
}

// Growth has two ends: 1000 replacements, or the first text above 2^20 bytes.
TEST(Expand, LongAndEndlessValuesEnd) {
  const std::string large(32000, 'v');
  SetEnvironmentVariableA("SLOW", "x%SLOW%");
  EXPECT_EQ(Expand("%SLOW%"), std::string(1000, 'x') + "%SLOW%");
  SetEnvironmentVariableA("FAST", ("%FAST%" + large).c_str());
  std::string fast = "%FAST%";
  while (fast.size() <= 1 << 20) fast += large;
  EXPECT_EQ(Expand("%FAST%"), fast);
}

TEST(Expand, TextsWithinTheBufferStayWhole) {
  SetEnvironmentVariableA("A", "alpha");
  SetEnvironmentVariableA("Q", nullptr);
  char* text = CslExpand("%A%0123456789012345678901234567890%Q%tail");
  SetEnvironmentVariableA("Q", "now");
  EXPECT_STREQ(CslExpand(text + 30), "567890nowtail");
  EXPECT_EQ(ClsGarbage(kCslTag), 0u);
  EXPECT_TRUE(!CslCurrent && !ClassLists[kCslClass] && !CslExpandTake());
}

}  // namespace
}  // namespace quern
