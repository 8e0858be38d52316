// The error stack: entries, flags and trail, and the texts and reports that are made of them.

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::Line;

constexpr char kModule[] = "c:\\folder\\m.file.cpp";

const MessageRow kOwn[] = {
    {39, "thirty-nine", ERR_INFO}, {60, "sixty %d", ERR_ERROR}, {0, "not among them: %d", 0}};
const MessageRow kNull[] = {{40, nullptr, 0}, {50, "", 0}, {0, nullptr, 0}};
const MessageRow* const kTables[] = {nullptr, kOwn, kNull};

// Does what a letter and a number say. Returns what that tells.
std::string Told(char letter, uint32_t n) {
  char text[4096] = "none";
  if (letter == '0') ErrThrow(1), ErrClear();
  if (letter == 'c') return ErrPush(n), ErrLast ? "not reset" : "";
  if (letter == 'r') ErrThrow(n);
  if (letter == 't') ErrPushEntry(ERR_TEXT, n != 1 ? n : reinterpret_cast<uintptr_t>(""));
  if (letter == 'h') ErrPushEntry(ERR_TEXT | ERR_SKIP, n);
  if (letter == 's') ErrPushEntry(ERR_SYSVALUE, n);
  if (letter == 'm') ErrPushText(0, n);
  if (letter == 'a') return Line("%d", ErrRaise(kModule, 7, n));
  if (letter == 'A') return Line("%d", ErrRaiseText("cfile.cpp", 187, n, 31, "x"));
  if (letter == 'B') return Line("%d", ErrRaiseText("", 8, n, "below"));
  if (letter == 'F') ErrFile = nullptr;
  if (letter == 'S') SetLastError(n);
  if (letter == 'T') ErrSetTable(nullptr, kTables[n]);
  if (letter == 'i') return ErrInfo(text, static_cast<int32_t>(n)), text;
  if (letter == 'g') return ErrGetText(text, 0), text;
  if (letter == 'p') return ErrReport(text, ERR_REPORT_COMPOSE | n), text;
  if (letter == 'l') return Line("%d@%d", ErrLast, ErrLine);
  if (letter == 'n') return Line("%u", ErrCurrent->nCount);
  if (letter == 'x') return Line("%X", std::exchange(ErrCurrent->nPending, 0));
  if (letter == 'f') return std::string(ErrFormat(n, 5) ? ErrFormat(n, 5) : "null");
  if (letter == 'b') return ReportBuffer;
  if (letter != 'e') return "";
  const ErrorEntry& entry = ErrCurrent->entries[n];
  return Line("%X:%X", entry.flags, static_cast<uint32_t>(entry.value));
}

// A line holds letters with numbers and, behind "=", what they tell on an empty stack.
void Expect(const std::string& transcript) {
  std::istringstream lines(transcript);
  for (std::string line, told = "="; std::getline(lines, line); told = "=") {
    Told('0', 0);
    std::istringstream words(line.substr(0, line.find(" =")));
    for (std::string word; words >> word;) {
      std::string text = Told(word[0], static_cast<uint32_t>(strtoul(&word[1], nullptr, 16)));
      if (!text.empty()) told += " " + text;
    }
    EXPECT_EQ(line.substr(line.find('=')), told) << line;
  }
}

TEST(Errors, EntriesMakeTheTrail) {
  Expect(R"(c1 r c2 r i-1 i0 c3 r i1 = 02.01 02 03.02
c5 c3 r i-1 = 0305
c1 r c5 c3 r i-1 c2 i0 = 0305.01 02.0305
c5 c3 t1 r c1 r i-1 = 01:0305
c1 r c0 r i-1 = 01
c1 r c2 h r i0 c3 r i-1 = none 03.01
c1 r h c2 r i-1 i0 = 01 none
c1 c2 t1 c3 c4 r i-1 r i-1 = 04030201 04030201
r c1 r i-1 n = 01 1
cC0120005 c10000006 e0 e1 r10000007 e0 e1 l x = C4000000:5 D4000000:6 C4000000:5 DC000000:6 -7@0 0
t6B640000 s2000010 e0 e1 = 2000000:6B640000 1000000:10
a2 l i0 a3E8 i0 i-1 = -2 2@7 02 -1000 1000 1000.02
S4D2 a20000003 e0 i-1 a80000000 l i0 = -3 1000000:4D2 03 0 0@7 none
A80000003 e0 x = -3 84000000:3 0)");
}

