#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "quern/cfile.h"
#include "quern/cscan.h"
#include "tools/tavrix/commands.h"

namespace {

using namespace quern;

constexpr ScanDef Record(int32_t id, uint32_t flags, const char* pattern) {
  return {pattern, id, flags, 0, 0};
}
constexpr ScanDef kEnd = Record(0, 0, nullptr);

constexpr char kAnyByte[] = "\x80\x7F";  // as signed bytes

enum : int32_t { kName = kScanBlank + 1, kString, kOther };

// Language like C. A backslash is a byte of a literal like any other: a quote behind one ends it.
enum : int32_t { kCharacter = kOther + 1, kNumber, kLineComment, kComment, kOperator };
constexpr ScanDef Op(const char* text) { return Record(kOperator, SCAN_STRING, text); }

ScanDef CTable[] = {
    Record(kScanLineEnd, SCAN_STRING, "\n"), Record(kScanBlank, SCAN_SET, " \t\v\f\r"),
    Record(kName, SCAN_RANGES | SCAN_FIRST, "azAZ__$$\x80\xFF"),
    Record(kName, SCAN_RANGES | SCAN_MORE, "azAZ09__$$\x80\xFF"),
    Record(kNumber, SCAN_RANGES | SCAN_FIRST, "09"),
    Record(kNumber, SCAN_RANGES | SCAN_MORE, "azAZ09__.."),
    Record(kString, SCAN_STRING | SCAN_FIRST, "\""),
    Record(kString, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B!#\x7F"),
    Record(kString, SCAN_STRING | SCAN_MORE, "\""),
    Record(kCharacter, SCAN_STRING | SCAN_FIRST, "'"),
    Record(kCharacter, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B&(\x7F"),
    Record(kCharacter, SCAN_STRING | SCAN_MORE, "'"),
    Record(kLineComment, SCAN_STRING | SCAN_FIRST, "//"),
    Record(kLineComment, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x7F"),
    Record(kComment, SCAN_STRING, "/*"), Record(kComment, SCAN_STRING, "*/"),
    // The longest first.
    Op("..."), Op("<<="), Op(">>="), Op("->"), Op("++"), Op("--"), Op("<<"), Op(">>"), Op("<="),
    Op(">="), Op("=="), Op("!="), Op("&&"), Op("||"), Op("+="), Op("-="), Op("*="), Op("/="),
    Op("%="), Op("&="), Op("|="), Op("^="), Op("::"), Op("##"), Op("("), Op(")"), Op("["), Op("]"),
    Op("{"), Op("}"), Op(","), Op(";"), Op(":"), Op("."), Op("?"), Op("="), Op("<"), Op(">"),
    Op("+"), Op("-"), Op("*"), Op("/"), Op("%"), Op("!"), Op("~"), Op("&"), Op("|"), Op("^"),
    Op("#"), Record(kOther, SCAN_RANGES | SCAN_FIRST, kAnyByte), kEnd};

// Settings. Sections and comments stand at the beginning of a line.
enum : int32_t { kSection = kOther + 1, kRemark, kEquals };

ScanDef IniTable[] = {Record(kScanLineEnd, SCAN_STRING, "\r\n"),
                      Record(kScanLineEnd, SCAN_STRING, "\n"),
                      Record(kScanLineEnd, SCAN_STRING, "\r"),
                      Record(kScanBlank, SCAN_SET, " \t\v\f"),
                      Record(kSection, SCAN_STRING | SCAN_LINE_FIRST, "["),
                      Record(kSection, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x0C\x0E\\^\x7F"),
                      Record(kSection, SCAN_STRING | SCAN_MORE, "]"),
                      Record(kRemark, SCAN_SET | SCAN_LINE_FIRST, ";#"),
                      Record(kRemark, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x0C\x0E\x7F"),
                      Record(kName, SCAN_RANGES, "azAZ09__..--\x80\xFF"),
                      Record(kEquals, SCAN_STRING, "="),
                      Record(kString, SCAN_STRING | SCAN_FIRST, "\""),
                      Record(kString, SCAN_RANGES | SCAN_MORE, "\x80\x09\x0B\x0C\x0E!#\x7F"),
                      Record(kString, SCAN_STRING | SCAN_MORE, "\""),
                      Record(kOther, SCAN_RANGES | SCAN_FIRST, kAnyByte),
                      kEnd};

struct Language {
  ScanDef* table;
  const char* names[kOperator + 1];  // of the symbols, by id
};
Language C = {CTable,
              {nullptr, "line-end", "blank", "name", "string", "other", "character", "number",
               "line-comment", "comment", "operator"}};
Language Ini = {IniTable,
                {nullptr, "line-end", "blank", "name", "string", "other", "section", "comment",
                 "equals", nullptr, nullptr}};

struct ScanOptions {
  std::string file, table = "c";
  bool streamed = false, mapped = false, count = false;
};

std::string Printable(const ScanToken& token) {
  std::string text;
  for (uint32_t i = 0; i < token.nLength; ++i) {
    char c = token.pStart[i];
    static constexpr char kCodes[] = "\a\b\t\n\v\f\r\\", kLetters[] = "abtnvfr\\";
    const char* code = c ? strchr(kCodes, c) : nullptr;
    if (code) {
      text += {'\\', kLetters[code - kCodes]};
    } else if ((c >= 0 && c < ' ') || c == '\x7F') {
      char octal[8];
      snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(c));
      text += octal;
    } else {
      text += c;
    }
  }
  return text;
}

// The scanner of a file that is read into `text`.
Scanner* ScanInMemory(const char* name, ScanDef* table, std::string* text) {
  FileObject* file = FileOpen(nullptr, name, FO_READ);
  if (!file) return nullptr;
  rewind(file->pStream);
  char block[65536];
  for (size_t size; (size = fread(block, 1, sizeof block, file->pStream)) != 0;)
    text->append(block, size);
  if (ferror(file->pStream)) throw std::runtime_error("the file cannot be read");
  if (text->size() > UINT32_MAX) throw std::length_error("the file is too large");
  FileClass(0);
  return ScanText(text->data(), static_cast<uint32_t>(text->size()), table);
}

int Scan(const ScanOptions& options) {
  const Language& language = options.table == "c" ? C : Ini;
  const char* name = options.file.c_str();
  std::string text;
  if (options.streamed) {
    ScanOpen(name, FO_STREAMED | FO_READ, language.table);
  } else if (options.mapped) {
    ScanOpen(name, FO_MAPPED | FO_READ, language.table);
  } else {
    ScanInMemory(name, language.table, &text);
  }
  if (PrintTrail()) return 1;
  std::pair<uint64_t, uint64_t> totals[kOperator + 1] = {};  // tokens, bytes
  while (const ScanToken* token = ScanGet(kScanAny)) {
    if (token->nId == kScanEnd) break;
    totals[token->nId].first += 1;
    totals[token->nId].second += token->nLength;
    if (!options.count)
      printf("%u:%u %s %s\n", CurrentScanner->nLine,
             static_cast<unsigned>(token->pStart - CurrentScanner->pLine + 1),
             language.names[token->nId], Printable(*token).c_str());
  }
  for (int32_t id = 1; options.count && id <= kOperator; ++id)
    if (totals[id].first != 0)
      printf("%s %llu %llu\n", language.names[id],
             static_cast<unsigned long long>(totals[id].first),
             static_cast<unsigned long long>(totals[id].second));
  ScanClass(0);
  return PrintTrail() ? 1 : 0;
}

}  // namespace

void AddScanCommand(CLI::App& app, int& result) {
  auto options = std::make_shared<ScanOptions>();
  CLI::App* scan = app.add_subcommand("scan", "Split a file into tokens.");
  scan->add_option("FILE", options->file, "The file")->required();
  scan->add_option("--table", options->table, "The language: c (if left out) or ini")
      ->check(CLI::IsMember({"c", "ini"}));
  CLI::Option* stream = scan->add_flag("--stream", options->streamed,
                                       "Read the file line by line; of CR LF an 'a' takes the "
                                       "place of the LF");
  scan->add_flag("--mapped", options->mapped, "Map the file into memory")->excludes(stream);
  scan->add_flag("--count", options->count, "Print the tokens and bytes of each symbol only");
  scan->callback([=, &result] { result = Scan(*options); });
}
