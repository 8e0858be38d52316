// Trees: what each call leaves in every link.

#include "tests/support/test.h"

namespace quern {
namespace {

tavrix_test::Elements<TreeLink> elements = {"^+-", 0, {}};
Tree tree;
Tree* given;  // what the calls get

// Elements are ordered by the last digit of their numbers.
int32_t Compare(const void* a, const void* b) {
  auto value = [](const void* of) {
    return std::stoi(elements.NameOf(static_cast<const TreeLink*>(of))) % 10;
  };
  return value(a) - value(b);
}

std::string Step(const tavrix_test::Words& w) {
  auto *link = elements.LinkAt(w[1]), *other = elements.LinkAt(w[2]);
  char* at = elements.At(w[1]);
  const uint32_t code = MemOperator(w[2].c_str());
  if (w[0] == "root") return tree.pRoot = link, "";
  if (w[0] == "uncompared") return tree.cbfCmpr = nullptr, "";
  if (w[0] == "treeless") return given = nullptr, "";
  if (w[0] == "add") return elements.NameOf(MemTreeAdd(given, at));
  if (w[0] == "get") return elements.NameOf(MemTreeGet(given, at, code));
  if (w[0] == "del") return elements.NameOf(MemTreeDel(given, at, code));
  return elements.NameOf(w[0] == "high"    ? MemTreeLinkHigh(given, other, link)
                         : w[0] == "low"   ? MemTreeLinkLow(given, other, link)
                         : w[0] == "last+" ? MemTreeLastHigh(link)
                         : w[0] == "last-" ? MemTreeLastLow(link)
                                           : MemTreeUnlink(given, link));
}

// Plays it on a tree to which elements were added.
void Expect(uint32_t offset, const std::vector<int>& added, const std::string& transcript) {
  elements = {"^+-", offset, {}};
  tree = {offset, 77, Compare, nullptr};
  given = &tree;
  for (int i : added) {
    const std::string name = std::to_string(i);
    tree.pRoot ? MemTreeAdd(&tree, elements.At(name)) : tree.pRoot = elements.LinkAt(name);
  }
  auto read = [] { return elements.Read({{"root=", elements.NameOf(tree.pRoot)}}); };
  EXPECT_EQ(tavrix_test::Played(transcript, Step, read), transcript) << offset;
}
void Expect(const std::vector<int>& added, const std::string& transcript) {
  for (uint32_t offset : {0u, elements.kOffset}) Expect(offset, added, transcript);
}

// Compat: nothing goes to an empty tree, an equal element takes the high of side the parent, and
// the parent of one that equals the root is that of the last call.
TEST(Tree, AddsBelowTheLastParent) {
  Expect(0, {}, "add 5 : . !3, root 5 : ; root=5, add 15 : . !3 ; root=15");
  Expect({}, R"(
    root 5 : ; root=5, add 2 : 5 ; 2^5 5+2, add 8 : 5 ; 5-8 8^5, add 1 : 2 ; 1^2 2+1
    add 3 : 2 ; 2-3 3^2, add 12 : 5 ; 12^5 2^12 5+12, add 18 : 5 ; 12^18 18^5 5+18
    add 15 : 5 ; 15^5 18^15 5+15, root 9 : ; root=9, add 19 : 5 ; 15^19 19^5 5+19
    root . : ; root=., add 2 : 5 ; 2+. 2-.)");
}

TEST(Tree, NamesElements) {
  Expect({5, 2, 8, 1, 3}, R"(
    get 3 = : 3, get 13 == : 3, get 4 = : ., get 5 ! : 2, get 5 != : 2, get 3 ! : 5, get 3 != : 5
    get 5 < : 2, get 6 < : 5, get 1 < : ., get 5 > : ., get 3 > : 5, get 7 > : 8, get 5 <= : 5
    get 2 <= : 2, get 8 <= : 5, get 5 >= : 5, get 8 >= : 8, get 1 >= : 5, get 3 << : 2
    get 5 << : ., get 2 >+ : 1, get 2 >- : 3, get 8 >+ : ., get 9 |< : 8, get 9 >| : 1, last+ 2 : 1
    last- 2 : 3, last+ . : ., last- . : ., get 5 ?? : . =02@1241, get 5 >< : . =02@1241
    del 5 =! : . =02@1241, get . |< : . !1, add . : . !1, uncompared :, get 5 |< : . =01@1224
    del 5 = : . =01@1224, add 9 : . !2, treeless :, get 5 |< : . !1, add 5 : . !1)");
}

TEST(Tree, LinksBetweenAParentAndItsChild) {
  Expect({}, R"(
    high 5 . : 5 ; root=5, high 4 . : 4 ; 4+5 root=4, low 3 . : 3 ; 3-4 root=3
    high 6 3 : 6 ; 3+6 6^3, high 7 3 : 7 ; 3+7 6^7 7+6 7^3, low 8 3 : 8 ; 3-8 4^8 8-4 8^3
    low 1 7 : 1 ; 1^7 7-1, high 7 8 : 7 ; 7+. 7-. 7^8 8+7, low 7 5 : 7 ; 5-7 7^5
    high 2 7 : 2 ; 2^7 7+2, low 7 1 : 7 ; 1-7 7+. 7^1)");
}

// Compat: parent and children go on pointing at the node; its own pPrev names what replaces it.
TEST(Tree, UnlinksAndLeavesTheNeighbours) {
  const std::vector<int> large = {5, 2, 8, 1, 3, 0, 4, 7, 9, 6};
  Expect(large, "unlink 1 : 1 ; 0^2 1^0");
  Expect(large, "unlink 2 : 2 ; 2^3 3+1 3^5");
  Expect(large, "unlink 5 : 5 ; 6+2 6-8 6^. 7+. root=6");
  Expect(large, "unlink 8 : 8 ; 7-9 7^5 8^7, unlink 8 : 8 ; 7^7");
  Expect({2, 8, 4, 6, 7, 9}, "unlink 8 : 8 ; 6-. 7+4 7-9 7^2 8^7");
  Expect({5, 9, 6, 7}, "unlink 5 : 5 ; 6-9 6^. 9+. root=6");
  Expect({5, 2}, "unlink 5 : 5 ; 2^. root=2, unlink 2 : 2 ; root=.");
  Expect({5}, "low 3 . : 3 ; 3-5 root=3, unlink 3 : 3 ; 5-5 root=5");  // 5 names no parent
  Expect(0, large, "del 8 = : 8 ; 7-9 7^5 8^7, del 19 = : 9 ; 9^., del 5 << : .");
  // Compat: a deletion counts the offset in whole links, and so takes out another node.
  Expect(elements.kOffset, large, "del 8 = : 8 ; 9^., del 5 < : 2 ; 3^4 4^2");
}

TEST(Tree, Dumps) {
  Expect(elements.kOffset, {5, 2, 8}, "");
  auto dump = [] {
    for (int i = 0; i < 2; ++i) MemTreeDump(i ? nullptr : &tree, elements.LinkAt("13"));
  };
  EXPECT_EQ(tavrix_test::Numbered(tavrix_test::Traced(dump)),
            R"(Tree (@0): pRoot=@1; nCount=77; nOffset=8; cbfCmpr=@2;
0001 Node (@3): pPrev=@1; pHigh=0; pLow=0; Cmpr=5;
0002 Node (@1): pPrev=0; pHigh=@4; pLow=@3; Cmpr=2;
0003 Node (@4): pPrev=@1; pHigh=0; pLow=0; Cmpr=-1;
)");
}

}  // namespace
}  // namespace quern
