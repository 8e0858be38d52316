// Tokens of C headers beside a scanner that a program on Linux would take, and what a long table
// costs. The tokens are not the same ones: the other scanner drops blanks and line ends, makes
// values of numbers and strings, and knows neither long operators nor comments of a line.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#undef TRUE
#undef FALSE
#include "quern/cscan.h"

namespace {

using namespace quern;

constexpr size_t kTextSize = 8 << 20;

const std::string& Text() {
  static const std::string text = [] {
    namespace fs = std::filesystem;
    std::vector<fs::path> headers;
    for (const auto& entry : fs::recursive_directory_iterator("/usr/include"))
      if (entry.is_regular_file() && entry.path().extension() == ".h")
        headers.push_back(entry.path());
    std::sort(headers.begin(), headers.end());
    std::string made;
    for (const fs::path& header : headers) {
      std::ifstream stream(header, std::ios::binary);
      std::string bytes(std::istreambuf_iterator<char>(stream), {});
      if (bytes.find('\0') == bytes.npos) made += bytes;
      if (made.size() >= kTextSize) break;
    }
    made.resize(std::min(made.size(), kTextSize));
    return made;
  }();
  return text;
}

constexpr ScanDef Record(int32_t id, uint32_t flags, const char* pattern) {
  return {pattern, id, flags, 0, 0};
}
constexpr ScanDef kEnd = Record(0, 0, nullptr);

void Report(benchmark::State& state, size_t tokens) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Text().size()));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * tokens));
  state.counters["tokens"] = static_cast<double>(tokens);
}

// --- whole tokens of C ---------------------------------------------------------------------------

enum : int32_t {
  kName = kScanBlank + 1,
  kNumber,
  kLineComment,
  kComment,
  kString,
  kCharacter,
  kOperator,
  kOther,
  kSign,
  kRest,
  kCommentEnd,
  kEscape,
  kEscaped,
  kStringMore,
  kStringEnd,
  kCharacterMore,
  kCharacterEnd
};
constexpr ScanDef Op(const char* text) { return Record(kOperator, SCAN_STRING, text); }
constexpr ScanDef Point(const char* text) {
  return Record(kNumber, SCAN_STRING | SCAN_FIRST, text);
}

