// Scanners: tables by trials, and by transcripts the steps through a text, the files that are read,
// and who releases whom.

#include "tests/support/scan_trial.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::Words;

// Of C-like texts; every byte is of some symbol.
ScanDef code[] = {
    {"\n", kScanLineEnd, SCAN_STRING, 0, 10},
    {" \t", kScanBlank, SCAN_SET, 0, 20},
    {"if", 5, SCAN_WORD, 0, 50},
    {"azAZ__\x80\xff", 3, SCAN_RANGES | SCAN_FIRST, 0, 30},
    {"azAZ__09\x80\xff", 3, SCAN_RANGES | SCAN_MORE, 0, 31},
    {"09", 4, SCAN_RANGES, 0, 40},
    {"==", 6, SCAN_STRING, 0, 60},
    {"->", 6, 0, 0, 61},
    {"\x80\x7f", 7, SCAN_RANGES | SCAN_FIRST, 0, 70},
    {nullptr, 0, 0, 0, 0},
};

// Files are named by capitals, scanners by small letters. Modes of files are hexadecimal.
std::map<std::string, FileObject*> files;
std::map<std::string, Scanner*> scanners;
std::deque<std::string> texts;

const tavrix_test::Tree& Folder() {
  static const tavrix_test::Tree tree;
  return tree;
}

template <class Object>
std::string NameOf(const std::map<std::string, Object*>& objects, const void* object) {
  for (auto& [name, at] : objects)
    if (at == object) return name;
  return object ? "?" : ".";
}

// Characters stand for others: '_' for a blank, '/' for a line feed, '\' for a carriage return.
std::string Mapped(std::string text, const char* from, const char* to) {
  for (char& c : text)
    if (const char* at = strchr(from, c); at && c) c = to[at - from];
  return text;
}
std::string Bytes(const std::string& shown) {
  return shown == "." ? "" : Mapped(shown, "_/\\", " \n\r");
}

// Long texts are cut.
std::string Shown(const char* bytes, size_t size) {
  if (!bytes) return ".";
  const std::string text = Mapped({bytes, size}, " \n\r", "_/\\");
  return "'" + (size < 40 ? text : text.substr(0, 3) + "~" + std::to_string(size)) + "'";
}

std::string Shown(const ScanToken* token) {
  if (!token) return ".";
  return std::to_string(token->nId) + Shown(token->pStart, token->nLength) +
         std::to_string(token->nValue);
}

uint32_t Hex(const std::string& digits) {
  return static_cast<uint32_t>(std::stoul(digits, nullptr, 16));
}

// The ids and lengths of all tokens up to the end, which is the last one.
std::string Rest() {
  std::string rest;
  for (const ScanToken* token; (token = ScanGet(kScanAny)) != nullptr && token->nId != kScanEnd;)
    rest += " " + std::to_string(token->nId) + "x" + std::to_string(token->nLength);
  return rest;
}

// A class of a caller's, whose instance closes the file of its scanner, or releases the scanner.
InstanceHeader parser;
FileObject* parsed_file;
Scanner* parsed;
uint32_t LeaveParser(uintptr_t) {
  return parsed_file ? FileObjClose(parsed_file) : ScanClass(reinterpret_cast<uintptr_t>(parsed));
}

std::string StepFiles(const Words& w, FileObject* file) {
  if (w[0] == "write") return Folder().File(w[1], Bytes(w[2])), "";
  if (w[0] == "file")
    return files[w[1]] = FileOpen(nullptr, Folder().Path(w[2]).c_str(), Hex(w[3])), "";
  if (w[0] == "append") return std::to_string(FileObjAppendf(file, "%s", Bytes(w[2]).c_str()));
  if (w[0] == "resize") return std::to_string(FileObjResize(file, std::stoi(w[2])));
  if (w[0] == "map") {
    CurrentFile = file;
    if (FileMap(static_cast<uint32_t>(std::stoul(w[2]))) == 0) return "";
    return ErrClear(), ErrLast = 0, "fails";  // how is the system's
  }
  if (w[0] == "close") return std::to_string(FileObjClose(file));
  if (w[0] == "current") return CurrentFile = file, "";
  if (w[0] == "lose") return fclose(std::exchange(file->pStream, nullptr)), "";
  return "?";
}

