// Chains: what each call leaves in every link.

#include "tests/support/test.h"

namespace quern {
namespace {

tavrix_test::Elements<ChainLink> elements = {"<>", 0, {}};
Chain chain;
Chain* given;  // what the calls get

int32_t Compare(const void* a, const void* b) {
  return static_cast<int32_t>(static_cast<const char*>(a) - static_cast<const char*>(b)) /
         static_cast<int32_t>(elements.kStride);
}

// Modes are operators, or a number sign and a count.
uint32_t Mode(const std::string& text) {
  if (text[0] != '#') return MemOperator(text.c_str());
  return MEM_INDEX | static_cast<uint32_t>(text[1] - '0');
}

std::string Step(const tavrix_test::Words& w) {
  auto *at = elements.At(w[1]), *other = elements.At(w[2]);
  auto *link = elements.LinkAt(w[1]), *to = elements.LinkAt(w[2]);
  const uint32_t mode = Mode(w[2]);
  if (w[0] == "uncompared") return chain.cbfCmpr = nullptr, "";
  if (w[0] == "chainless") return given = nullptr, "";
  if (w[0] == "behind") return elements.NameOf(MemChainLinkAfter(given, link, to));
  if (w[0] == "before") return elements.NameOf(MemChainLinkBefore(given, link, to));
  if (w[0] == "unlink") return elements.NameOf(MemChainUnlink(given, link));
  return elements.NameOf(w[0] == "remove"    ? MemChainRemove(given, at)
                         : w[0] == "after*"  ? MemChainAddAfter(given, at, other)
                         : w[0] == "before*" ? MemChainAddBefore(given, at, other)
                         : w[0] == "add"     ? MemChainAdd(given, at, mode)
                         : w[0] == "add>"    ? MemChainAdd(given, at, mode | MEM_AFTER)
                         : w[0] == "add<"    ? MemChainAdd(given, at, mode | MEM_BEFORE)
                         : w[0] == "get"     ? MemChainGet(given, at, mode)
                                             : MemChainDel(given, at, mode));
}

// Plays it on a chain of the elements 0 to `count` - 1. Its own words are "[", "]" and "#": first,
// last and count.
void Expect(uint32_t offset, int count, const std::string& transcript) {
  elements = {"<>", offset, {}};
  chain = {offset, 0, Compare, nullptr, nullptr};
  given = &chain;
  for (int i = 0; i < count; ++i)
    MemChainLinkAfter(&chain, elements.LinkAt(std::to_string(i)), nullptr);
  auto read = [] {
    return elements.Read({{"[", elements.NameOf(chain.pFirst)},
                          {"]", elements.NameOf(chain.pLast)},
                          {"#", std::to_string(chain.nCount)}});
  };
  EXPECT_EQ(tavrix_test::Played(transcript, Step, read), transcript) << offset;
}
void Expect(int count, const std::string& transcript) {
  for (uint32_t offset : {0u, elements.kOffset}) Expect(offset, count, transcript);
}

TEST(Chain, LinksTellTheirNeighbours) {
  Expect(0, R"(
    behind 0 : 0 ; #1 [0 ]0, behind 1 : 1 ; #2 0>1 1<0 ]1, behind 2 0 : 2 ; #3 0>2 1<2 2<0 2>1
    before 3 : 3 ; #4 0<3 3>0 [3, before 4 1 : 4 ; #5 1<4 2>4 4<2 4>1
    unlink 2 : 2 ; #4 0>4 2<. 2>. 4<0, unlink 3 : 3 ; #3 0<. 3>. [0, unlink 1 : 1 ; #2 1<. 4>. ]4
    remove 4 : 4 ; #1 0>. 4<. ]0, remove 0 : 0 ; #0 [. ]., before 5 : 5 ; #1 [5 ]5
    before* 6 5 : 6 ; #2 5<6 6>5 [6, after* 7 5 : 7 ; #3 5<7 6>7 7<6 7>5
    after* 4 : 4 ; #4 4>6 6<4 [4, before* 3 : 3 ; #5 3>4 4<3 [3, chainless :
    behind 0 5 : 0 ; 0<5 5>0, unlink 5 : 5 ; 0<7 5<. 5>. 7>0, before 1 6 : 1 ; 1<4 1>6 4>1 6<1
    before 2 : 2, behind 5 : 5)");
}

TEST(Chain, AddsWhereTheModeNames) {
  Expect(3, R"(
    add> 3 |< : 3 ; #4 0>3 1<3 3<0 3>1, add> 4 >| : 4 ; #5 2>4 4<2 ]4
    add< 5 |< : 5 ; #6 0<5 5>0 [5, add< 6 >| : 6 ; #7 2>6 4<6 6<2 6>4
    add 7 |< : 5 ; 0<7 5>. 7>0 [7)");
  Expect(2, R"(
    add> 2 #0 : 2 ; #3 0>2 1<2 2<0 2>1, add< 3 #0 : 3 ; #4 1<3 2>3 3<2 3>1
    add> 4 #1 : 4 ; #5 0>4 2<4 4<0 4>2, add< 5 #1 : 5 ; #6 1<5 3>5 5<3 5>1
    add 6 #0 : 1 ; 1<. 5>6 6<5 ]6, add 7 #1 : 6 ; 5>7 6<. 7<5 ]7)");
  Expect(3, R"(
    add> 3 = : 3 ; #4 2>3 3<2 ]3, add< 4 != : 4 ; #5 0<4 4>0 [4, add 5 < : 3 ; 2>5 3<. 5<2 ]5)");
}

TEST(Chain, NamesElements) {
  Expect(3, R"(
    get 1 |< : 0, get 1 >| : 2, get 1 << : 0, get 1 >> : 2, get 0 << : ., get 2 >> : .
    get 1 #0 : 2, get 1 = : ., get 1 != : ., get 1 > : ., get 1 < : ., get 1 >= : ., get 1 <= : .
    get 1 == : . =02@1012, del 1 <> : . =02@1012, add 3 | : . =02@973, add> 3 ? : . =02@973
    get . |< : . !1, unlink . : ., uncompared :, get 1 = : . =10@1002, get 1 != : . =10@1003
    get 1 > : . =10@1004, get 1 < : . =10@1005, get 1 >= : . =10@1006, get 1 <= : . =10@1007
    add 3 = : . =10@963, add< 3 <= : . =10@968, chainless :, get 1 |< : . !1, add 1 |< : . !1)");
  Expect(0, 3, R"(
    del 1 |< : 0 ; #2 0>. 1<. [1, del 1 >> : 2 ; #1 1>. 2<. ]1, del 1 << : .
    del 1 >| : 1 ; #0 [. ].)");
  // Compat: a deletion counts the offset in whole links, and so takes out another one.
  Expect(elements.kOffset, 4, R"(
    del 1 |< : 0 ; #3 0>2 1<. 1>. 2<0, del 0 >> : 2 ; #2 2>. 3<. ]2, del 0 << : .)");
}

}  // namespace
}  // namespace quern
