// Memory as text: hex digits, dumps and structures.

#include "tests/support/test.h"

namespace quern {
namespace {

// What a call prints.
template <typename Call>
std::string Printed(Call call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

TEST(Format, HexGroupsDigitsBesideTheirText) {
  const std::string bytes = "Hello\x7F\x80\n\xFF";
  const std::pair<uint32_t, const char*> kRows[] = {
      {0, "48 65 6C 6C 6F 7F 80 0A FF"},
      {3, "48656C6C6F7F800AFF"},
      {8, "48656C6C 6F7F800A FF"},
      {FMT_CHARS, "Hello.\x80.\xFF"},
      {FMT_TEXT | 1, "H(48656C6C6F7F800AFF)"},
      {FMT_TEXT | 4, "Hell(4865)llo\x7F(6C6C)o\x7F\x80\n(6F7F)\x80\n\xFF(800A)\xFF(FF)"},
      {FMT_TEXT | FMT_CHARS | 6,
       "Hello\x7F(H)ello\x7F\x80(e)llo\x7F\x80\n(l)lo\x7F\x80\n\xFF(l)o\x7F\x80\n\xFF(o)"
       "\x7F\x80\n\xFF(.)\x80\n\xFF(\x80)\n\xFF(.)\xFF(\xFF)"},
  };
  for (auto [flags, text] : kRows) {
    char area[100], place[100] = "Hello\x7F\x80\n\xFF";
    EXPECT_STREQ(FmtHex(bytes.data(), 9, nullptr, flags), text) << flags;
    EXPECT_STREQ(FmtHex(bytes.data(), 9, area, flags), text) << flags;
    EXPECT_STREQ(FmtHex(place, 0xFFFFFFFF, place, flags), text) << flags;
    // No more memory than the text needs, but for its last group.
    const std::string much(10'000, '=');
    FmtClass(0);
    FmtHex(much.data(), 10'000, nullptr, flags);
    const MemBuf& made = CurrentFormatter->mbText;
    EXPECT_LT(made.nAlloc - made.nSize, flags % 2 ? 20'000u : 128u) << flags;
  }
  char* own = FmtHex("0123456789012345678", 19, nullptr, 0);  // a text that it has made itself
  EXPECT_EQ(strlen(FmtHex(own, 56, own, 0)), 167u);
  EXPECT_TRUE(FmtHexDigit(9) == '9' && FmtHexDigit(15) == 'F' && FmtHexDigit(16) == '?');
}

std::string Unhex(const std::string& text, uint32_t mode) {
  char bytes[64];
  memset(bytes, '#', sizeof bytes);
  const uint32_t count = FmtUnhex(text.c_str(), static_cast<uint32_t>(text.size()), bytes, mode);
  EXPECT_TRUE(count == 0 || bytes[count] == '\0') << text;
  return FmtHex(bytes, count, nullptr, 2);
}

TEST(Format, UnhexReadsWhatPeopleWrite) {
  const struct {
    uint32_t mode;
    const char *text, *bytes;
  } kRows[] = {
      {UNHEX_BYTES, "4142 43", "41 42 43"},
      {UNHEX_BYTES, "ABC", "AB C0"},
      {UNHEX_FIT, "0x1F 1Fh . ff", "1F 1F FF"},
      {UNHEX_FIT, "123", "23 01"},
      {UNHEX_FIT, "12x", "01"},
      {UNHEX_FIT, "12345", "45 23 01"},
      {UNHEX_WORDS, "1 12345", "01 00 45 23 01 00"},
      {UNHEX_LONG, "123456789", "78 56 34 12 09 00 00 00"},
      {UNHEX_BYTES, "12 zz", ""},
      {0, "12", ""},
  };
  for (const auto& row : kRows) EXPECT_EQ(Unhex(row.text, row.mode), row.bytes) << row.text;
  std::string skipped, digits;  // the characters, alone and behind a digit
  for (char c = CHAR_MIN; c != 0 || digits.empty(); ++c) {
    const std::string alone = Unhex({c}, UNHEX_FIT), behind = Unhex({'1', c}, UNHEX_FIT);
    if (c != 0 && alone.empty() && !behind.empty()) skipped += c + behind;
    if (!alone.empty()) digits += c + behind;
    if (c == CHAR_MAX) break;
  }
  EXPECT_EQ(skipped, " 01-01.01H01h01");
  EXPECT_EQ(digits, "010111212313414515616717818919A1AB1BC1CD1DE1EF1Fa1Ab1Bc1Cd1De1Ef1F");
}

TEST(Format, DumpsShowLabelsDigitsAndCharacters) {
  const std::string digits = " 41 7F C4                                         A.\xC4\n";
  const std::tuple<uint32_t, int32_t, std::string> kRows[] = {
      {0, 16, digits},
      {DUMP_OFFSET, 16, "0xFFFFFFF0:" + digits},
      {DUMP_HEADER | DUMP_ADDRESS, 256, "   Address:0x"},
      {DUMP_HEADER | DUMP_RULER | DUMP_OFFSET | DUMP_ADDRESS, -5, "    Offset:  0  1  2"}};
  for (const auto& [flags, size, wanted] : kRows) {
    FmtLineBytes = size;
    const std::string lines = Printed([&, f = flags] { FmtDump("A\x7F\xC4", 3, 0xFFFFFFF0, f); });
    EXPECT_TRUE(lines.starts_with(wanted)) << flags << lines;
  }
  // Lines hold from 1 to 256 bytes.
  const std::string bytes(700, 'x');
  for (auto [size, lines] : {std::pair{-5, 700}, {1, 700}, {256, 3}, {257, 3}, {40, 18}}) {
    FmtLineBytes = size;
    const std::string dump = Printed([&] { FmtDump(bytes.data(), 700, 0, 0); });
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), lines) << size;
  }
  EXPECT_EQ(Printed([] { FmtDump("x", 0x80000000, 0, 0); }), "");
}

// Sizes that no number has show nothing: of 3 bytes the next field is behind them, of others in
// their place. Members of a group are numbered behind the field that leads it, and show its value.
// Rows without a name end nothing among the names.
TEST(Format, StructuresByField) {
  const FieldDesc table[] = {
      {1, FIELD_STRUCT, "sample", 0, 0, nullptr},
      {2, FIELD_UNSIGNED | FIELD_SHORT | 2, "wFlags", 0, 0, "c"},
      {3, FIELD_BIT, "ALPHA", 1, 0, nullptr},
      {5, FIELD_BIT, "BETA", 4, 0, nullptr},
      {6, FIELD_CONSTANT, "LOW", 0x30, 0xF0, nullptr},
      {7, FIELD_CONSTANT, "OTHER", 2, 3, nullptr},
      {8, FIELD_CHAR | 3, "three", 0, 0, nullptr},
      {9, FIELD_CHAR | 5, "five", 0, 0, nullptr},
      {10, FIELD_CONSTANT, "STILL", 0x13F, 0, nullptr},
      {11, FIELD_INT | FIELD_POINTER | 4, "a_name_beyond_its_column", 0, 0, "c"},
      {12, FIELD_LONG | 8, "qwTime", 0, 0, nullptr},
      {13, FIELD_CHAR | FIELD_OVERLAY | 8, "over", 0, 0, nullptr},
      {15, FIELD_CHAR | FIELD_MEMBER | 2, "behind", 0, 0, nullptr},
      {16, FIELD_CHAR | FIELD_MEMBER | 1, "last", 0, 0, nullptr},
      {18, FIELD_UNSIGNED | 1, "next", 0, 0, nullptr},
      {0, 0, nullptr, 0, 0, nullptr}};
  unsigned char bytes[40] = {0x3F, 1};
  for (unsigned char i = 2; i < sizeof bytes; ++i) bytes[i] = i;
  EXPECT_EQ(Printed([&] { FmtStructWithin(table, bytes, 0); }),
            "\nstruct sample:\n"
            "    ushort wFlags             = 0x013f            // c ALPHA|BETA LOW OTHER [108]\n"
            "    char   three              \n"
            "    char   five                STILL\n"
            "    int*   a_name_beyond_its_column= 0x08070605   // c\n"
            "    long   qwTime             = 0x0c0b0a09100f0e0d\n"
            "0   char   over               = 0x0c0b0a09100f0e0d\n"
            "0   char   behind             = 0x0a09\n"
            "8   char   last               = 0x09\n"
            "    u      next               = 0x14\n");
  EXPECT_EQ(FmtStructFind(table, 3, 0), table + 2);
  EXPECT_EQ(FmtStructFind(table, 0, FIELD_BIT), table + 2);
  EXPECT_EQ(FmtStructFind(table, 99, 1)->pszName, nullptr);
}

}  // namespace
}  // namespace quern