std::string StepScanners(const Words& w, Scanner*& scanner) {
  if (w[0] == "text" || w[0] == "open") {
    ScanDef* table = w[4] == "." ? code : nullptr;
    texts.push_back(w[0] == "text" ? Bytes(w[2]) : Folder().Path(w[2]));
    const char* text = texts.back().c_str();
    const auto size = static_cast<uint32_t>(texts.back().size());
    const bool made =
        w[0] == "text" ? ScanText(text, size, table) : ScanOpen(text, Hex(w[3]), table);
    scanner = CurrentScanner;
    if (scanner && scanner->pFile) files["F" + w[1]] = scanner->pFile;
    return made ? "" : "none";
  }
  if (w[0] == "attach") return scanner = ScanAttachFile(scanner, files[w[2]]), "";
  if (w[0] == "select") return NameOf(scanners, ScanSelect(scanner));
  if (w[0] == "release") return std::to_string(ScanClass(reinterpret_cast<uintptr_t>(scanner)));
  if (w[0] == "with") return scanner->pCompanion = &files[w[2]]->header, "";
  if (w[0] == "parser") {
    parsed = scanner;
    parsed_file = w[2] == "close" ? scanner->pFile : nullptr;
    scanner->pCompanion = &parser;
    ClsAttach(ClassTag("PARS"), &parser, 12, sizeof parser, LeaveParser);
    return "";
  }
  return "?";
}

ScanToken own;

std::string Step(const Words& w) {
  if (w[1][0] >= 'A' && w[1][0] <= 'Z') return StepFiles(w, files[w[1]]);
  if (w[0] == "write") return StepFiles(w, nullptr);
  if (w[1][0] >= 'a' && w[1][0] <= 'z') return StepScanners(w, scanners[w[1]]);
  const int32_t id = w[1] == "." ? 0 : static_cast<int32_t>(std::stoll(w[1]));
  if (w[0] == "get") return Shown(ScanGet(id));
  if (w[0] == "match") return Shown(ScanMatch(id));
  if (w[0] == "run") return Shown(ScanRun(id));
  if (w[0] == "skip") return Shown(ScanSkipTo(id));
  if (w[0] == "symbol") return Shown(ScanSymbol(id));
  if (w[0] == "first") return Shown(ScanFirstSymbol());
  if (w[0] == "rest") return Rest();
  if (w[0] == "rewind") return std::to_string(ScanRewind());
  if (w[0] == "line") return ScanAdvance(CurrentScanner->mbSource.nSize), "";
  if (w[0] == "advance") return ScanAdvance(id), "";
  if (w[0] == "find") return tavrix_test::Name(ScanFind(id), CurrentScanner->mbSource.pData, 1);
  if (w[0] == "own")
    return own = {nullptr, 3, 0, static_cast<uint32_t>(id), 9}, ScanPending = &own, "";
  if (w[0] == "def") return tavrix_test::Name(ScanDefFind(id), code, sizeof *code);
  if (w[0] == "define") return std::to_string(ScanDefine(code, static_cast<uint32_t>(id)));
  if (w[0] == "set") return ScanSetValue(w[2] == "0" ? nullptr : w[2].c_str(), id), "";
  if (w[0] == "add") return ScanAddValue(w[2].c_str(), id), "";
  // A list of ids, in either form, all in hexadecimal digits.
  int32_t ids[4] = {};
  for (int i = 0; i < 4 && w[i + 1] != "."; ++i) ids[i] = static_cast<int32_t>(Hex(w[i + 1]));
  return Shown(w[0] == "of" ? ScanFirstOf(ids[0], ids[1], ids[2], ids[3]) : ScanFirstOfList(ids));
}