ScanDef CTable[] = {
    Record(kScanLineEnd, SCAN_STRING, "\n"), Record(kScanBlank, SCAN_SET, " \t\v\f\r"),
    Record(kName, SCAN_RANGES | SCAN_FIRST, "azAZ__$$\x80\xFF"),
    Record(kName, SCAN_RANGES | SCAN_MORE, "azAZ09__$$\x80\xFF"),
    Record(kNumber, SCAN_RANGES | SCAN_FIRST, "09"), Point(".0"), Point(".1"), Point(".2"),
    Point(".3"), Point(".4"), Point(".5"), Point(".6"), Point(".7"), Point(".8"), Point(".9"),
    Record(kNumber, SCAN_RANGES | SCAN_MORE, "azAZ09__.."),
    Record(kLineComment, SCAN_STRING | SCAN_FIRST, "//"),
    Record(kLineComment, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x7F"),
    Record(kComment, SCAN_STRING, "/*"), Record(kString, SCAN_STRING | SCAN_FIRST, "\""),
    Record(kString, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B!#[]\x7F"),
    Record(kCharacter, SCAN_STRING | SCAN_FIRST, "'"),
    Record(kCharacter, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B&([]\x7F"), Op("..."), Op("<<="),
    Op(">>="), Op("->"), Op("++"), Op("--"), Op("<<"), Op(">>"), Op("<="), Op(">="), Op("=="),
    Op("!="), Op("&&"), Op("||"), Op("+="), Op("-="), Op("*="), Op("/="), Op("%="), Op("&="),
    Op("^="), Op("|="), Op("::"), Op("##"), Record(kOther, SCAN_RANGES | SCAN_FIRST, "\x80\x7F"),
    // Where kScanAny does not come: pieces of what one symbol cannot say.
    Record(kSign, SCAN_STRING, "+"), Record(kSign, SCAN_STRING, "-"),
    Record(kRest, SCAN_RANGES, "azAZ09__.."), Record(kCommentEnd, SCAN_STRING, "*/"),
    Record(kEscape, SCAN_STRING, "\\"), Record(kEscaped, SCAN_RANGES | SCAN_FIRST, "\x80\x7F"),
    Record(kStringMore, SCAN_RANGES, "\x80\x09\x0B!#[]\x7F"), Record(kStringEnd, SCAN_STRING, "\""),
    Record(kCharacterMore, SCAN_RANGES, "\x80\x09\x0B&([]\x7F"),
    Record(kCharacterEnd, SCAN_STRING, "'"), kEnd};

// Steps over the pieces behind the first one, which is pending; the last one is pending then. False
// where the text has no such end.
bool LiteralCloses(int32_t more, int32_t end) {
  while (!ScanGet(end)) {
    if (!ScanGet(kEscape) || !ScanGet(kEscaped)) return false;
    ScanGet(more);
  }
  return true;
}
void NumberEnds(const ScanToken* token) {
  while (token && strchr("eEpP", token->pStart[token->nLength - 1]) && ScanGet(kSign))
    token = ScanGet(kRest);
}

void GoTo(const char* at) {
  CurrentScanner->pPosition = at;
  ScanGet(kScanRefresh);
}

size_t CountC() {
  size_t tokens = 0;
  while (const ScanToken* token = ScanGet(kScanAny)) {
    const char* at = token->pStart;
    bool closes = true;
    switch (token->nId) {
      case kScanEnd:
        return tokens;
      case kLineComment:
        continue;
      case kComment:
        if (const char* end = ScanFind(kCommentEnd)) {
          GoTo(end + 2);
          continue;
        }
        closes = false;
        break;
      case kString:
        closes = LiteralCloses(kStringMore, kStringEnd);
        break;
      case kCharacter:
        closes = LiteralCloses(kCharacterMore, kCharacterEnd);
        break;
      case kNumber:
        NumberEnds(token);
        break;
    }
    if (!closes) GoTo(at + 1);  // an operator of one byte
    ++tokens;
  }
  return tokens;
}

void BM_C_ScanGet(benchmark::State& state) {
  size_t tokens = 0;
  for (auto _ : state) {
    ScanText(Text().data(), static_cast<uint32_t>(Text().size()), CTable);
    tokens = CountC();
    ScanClass(0);
  }
  Report(state, tokens);
}

void BM_C_GScanner(benchmark::State& state) {
  GScannerConfig config = {};
  config.cset_skip_characters = const_cast<char*>(" \t\v\f\r\n");
  config.cset_identifier_first = const_cast<char*>(G_CSET_a_2_z G_CSET_A_2_Z "_$");
  config.cset_identifier_nth = const_cast<char*>(G_CSET_a_2_z G_CSET_A_2_Z "_$" G_CSET_DIGITS);
  config.cpair_comment_single = const_cast<char*>("\1\n");
  config.case_sensitive = config.skip_comment_multi = config.scan_comment_multi = true;
  config.scan_identifier = config.scan_identifier_1char = true;
  config.scan_octal = config.scan_float = config.scan_hex = config.numbers_2_int = true;
  config.store_int64 = config.scan_string_sq = config.scan_string_dq = config.char_2_token = true;
  size_t tokens = 0;
  for (auto _ : state) {
    GScanner* scanner = g_scanner_new(&config);
    g_scanner_input_text(scanner, Text().data(), static_cast<guint>(Text().size()));
    for (tokens = 0; g_scanner_get_next_token(scanner) != G_TOKEN_EOF;) ++tokens;
    g_scanner_destroy(scanner);
  }
  Report(state, tokens);
}

// --- symbols by number ---------------------------------------------------------------------------

// Ten symbols, and in front of the names so many words, whose tokens would be names without them.
std::vector<ScanDef> TableOf(int64_t symbols) {
  static const char* const kWords[] = {
      "amongst", "become", "behold",  "beside",    "bring",      "conclude", "depart",  "dismiss",
      "downto",  "elseif", "endproc", "endwhile",  "everywhere", "exhibit",  "finally", "foreign",
      "fulfil",  "gently", "goback",  "halve",     "hence",      "ifnot",    "imply",   "indeed",
      "inspect", "joint",  "justly",  "keeping",   "likewise",   "moreover", "neither", "nil",
      "observe", "oneof",  "perhaps", "procedure", "quietly",    "raise",    "seldom",  "suppose",
      "tally",   "utter",  "vary",    "whenever",  "whereas",    "withal",   "writeln", "yield",
      "yonder",  "zeal"};
  std::vector<ScanDef> table = {Record(1, SCAN_STRING, "\n"), Record(2, SCAN_SET, " \t\v\f\r")};
  int32_t id = 2;
  for (size_t i = 0; i + 10 < static_cast<size_t>(symbols); ++i)
    table.push_back(Record(++id, SCAN_WORD, kWords[i]));
  auto add = [&](std::initializer_list<ScanDef> records) {
    ++id;
    for (ScanDef record : records) record.nId = id, table.push_back(record);
  };
  add({Record(0, SCAN_RANGES | SCAN_FIRST, "azAZ__$$\x80\xFF"),
       Record(0, SCAN_RANGES | SCAN_MORE, "azAZ09__$$\x80\xFF")});
  add({Record(0, SCAN_RANGES | SCAN_FIRST, "09"),
       Record(0, SCAN_RANGES | SCAN_MORE, "azAZ09__..")});
  add({Record(0, SCAN_STRING | SCAN_FIRST, "\""),
       Record(0, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B!#\x7F"), Record(0, SCAN_STRING, "\"")});
  add({Record(0, SCAN_STRING | SCAN_FIRST, "//"),
       Record(0, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x7F")});
  add({Record(0, SCAN_STRING, "/*"), Record(0, SCAN_STRING, "*/")});
  add({Op("->"), Op("++"), Op("--"), Op("<<"), Op(">>"), Op("<="), Op(">="), Op("=="), Op("!="),
       Op("&&"), Op("||"), Op("##")});
  add({Record(0, SCAN_SET | SCAN_FIRST, ",;(){}[]")});
  add({Record(0, SCAN_RANGES | SCAN_FIRST, "\x80\x7F")});
  table.push_back(kEnd);
  return table;
}

size_t CountAny(ScanDef* table) {
  ScanText(Text().data(), static_cast<uint32_t>(Text().size()), table);
  size_t tokens = 0;
  for (const ScanToken* token; (token = ScanGet(kScanAny)) && token->nId != kScanEnd;) ++tokens;
  ScanClass(0);
  return tokens;
}

void BM_Symbols_ScanGet(benchmark::State& state) {
  std::vector<ScanDef> few = TableOf(10), table = TableOf(state.range(0));
  size_t tokens = CountAny(few.data());
  for (auto _ : state)
    if (CountAny(table.data()) != tokens) state.SkipWithError("other tokens");
  Report(state, tokens);
}

BENCHMARK(BM_C_ScanGet)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_C_GScanner)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Symbols_ScanGet)->Arg(10)->Arg(60)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
