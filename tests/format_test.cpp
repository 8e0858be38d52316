// Memory as text: hex digits, dumps and structures.

#include <cinttypes>

#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;

// What a call prints.
template <typename Call>
std::string Printed(Call call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

char Shown(char c) { return (c >= 0 && c < ' ') || c == 0x7F ? '.' : c; }

std::string Digits(unsigned char byte) {
  char text[4];
  snprintf(text, sizeof text, "%02X", byte);
  return text;
}

// The rules of FmtHex, character by character.
std::string Hex(const std::string& bytes, uint32_t flags) {
  uint32_t group = flags & FMT_GROUP ? flags & FMT_GROUP : 2;
  std::string text;
  for (size_t at = 0; at < bytes.size();) {
    if (flags & FMT_TEXT) text += bytes.substr(at, group) + "(";
    if (flags & FMT_CHARS) {
      text += Shown(bytes[at++]);
    } else {
      for (uint32_t digits = group; digits != 0 && at < bytes.size(); digits -= 2)
        text += Digits(static_cast<unsigned char>(bytes[at++]));
    }
    if (flags & FMT_TEXT) {
      text += ")";
    } else if (!(flags & FMT_CHARS) && at < bytes.size()) {
      text += " ";
    }
  }
  return text;
}

TEST(Format, HexAgreesWithAModel) {
  EXPECT_STREQ(FmtHex("Hello", 5, nullptr, 4), "4865 6C6C 6F");
  EXPECT_STREQ(FmtHex("Hello", 5, nullptr, FMT_TEXT), "He(48)el(65)ll(6C)lo(6C)o(6F)");
  EXPECT_STREQ(FmtHex("Hello", 0xFFFFFFFF, nullptr, 3), "48656C6C6F");
  EXPECT_NE(CurrentFormatter->header.flags & INST_IMPLICIT, 0u);
  auto trial = [](tavrix_test::Choices& choices) -> std::string {
    std::string bytes = choices.Text("aZ \x7F\x80\xFF\n", 40);
    const uint32_t flags = choices.Below(16) | choices.Below(4) << 28, way = choices.Below(3);
    const auto length = static_cast<uint32_t>(bytes.size());
    char area[800];
    if (way == 2) memcpy(area, bytes.data(), bytes.size());  // in place
    const char* from = way == 2 ? area : bytes.data();
    const char* text = FmtHex(from, length, way == 0 ? nullptr : area, flags);
    const std::string wanted = Hex(bytes, flags);
    return text == wanted ? "" : wanted + " and not " + text;
  };
  EXPECT_EQ(tavrix_test::RunTrials(1, 5000, trial), "");
  // No more room than the text needs, but for its last group.
  const std::string much(10'000, '=');
  for (uint32_t flags : {2u, FMT_CHARS, FMT_TEXT | 2u, FMT_TEXT | 4u, FMT_TEXT | FMT_CHARS | 6u}) {
    FmtClass(0);
    FmtHex(much.data(), 10'000, nullptr, flags);
    const MemBuf& text = CurrentFormatter->mbText;
    EXPECT_LT(text.nAlloc - text.nSize, 128u) << flags;
  }
  // A text that it has made itself.
  const char* twice = FmtHex("abc", 3, nullptr, 0);
  EXPECT_STREQ(FmtHex(twice, 8, nullptr, 0), "36 31 20 36 32 20 36 33");
  char* own = FmtHex("0123456789012345678", 19, nullptr, 0);
  own = FmtHex(own, 56, own, 0);
  EXPECT_EQ(strlen(own), 167u);
  EXPECT_EQ(FmtHex(nullptr, 1, nullptr, 0), nullptr);
  EXPECT_EQ(ErrLine, 62);
  EXPECT_EQ(ClearedTrail(), "01");
  EXPECT_EQ(FmtHexDigit(9), '9');
  EXPECT_EQ(FmtHexDigit(15), 'F');
  EXPECT_EQ(FmtHexDigit(16), '?');
}

std::string Unhex(const char* text, uint32_t mode, uint32_t length = 0) {
  char bytes[64];
  memset(bytes, '#', sizeof bytes);
  uint32_t count =
      FmtUnhex(text, length ? length : static_cast<uint32_t>(strlen(text)), bytes, mode);
  EXPECT_EQ(bytes[count], count ? '\0' : bytes[0]) << text;
  return Hex({bytes, count}, 2);
}

TEST(Format, UnhexReadsWhatPeopleWrite) {
  EXPECT_EQ(Unhex("4142 43", UNHEX_BYTES), "41 42 43");
  EXPECT_EQ(Unhex("ABC", UNHEX_BYTES), "AB C0");
  EXPECT_EQ(Unhex("A", UNHEX_BYTES), "A0");
  EXPECT_EQ(Unhex("0x1F", UNHEX_LONG), "1F 00 00 00");
  EXPECT_EQ(Unhex("0x1F 1Fh . ff", UNHEX_FIT), "1F 1F FF");
  EXPECT_EQ(Unhex("123", UNHEX_FIT), "23 01");
  EXPECT_EQ(Unhex("1 12345", UNHEX_WORDS), "01 00 45 23 01 00");
  EXPECT_EQ(Unhex("123456789", UNHEX_LONG), "78 56 34 12 09 00 00 00");
  EXPECT_EQ(Unhex("4142", UNHEX_BYTES, 3), "41 40");
  EXPECT_EQ(Unhex("xxxx 1", UNHEX_FIT), "01");
  EXPECT_EQ(Unhex("12x", UNHEX_FIT), "01");
  // What each character stands for, alone and behind a digit.
  for (int c = 1; c < 256; ++c) {
    const char alone[] = {static_cast<char>(c), '\0'}, behind[] = {'1', static_cast<char>(c), '\0'};
    bool skipped = strchr("hH.- ", c);
    std::string value = isxdigit(c) ? std::string("0") + static_cast<char>(toupper(c)) : "";
    EXPECT_EQ(Unhex(alone, UNHEX_FIT), value) << c;
    if (isxdigit(c)) value[0] = '1';
    if (skipped) value = "01";
    EXPECT_EQ(Unhex(behind, UNHEX_FIT), value) << c;
  }
  EXPECT_EQ(Unhex("0X1F", UNHEX_FIT), "1F");
  for (const char* digits : {"1", "12", "123", "1234", "12345", "123456", "1234567", "12345678"}) {
    auto count = static_cast<int>(strlen(digits));
    EXPECT_EQ(Unhex(digits, UNHEX_FIT).size(), (count + 1u) / 2 * 3 - 1) << digits;
    EXPECT_EQ(Unhex(digits, UNHEX_WORDS).size(), (count + 3u) / 4 * 6 - 1) << digits;
    EXPECT_EQ(Unhex(digits, UNHEX_LONG).size(), 11u) << digits;
  }
  EXPECT_EQ(Unhex("12", 0), "");
  EXPECT_EQ(Unhex("", UNHEX_LONG), "");
  for (uint32_t mode : {0, 2, 4, 8, 15}) EXPECT_EQ(Unhex("12 zz", mode), "");
  char byte;
  EXPECT_EQ(FmtUnhex(nullptr, 2, &byte, 2), 0u);
  EXPECT_EQ(FmtUnhex("12", 2, nullptr, 2), 0u);
  const std::string bytes = std::string("0123456789\0\xFF", 12) + std::string(28, 'z');
  std::string text = Hex(bytes, 4);
  char back[41];
  EXPECT_EQ(FmtUnhex(text.c_str(), static_cast<uint32_t>(text.size()), back, UNHEX_BYTES), 40u);
  EXPECT_EQ(memcmp(back, bytes.data(), 40), 0);
}

TEST(Format, DumpsShowLabelsDigitsAndCharacters) {
  const struct {
    uint32_t flags;
    int32_t lineBytes;
    const char* lines;
  } kRows[] = {
      {0, 16, " 41 7F C4                                         A.\xC4\n"},
      {DUMP_OFFSET, 16, "0xFFFFFFF0: 41 7F C4                                         A.\xC4\n"},
      {DUMP_FILEOFFSET, 2,
       "0xFFFFFFF0: 41 7F                                            A.\n"
       "0xFFFFFFF2: C4                                               \xC4\n"},
      {DUMP_HEADER | DUMP_ADDRESS, 256, "   Address:0x"},
      {DUMP_HEADER | DUMP_RULER | DUMP_OFFSET | DUMP_ADDRESS, -5, "    Offset:  0  1  2"},
  };
  for (const auto& row : kRows) {
    FmtLineBytes = row.lineBytes;
    const std::string lines = Printed([&] { FmtDump("A\x7F\xC4", 3, 0xFFFFFFF0, row.flags); });
    EXPECT_TRUE(lines.starts_with(row.lines)) << row.flags << lines;
  }
  // Lines hold from 1 to 256 bytes.
  const std::string bytes(700, 'x');
  for (auto [size, lines] : {std::pair{-5, 700}, {1, 700}, {256, 3}, {257, 3}, {40, 18}}) {
    FmtLineBytes = size;
    const std::string dump = Printed([&] { FmtDump(bytes.data(), 700, 0, 0); });
    EXPECT_EQ(std::count(dump.begin(), dump.end(), '\n'), lines) << size;
  }
  EXPECT_EQ(Printed([] { FmtDump("x", 0x80000000, 0, 0); }), "");
  EXPECT_EQ(Printed([] { EXPECT_EQ(FmtDump(nullptr, 5, 0, 0), 0); }), "");
  EXPECT_EQ(ClearedTrail(), "01");
}

constexpr uint32_t kUShort = FIELD_UNSIGNED | FIELD_SHORT | 2;
constexpr uint32_t kULong = FIELD_UNSIGNED | FIELD_LONG | 4;

const FieldDesc fields[] = {
    {1, FIELD_STRUCT, "sample", 0, 0, nullptr},
    {2, kUShort, "wFlags", 0, 0, "a comment"},
    {3, FIELD_BIT, "ALPHA", 1, 0, nullptr},
    {4, FIELD_BIT, "BETA", 4, 0, nullptr},
    {5, FIELD_CONSTANT, "LOW", 0x30, 0xF0, nullptr},
    {6, FIELD_CHAR | FIELD_UNSIGNED | FIELD_MEMBER | 1, "first", 0, 0, nullptr},
    {7, FIELD_CHAR | FIELD_UNSIGNED | FIELD_MEMBER | 1, "second", 0, 0, nullptr},
    {8, FIELD_INT | FIELD_OVERLAY | 2, "both", 0, 0, nullptr},
    {9, kULong, "dwSize", 0, 0, nullptr},
    {10, FIELD_CONSTANT, "NOTHING", 1, 0, nullptr},
    {11, FIELD_LONG | 8, "qwTime", 0, 0, nullptr},
    {12, FIELD_BIT, "EIGHT", 8, 0, nullptr},
    {13, FIELD_CHAR | 3, "gap", 0, 0, nullptr},
    {14, FIELD_INT | FIELD_POINTER | 4, "pNext", 0, 0, "last"},
    {15, 4, "untyped", 0, 0, nullptr},
    {0, 0, nullptr, 0, 0, nullptr},
};
const unsigned char sample[] = {0x37, 0, 'a', 'b', 'c', 1, 2, 3, 0x88, 0x77, 0x66, 0x55,
                                0x44, 3, 2,   2,   1,   1, 1, 4, 3,    2,    1,    0};

std::string Struct(const FieldDesc* table, const void* data, uint32_t width) {
  return Printed([&] { FmtStructWithin(table, data, width); });
}

TEST(Format, StructuresByField) {
  // The members of the group are numbered behind the field that leads it, and show its value.
  EXPECT_EQ(Struct(fields, sample, 0),
            "\nstruct sample:\n"
            "    ushort wFlags             = 0x0037            // a comment ALPHA|BETA LOW [2]\n"
            "0   uchar  first              = 0x37\n"
            "2   uchar  second             = 0x37\n"
            "3   int    both               = 0x0037\n"
            "    ulong  dwSize             = 0x88030201\n"
            "    long   qwTime             = 0x4455667701020203\n"
            "    char   gap                \n"
            "    int*   pNext              = 0x00010203        // last\n");
  EXPECT_EQ(FmtStructFind(fields, 9, 0), fields + 8);
  EXPECT_EQ(FmtStructFind(fields, 0, FIELD_INT | FIELD_OVERLAY | 2), fields + 7);
  EXPECT_EQ(FmtStructFind(fields, 99, 1)->pszName, nullptr);
  EXPECT_EQ(FmtStructFind(nullptr, 1, 1), nullptr);
  for (auto [table, data] :
       {std::pair<const FieldDesc*, const void*>{nullptr, sample}, {fields, nullptr}}) {
    ErrLast = 0;
    EXPECT_EQ(FmtStruct(table, data), 0u);
    EXPECT_EQ(ErrLast, 1);
  }
  EXPECT_EQ(Struct(fields + 15, sample, 80), "\nstruct (null):\n");
  // Sizes that no number has show nothing: of 3 bytes the next field is behind them, of others in
  // their place. Rows without a name end nothing among the names.
  const FieldDesc odd[] = {{2, FIELD_STRUCT, "odd", 0, 0, nullptr},
                           {1, FIELD_CHAR | 1, "a", 0, 0, nullptr},
                           {3, FIELD_CHAR | 3, "three", 0, 0, nullptr},
                           {4, FIELD_CHAR | 1, "b", 0, 0, nullptr},
                           {5, FIELD_CONSTANT, "SMALL", 1, 3, nullptr},
                           {6, FIELD_BIT, nullptr, 4, 0, nullptr},
                           {7, FIELD_CONSTANT, "OTHER", 2, 3, nullptr},
                           {8, FIELD_BIT, "FOUR", 4, 0, nullptr},
                           {9, FIELD_CHAR | 5, "five", 0, 0, nullptr},
                           {10, FIELD_CONSTANT, "STILL", 5, 0, nullptr},
                           {11, FIELD_LONG | 4, "a_name_beyond_its_column", 0, 0, "c"},
                           {12, FIELD_CHAR | FIELD_OVERLAY | 8, "over", 0, 0, nullptr},
                           {13, FIELD_CHAR | FIELD_OVERLAY | 1, "under", 0, 0, nullptr},
                           {14, FIELD_CHAR | FIELD_MEMBER | 2, "behind", 0, 0, nullptr},
                           {15, FIELD_CHAR | FIELD_MEMBER | 1, "last", 0, 0, nullptr},
                           {16, FIELD_UNSIGNED | 1, "next", 0, 0, nullptr},
                           {0, 0, nullptr, 0, 0, nullptr}};
  unsigned char bytes[32];
  for (unsigned char i = 0; i < sizeof bytes; ++i) bytes[i] = i + 1;
  EXPECT_EQ(Struct(odd, bytes, 0),
            "\nstruct odd:\n"
            "    char   a                  = 0x01\n"
            "    char   three              \n"
            "    char   b                  = 0x05 SMALL|FOUR\n"
            "    char   five                STILL\n"
            "    long   a_name_beyond_its_column= 0x09080706   // c\n"
            "0   char   over               = 0x090807060d0c0b0a\n"
            "0   char   under              = 0x06\n"
            "0   char   behind             = 0x0706\n"
            "8   char   last               = 0x06\n"
            "    u      next               = 0x11\n");
  EXPECT_EQ(Printed([&] { EXPECT_EQ(FmtStructWithin(odd + 15, bytes, 0), 36u); }),
            "\nstruct (null):\n    u      next               = 0x01\n");
  EXPECT_EQ(Printed([] { EXPECT_GT(FmtStruct(fields, sample), 50u); }).substr(0, 16),
            "\nstruct sample:\n");
}

TEST(Format, NamesWrapAtTheWidth) {
  const FieldDesc table[] = {
      {0, FIELD_STRUCT, "s", 0, 0, nullptr},     {0, kULong, "f", 0, 0, nullptr},
      {0, FIELD_BIT, "ONE", 1, 0, nullptr},      {0, FIELD_BIT, "TWO", 2, 0, nullptr},
      {0, FIELD_BIT, "FOUR", 4, 0, nullptr},     {0, FIELD_BIT, "EIGHT", 8, 0, nullptr},
      {0, FIELD_BIT, "SIXTEEN", 16, 0, nullptr}, {0, 0, nullptr, 0, 0, nullptr}};
  const uint32_t all = 0x7F;
  std::string line = "\nstruct s:\n    ulong  f                  = 0x0000007f";
  EXPECT_EQ(Struct(table, &all, 0), line + " ONE|TWO|FOUR|EIGHT|SIXTEEN [60]\n");
  EXPECT_EQ(Struct(table, &all, 80), line + " ONE|TWO|FOUR|EIGHT|SIXTEEN [60]\n");
  // The line, the names without their separators, and a column more.
  const auto fits = static_cast<uint32_t>(line.size() - strlen("\nstruct s:\n") + 22 + 1);
  EXPECT_EQ(Struct(table, &all, fits), Struct(table, &all, 0));
  EXPECT_NE(Struct(table, &all, fits - 1), Struct(table, &all, 0));
  EXPECT_EQ(Struct(table, &all, 60), line + "\n        ONE|TWO|FOUR|EIGHT [60]\n");
  EXPECT_EQ(Struct(table, &all, 24), line + "\n        TWO|FOUR|EIGHT|SIXTEEN [60]\n");
  EXPECT_EQ(Struct(table, &all, 1),
            line + "\n        \n        TWO\n        FOUR\n        EIGHTSIXTEEN [60]\n");
}

}  // namespace
}  // namespace quern