// What every scanner and file belongs to, and what the current scanner shows, or the last one did.
tavrix_test::State state;
tavrix_test::State Read() {
  // The names of what is no more are forgotten.
  std::erase_if(scanners, [](auto& at) { return !ClsLinked(kScanTag, kScanClass, at.second); });
  std::erase_if(files, [](auto& at) { return !ClsLinked(kFileTag, kFileClass, at.second); });
  std::string links;
  for (InstanceHeader* at = ClassLists[kScanClass]; at; at = at->pNext)
    links += NameOf(scanners, at) + NameOf(files, reinterpret_cast<Scanner*>(at)->pFile) + "+";
  for (InstanceHeader* at = ClassLists[kFileClass]; at; at = at->pNext)
    links +=
        NameOf(files, at) + NameOf(scanners, reinterpret_cast<FileObject*>(at)->pScanner) + "+";
  state["links="] = links;
  state["now="] = NameOf(scanners, CurrentScanner) + NameOf(files, CurrentFile);
  state["is="] = std::to_string(ScanStatus);
  state["pending="] = ScanPending ? std::to_string(ScanPending->nId) : ".";
  if (!CurrentScanner) return state;
  const Scanner& now = *CurrentScanner;
  const auto offset = [&now](const char* at) { return std::to_string(at - now.mbSource.pData); };
  state["text="] = Shown(now.mbSource.pData, now.mbSource.nSize);
  state["at="] = offset(now.pPosition);
  state["line="] = std::to_string(now.nLine) + "@" + offset(now.pLine);
  state["column="] = std::to_string(now.nColumn);
  state["mode="] = std::to_string(now.nMode >> 16);
  state["value="] = Shown(now.mbValue.pData, now.mbValue.nSize);
  state["nvalue="] = std::to_string(now.nValue);
  return state;
}

void Expect(const std::string& transcript) {
  ScanStatus = 0, ScanPending = nullptr;
  state = {{"text=", "."}, {"at=", "0"},    {"line=", "1@0"}, {"column=", "0"},
           {"mode=", "0"}, {"value=", "."}, {"nvalue=", "0"}};
  EXPECT_EQ(tavrix_test::Played(transcript, Step, Read), transcript);
}