TEST(Errors, EntriesHaveTexts) {
  Expect(R"(m1D g x m1F g x = Illegal file-open-mode specified 8000 Failed to open %s 8000
m0 g x f1D = Missing or undefined error message 800 null
m27 g x = Reference by illegal pointer 0x00000027 80005000
T1 m27 g f27 x m2D g x f2D = thirty-nine thirty-nine 2000 not among them: 45 0 not among them: 5
m1D g x f1D = Illegal file-open-mode specified 8000 not among them: 5
m3C g x f3C x = sixty %d 8000 sixty 5 8000
m3D g x f3D = Reference by illegal pointer 0x0000003D 80005000 null
T2 m28 g x f28 = Reference by illegal pointer 0x00000000 80005000 null
m2D g x f2D = Reference by illegal pointer 0x00000000 80005000 null
T0 m2D g = Reference by illegal pointer 0x0000002D)");
}

TEST(Errors, ReportsAreComposed) {
  Expect(
      R"(A80000013 n a64 p0 p1 n = -19 2 -100 Error 100 (M7): Error 100:19 (M7): Failed to open x 3
A80000013 a64 p1 p40000000 n = -19 -100 Error 100:19 (M7): Failed to open x Error 100:19 (M7): 0
c1 t123 r1 p40000000 = Error 01 (M7): Reference by illegal pointer 0x00000123
B9 sFFFE g l n b = -9 none 1@341 0 Trace 01:09 (CERR341): below
B8 sFFFE c3 r3 p40000000 n l b = -8 Error 03:08 (8): 0 0@341 Trace 01.03:08 (CERR341): below
B7 F p0 = -7 Error 07 (8): below)");
#ifndef _WIN32  // where there is memory at such addresses
  Expect("a2000005 p0 = -33554437 Error 33554437 (M7): Reference by illegal pointer 0x02000005");
#endif
}

TEST(Errors, AreClearedAndForgotten) {
  char trail[64] = "";
  EXPECT_EQ(ErrInfo(trail, -1), nullptr);
  EXPECT_EQ(ErrClear(), -1);
  EXPECT_EQ(ErrCurrent, nullptr) << "asking makes no stack";
  SetLastError(5);
  ErrRaise(kModule, 13, 1000);
  EXPECT_EQ(XErrorInfo(trail), 0);
  EXPECT_STREQ(trail, "1000");
  EXPECT_EQ(ErrClear(), 0);
  EXPECT_EQ(GetLastError(), 0u);
}

TEST(Errors, StacksAreAttachedAndReplaced) {
  EXPECT_EQ(ErrSetTable(nullptr, kOwn), ErrCurrent);
  EXPECT_EQ(ErrCurrent->nHighest, 60u);
  EXPECT_EQ(ErrCurrent->header.flags, INST_OWNED);  // not on demand
  ErrorStack own = {}, *first = ErrCurrent;
  const std::string longText(100, 'x');
  const char* kept = ErrText(31, longText.c_str());
  EXPECT_EQ(ErrStackAttach(&own), &own);
  EXPECT_EQ(own.nHighest, 39u);
  ErrClass(0);
  EXPECT_EQ(own.header.tag, 0u);
  EXPECT_EQ(kept, "Failed to open " + longText) << "texts belong to their stack";
  EXPECT_EQ(ErrStackAttach(first), first);
  EXPECT_EQ(ErrSetTable(nullptr, nullptr), first);
  EXPECT_EQ(first->nHighest, 39u);
  EXPECT_EQ(ErrClass(kCollectRequest), 0u);
  EXPECT_EQ(ErrCurrent, nullptr);
}

}  // namespace
}  // namespace quern