TEST(Scanner, CompiledTablesMatchAsTheirRecordsSay) {
  EXPECT_EQ(tavrix_test::RunTrials(1, 30'000, tavrix_test::ScanTrial), "");
}

TEST(Scanner, StepsFromTokenToToken) {
  Expect(R"(
    text a if_x1/->==9 : ; links=a.+ mode=1 now=a. text='if_x1/->==9'
    get 3 : 3'if'40 ; is=3 mode=4097 pending=3, get 5 : . ; at=2 is=0 pending=.
    get 9003 : 2'_'50 ; is=2 mode=4096 pending=2, get 9001 : . ; is=0
    get 9003 : 3'x1'40 ; at=3 is=3 pending=3, get 3 : . ; at=5 is=0 pending=., get 9006 : .
    get 1 : 1'/'10 ; is=1 pending=1, get 6 : 6'->'61 ; at=6 is=6 line=2@6 pending=6
    get 9003 : 6'=='60 ; at=8, get 9002 : . ; is=0, get 9003 : 4'9'40 ; at=10 is=4 pending=4
    get 9003 : . ; at=11 is=9002 pending=., get 9002 : 9002.0, get 9003 : 9002.0 ; pending=9002
    get 9005 : . ; at=10 is=0 pending=., get 9005 : . ; at=9, get 9003 : 7'='0 ; is=7 pending=7
    get 9004 : . ; at=10 is=0 pending=., get 9004 : . ; at=11 is=9002
    advance -99 : ; at=0 is=9001 line=1@0, get 9001 : . ; is=0, get 3 : 3'if'40 ; is=3 pending=3
    get 9007 : . ; is=0 pending=., get -1 : ., get 8 : ., match 5 : 5'if'50 ; is=5 pending=5
    match 3 : 3'if'40 ; is=3 pending=3, match 9002 : . ; is=0 pending=., rewind : 0
    match 5 : 5'if'50 ; is=5 pending=5, advance 98 : ; at=11 is=9002, match 5 : ., symbol 5 : .
    symbol 9002 : 9002.50 ; pending=9002, symbol 9001 : ., rewind : 0 ; at=0 is=0 pending=.
    first : 5'if'50 ; pending=5, own 3 : ; pending=3, get 3 : 3'x1'40 ; at=3 is=3, own 3 :
    match 4 : . ; is=0 pending=., get 9005 : . ; at=2, own 20 : ; pending=3
    get 9006 : . ; at=11 is=9002 pending=., rewind : 0 ; at=0 is=0, own 2 : ; pending=3
    get 9004 : . ; at=2 pending=., def 3 : 3, def 6 : 6, def 2 : 1, def 0 : ., def -1 : .
    def 7 : 8, def 8 : 9, define 9 : 0 ; mode=1, def 8 : ., def 9 : 9, symbol 8 : . =01@330
    define 5 : -7 =07@804, rewind : 0 ; at=0, get 9003 : . =01:01@330, def 6 : 6, def 5 : 2
    def 99 : 9, release a : 0 ; links= now=..)");
}

TEST(Scanner, CollectsRunsAndSkips) {
  Expect(R"(
    text a ab__12/_//if9- : ; links=a.+ mode=1 now=a. text='ab__12/_//if9-'
    run 3 : 3'ab'40 ; is=3 mode=4097 pending=3 value='', run 3 : 3'ab'40 ; at=2 value='ab'
    run 2 : . ; at=4 is=0 pending=. value='', run 4 : 4'12'60 ; is=4 mode=4096 pending=4
    run 9003 : 2'_'50 ; at=7 is=2 line=2@7 pending=2
    run 9003 : 1'/'10 ; at=9 is=1 line=3@9 pending=1, run 1 : 1'/'10 ; at=10 line=4@9 value='/'
    run 9003 : 7'-'70 ; at=13 is=7 line=5@11 pending=7 value='f'
    run 1 : . ; at=14 is=9002 pending=. value='', run 7 : ., run 9003 : ., run 7 : ., run 9003 : .
    rewind : 0 ; at=0 is=0 line=1@0, run 3 : 3'ab'40 ; is=3 pending=3
    get 9003 : 2'__'50 ; at=2 is=2 pending=2, run 2 : 2'__'50 ; at=4 value='__'
    run 4 : . ; at=6 is=0 pending=. value='', run 4 : ., advance -2 : ; at=4, run 1 : .
    rewind : 0 ; at=0, run 9002 : ., rewind : 0, skip 4 : 4'12'60 ; at=4 is=4 pending=4
    skip 1 : 1'/'10 ; at=6 column=6 is=1 pending=1, skip 1 : 1'/'10 ; at=8 column=1 line=2@7
    skip 5 : . ; at=14 column=0 is=9002 line=3@9 pending=., skip 6 : .
    rewind : 0 ; at=0 is=0 line=1@0, find 4 : 4, get 4 : ., find 1 : 6 ; column=6, find 3 : 0
    skip 4 : 4'12'60 ; at=4 is=4 pending=4, find 4 : 12 ; is=0, find 6 : . ; is=9002
    find 9002 : ., rewind : 0 ; at=0 is=0 pending=., own 3 : ; pending=3, find 1 : 6
    rewind : 0 ; pending=., of 4 1 0 : 4'12'60 ; at=4 is=4 pending=4
    get 9006 : . ; at=6 is=0 pending=., of 5 6 80000000 : . ; at=14 is=9002, of 6 0 : .
    rewind : 0 ; at=0 is=0, advance 6 : ; at=6, of 4 0 81000000 : 4'9'60 ; at=12 is=4 pending=4
    advance 8 : ; at=14 is=9002, of 3 81000000 : 3'f9'40 ; at=11 is=3 pending=3
    list 3 1 81000000 : 3'if9'40 ; at=10, advance 4 : ; at=14 is=9002, get 1 : . ; pending=.
    of 2 81000000 : ., rewind : 0 ; at=0 is=0, of 3 2 82000000 : . ; at=4
    list 4 1 2 83000000 : . ; at=1, rewind : 0 ; at=0, list 3 2 4 82000000 : . ; at=6
    list 6 0 : . ; at=14 is=9002, rewind : 0 ; at=0 is=0, advance 13 : ; at=13
    match 7 : 7'-'70 ; is=7 pending=7, run 7 : 7'-'70 ; at=14 value='-'
    set 3 abcd : ; nvalue=4 value='abc', add 2 xyz : ; value='abcxy'
    set 0 ab : ; nvalue=0 value='', set 4 ab12 : ; nvalue=4 value='ab12', set 2 0 : ; value='ab'
    release a : 0 ; links= now=..)");
}

TEST(Scanner, StreamsAreReadLineByLine) {
  // A carriage return that just fits, and one whose line feed comes behind the block.
  const std::string y(255, 'y'), z(254, 'z'), x(300, 'x');
  Folder().File("f", "one\r\ntwo\rthree\n" + x + "\n" + y + "\r\n" + z + "\r\n\r\nend");
  Expect(R"(
    open a f 1001 : ; links=aFa+Faa+ mode=1 now=a. text='one\a', line : ; text='two\'
    line : ; text='three/', line : ; text='xxx~256', line : ; text='xxx~45'
    line : ; text='yyy~257', line : ; text='zzz~256', line : ; text='\a', line : ; text='end'
    line : ; is=9002 text='', line :, rewind : 0 ; text='one\a'
    rest :  3x3 7x1 3x1 3x3 7x1 3x5 1x1 3x256 3x44 1x1 3x255 7x1 3x1 3x254 7x1 3x1 7x1 3x1 3x3 ; line=3@0 mode=4097 text=''
    rewind : 0 ; line=1@0 text='one\a', get 9007 : . ; is=0, get 3 : 3'one'40 ; is=3 pending=3
    get 9003 : 7'\'0 ; at=3 is=7 pending=7, get 9003 : 3'a'30 ; at=4 is=3 pending=3
    get 9003 : 3'two'40 ; at=0 text='two\', rewind : 0 ; pending=. text='one\a'
    skip 6 : . ; is=9002 text='', rewind : 0 ; text='one\a', find 1 : ., rewind : 0
    advance 2 : ; at=2 is=0, run 3 : 3'e'40 ; is=3 pending=3 value='', rewind : 0 ; at=0 pending=.
    get 9007 : . ; is=0, advance 4 : ; at=4, symbol 3 : 3'a'30 ; pending=3, lose Fa :
    rewind : -1 =01@675, line : ; at=0 is=9002 text='', release a : 0 ; links= now=..)");
}

TEST(Scanner, FollowsItsFile) {
  Expect(R"(
    write f one_two :, file G g 4012 : ; links=G.+ now=.G
    open a f 4002 : ; links=aFa+G.+Faa+ mode=1 now=aG text='one_two'
    get 3 : 3'one'40 ; is=3 mode=4097 pending=3
    append Fa _three : 6 ; is=0 pending=. text='one_two_three'
    rest :  3x3 2x1 3x3 2x1 3x5 ; at=13 is=9002 mode=4096
    text b abc : ; at=0 is=0 links=aFa+b.+G.+Faa+ mode=1 now=bG text='abc'
    resize Fa -9 : 0 ; is=9002, select a : a ; at=4 is=0 mode=4096 now=aG text='one_'
    get 9003 : 9002.0 ; is=9002 pending=9002, rewind : 0 ; at=0 is=0 pending=.
    rest :  3x3 2x1 ; at=4 is=9002, append Fa xy : 2 ; is=0 text='one_xy'
    rest :  3x2 ; at=6 is=9002, map Fa 0 : ; at=0 now=aFa text=., rewind : 0
    rest : ; pending=9002, map Fa 4 :, rewind : 0 ; is=0 pending=. text='one_xy'
    rest :  3x3 2x1 3x2 ; at=6 is=9002, current G : ; now=aG, close Fa : 0 ; links=b.+G.+ now=.G
    attach b G : ; at=0 links=bG+Gb+ mode=1 now=bG text='', attach b G : ; is=0
    release b : 0 ; links= now=..)");
  Expect(R"(
    write f one_two :, open a f 5002 : ; links=aFa+Faa+ mode=1 now=a. text='one_two'
    resize Fa 1000000 : 0 ; text='one~65536', map Fa 800000 : ; now=aFa
    rewind : 0 ; text='one~851968', map Fa 4 : ; text='one~65536'
    map Fa 300000000 : fails ; text=., rest : ; is=9002 pending=9002
    release a : 0 ; links= now=..)");
}

// Companions, too: one that has gone already, and one that releases who releases it.
TEST(Scanner, FilesAndScannersReleaseEachOther) {
  Expect(R"(
    write f one :, write g two :, file F f 4001 : ; links=F.+ now=.F
    attach a F : ; links=aF+Fa+ now=aF text='one', attach b F : ; links=aF+bF+Fb+ now=bF
    close F : 0 ; links=a.+ now=.., select a : a ; now=a. text=., define 0 : 0 ; mode=1
    rest : ; is=9002 pending=9002, release a : 0 ; links= now=..
    file F f 4001 : ; links=F.+ now=.F
    attach a F : ; is=0 links=aF+Fa+ mode=0 now=aF pending=. text='one'
    attach b F : ; links=aF+bF+Fb+ now=bF, release b : 0 ; links=a.+ now=..
    select a : a ; now=a. text=., define 0 : 0 ; mode=1, rest : ; is=9002 pending=9002
    release a : 0 ; links= now=.., file F f 1002 : ; links=F.+ now=.F
    file G g 4001 : ; links=F.+G.+ now=.G
    attach a F : ; is=0 links=aF+Fa+G.+ mode=0 now=aG pending=. text='one'
    attach a G : ; links=aG+Fa+Ga+ text='two', define 0 : 0 ; mode=1
    rest :  3x3 ; at=3 is=9002 mode=4097, resize F 1 : 0, release a : 0 ; links=F.+ now=..
    file G g 1001 : ; links=F.+G.+ now=.G, attach a G : ; at=0 is=0 links=aG+F.+Ga+ mode=0 now=aG
    with a F :, release a : 0 ; links= now=..
    open a f 1001 : ; links=aFa+Faa+ mode=1 now=a. text='one', with a Fa :
    release a : 0 ; links= now=.., open a f 1001 : ; links=aFa+Faa+ now=a., with a Fa :
    close Fa : 0 ; links= now=.., open a f 1001 : ; links=aFa+Faa+ now=a., parser a close :
    close Fa : 0 ; links= now=.., open a f 1001 : ; links=aFa+Faa+ now=a., parser a release :
    release a : 0 ; links= now=.., open a f 1001 : ; links=aFa+Faa+ now=a., parser a release :
    close Fa : 0 ; links= now=..)");
}

// Defines records "id.flags" of the text "ab" and of values from 0 on: with '-' of no text, with
// '+' of a byte more, with '!' of a constant. Returns what becomes of them.
std::string Defined(const std::string& records) {
  static std::deque<std::string> kept;
  std::vector<ScanDef> table;
  std::istringstream words(records);
  for (std::string word; words >> word;) {
    kept.push_back(word.ends_with("+") ? "abc" : "ab");
    const char* text = word.ends_with("-")   ? nullptr
                       : word.ends_with("!") ? "ab"
                                             : kept.back().data();
    table.push_back({text, std::stoi(word),
                     static_cast<uint32_t>(std::stoul(word.substr(2), nullptr, 16)), 0, 0});
  }
  table.emplace_back();
  ErrLast = 0;
  ScanSelect(nullptr);
  std::string result = std::to_string(ScanDefine(table.data(), 0));
  for (const ScanDef& def : table) {
    if (def.nId == 0) break;
    char shown[40];
    snprintf(shown, sizeof shown, " %d.%x:%u%s", def.nId, def.fFlags, def.nLength,
             def.pText ? def.pText : "-");
    result += shown;
  }
  result += CurrentScanner->nMode ? " masked !" : " !";
  result += std::to_string(ErrLast);
  result += " " + ClearedTrail();
  ScanClass(reinterpret_cast<uintptr_t>(CurrentScanner));
  return result;
}

TEST(Scanner, DefinitionsAreChecked) {
  const char* const kRows[][2] = {
      {"1.1 1.0 2.2 2.0", "0 1.11:2ab 1.11:2ab 2.12:2ab 2.12:2ab !0 "},
      {"1.3 1.0", "0 1.13:2ab 1.0:2ab !3 03"},
      {"1.4+ 1.14+", "0 1.14:3abc 1.14:3abc !2 02"},
      {"1.1 1.13 1.0 1.14 1.0 1.23 1.0 1.24 1.0",
       "0 1.11:2ab 1.13:2ab 1.11:2ab 1.14:2ab 1.11:2ab 1.23:2AB 1.11:2ab 1.24:2AB 1.11:2ab !0 "},
      {"1.0 2.1- 3.5 4.25", "0 1.0:2ab 2.1:0- 3.5:2ab 4.25:2AB !4 04:04:02:03"},
      {"1.22! 1.12!", "0 1.22:2ab 1.12:2ab !0 04"},
      {"1.80000001 1.80000000", "0 1.80010011:2ab 1.11:2ab masked !0 "},
      {"1.1 2.1 1.1 1.40000003", "0 1.11:2ab 2.10011:2ab 1.11:2ab 1.40000013:2ab masked !0 "},
      {"1.1 3.1000001-", "-7 1.11:2ab 3.1000001:0- !7 07:02"},
  };
  for (auto [records, result] : kRows) EXPECT_EQ(Defined(records), result) << records;
}

// A kind that does not exist ends the process when it is tried.
TEST(ScannerDeathTest, UnknownKindsAreFatal) {
  static ScanDef table[] = {{"a", 1, 77, 0, 0}, {nullptr, 0, 0, 0, 0}};
  ClsExitHook = [] { fprintf(stderr, "%s %d", ErrFile, ErrLine); };
  EXPECT_EXIT((ScanText("x", 1, table), ScanGet(1), exit(0)), testing::ExitedWithCode(1),
              "cscan 453");
  ClsExitHook = nullptr;
}

TEST(Scanner, FailuresHaveTheirCodes) {
  Folder().File("f", "text");
  Expect(R"(
    open a none 4001 : none =01:11@619 ; links=?.+
    open a f 4001 0 : none =03.01@623 ; links=aFa+?.+Faa+ now=a. text='text'
    release a : 0 ; links=?.+ now=..
    text a abc . 0 : none =03.01@632 ; line=0@0 links=a.+?.+ now=a. text=.
    release a : 0 ; links=?.+ now=.., define 0 : 0 ; links=?.+?.+ mode=1 now=?.
    rewind : 0 ; is=9002 line=1@0)");
  EXPECT_EQ(ScanText(reinterpret_cast<const char*>(16), 5, code), nullptr);
  EXPECT_EQ(ClearedTrail(), "01");
  alignas(Scanner) char memory[sizeof(Scanner)] = {};
  EXPECT_EQ(static_cast<void*>(ScanSelect(memory)), memory);
  EXPECT_EQ(ScanDefine(code, 0), 0);
  ScanAttachFile(memory, FileObjOpen(nullptr, Folder().Path("f").c_str(), FO_READ | FO_STREAMED));
  EXPECT_EQ(Rest(), " 3x4");
  EXPECT_EQ(ClsGarbage(0), 0u);
  EXPECT_TRUE(memory[0] == 0 && !ClassLists[kScanClass]);
}

}  // namespace
}  // namespace quern
