// The command-line program: what it prints, and its exit codes.

#include <regex>

#include "tests/support/test.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#define WEXITSTATUS(status) (status)
#else
#endif

namespace {

using tavrix_test::Tree;

struct Result {
  int code;
  std::string output;  // both streams
};

Result Tavrix(const std::string& arguments) {
  std::string command = '"' + Tree::Native(TAVRIX_PROGRAM) + "\" 2>&1 " + arguments;
#ifdef _WIN32
  command = '"' + command + '"';  // which cmd takes away
#endif
  FILE* pipe = popen(command.c_str(), "r");
  Result result = {-1, ""};
  if (!pipe) return result;
  for (int c; (c = fgetc(pipe)) != EOF;)
    if (c != '\r') result.output += static_cast<char>(c);
  result.code = WEXITSTATUS(pclose(pipe));
  return result;
}

void Expect(const std::string& arguments, int code, const std::string& output) {
  Result result = Tavrix(arguments);
  EXPECT_EQ(result.code, code) << arguments;
  EXPECT_EQ(result.output, output) << arguments;
}

std::string SystemText(DWORD code) {
  char* text = nullptr;
  FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0,
                 reinterpret_cast<char*>(&text), 0, nullptr);
  std::string message = text ? text : "";
  LocalFree(text);
  return message.substr(0, message.find("\r\n"));
}

TEST(Tool, ListsWithEveryFlag) {
  Tree tree;
  for (const char* file : {"a.txt", "b.c", "in/c.txt", "in/deep/d.txt"}) tree.File(file);
  std::string root = tree.Path(), list = "list \"" + root;
  auto path = [&](const char* name) { return tree.Path(name) + "\n"; };
  Expect(list + "\"", 0, path("a.txt") + path("b.c"));
  Expect(list + "\" *.c", 0, path("b.c"));
  Expect(list + Tree::Native("/*.txt") + "\" --recurse", 0,
         path("a.txt") + path("in/c.txt") + path("in/deep/d.txt"));
  Expect("list --recurse=2 \"" + root + Tree::Native("/*.txt") + "\"", 0,
         path("a.txt") + path("in/c.txt"));
  Expect("list --recurse \"" + root + Tree::Native("/d*") + "\"", 0, path("in/deep/d.txt"));
  Expect(list + Tree::Native("/*.txt") + "\" --flags 0x80000002", 0,
         path("a.txt") + path("in/c.txt"));
  Expect(list + "\" i* --dirs --no-files", 0, path("in"));
  Expect(list + "\" --first --restart", 0, path("a.txt"));
  tree.File("x/a b");
  Expect("list \"" + tree.Path("x") + "\" --quote --as-found", 0,
         '"' + tree.Path("x/a b") + "\"\n");
  Expect("list \"" + tree.Path("none") + Tree::Native("/*") + "\"", 0, "");
  Expect("list \"" + std::string(300, 'r') + "\"", 1, "tavrix: error 02\n");
}

TEST(Tool, StringCommands) {
  Expect("length abcdef", 0, "6\n");
  Expect("compare abc abd 2", 0, "1\n");
  Expect("compare abc abd 3", 0, "0\n");
  Expect("compare b a 1", 0, "2\n");
  Expect("span aaab a", 0, "4\n");
  Expect("span aaab a 2", 0, "3\n");
  Expect("cspan abcdef e 3", 0, "3\n");
}

TEST(Tool, ShowsTextsOfErrors) {
  Expect("error 29", 0,
         "message: Illegal file-open-mode specified\nsystem: " + SystemText(29) + "\n");
  Expect("error 0x52E", 0, "system: " + SystemText(0x52E) + "\n");
  Expect("error 999999", 1, "tavrix: no text for code 999999\n");
}

TEST(Tool, ConsoleCommandsOnAPipeWriteNoEscapes) {
  Result colors = Tavrix("colors");
  EXPECT_EQ(colors.code, 0);
  EXPECT_TRUE(colors.output.starts_with(" 00  10  2D ")) << colors.output;
  EXPECT_EQ(colors.output.find('\x1B'), colors.output.npos);
  EXPECT_EQ(colors.output.size(), 16 * (16 * 4 + 1u));
  Tree tree;
  for (const char* file : {"a", "b", "c/d"}) tree.File(file);
  Expect("progress \"" + tree.Path() + "\"", 0, std::string(79, '#') + "\n3 names\n");
  Expect("progress \"" + tree.Path("none") + Tree::Native("/*") + "\"", 0, "0 names\n");
  SetEnvironmentVariableA("TVX_TOOL", "value");
  Expect("expand TVX_TOOL", 0, "value\n");
  Expect("expand \"[%TVX_TOOL%]\"", 0, "[value]\n");
}

TEST(Tool, EditsFiles) {
  Tree tree;
  tree.File("f", "0123456789");
  std::string file = "\"" + tree.Path("f") + "\"";
  Expect("edit " + file + " --at 2 --delete 3 --insert ab", 0, "");
  EXPECT_EQ(tree.Read("f"), "01ab56789");
  Expect("append " + file + " \"<%s>\" text", 0, "");
  Expect("append " + file + " end", 0, "");
  EXPECT_EQ(tree.Read("f"), "01ab56789<text>end");
  Result result = Tavrix("edit " + file + " --at 100 --insert x");
  EXPECT_EQ(result.code, 1);
  EXPECT_TRUE(result.output.starts_with("tavrix: Error 01 (CFILE")) << result.output;
  EXPECT_EQ(Tavrix("append " + file + " %d 5").code, 2);
  tree.File("tool.log");
  Expect("companion \"" + tree.Path("tool.exe") + "\" .log", 0, tree.Path("tool.log") + "\n");
  EXPECT_EQ(Tavrix("companion .no-such").code, 1);
  tree.File("d/x.c");
  Expect("walk \"" + tree.Path() + "\" *.c", 0, "5\n  1 d\n6\n5\n  5\n    2 x.c\n  6\n6\n");
}

TEST(Tool, ScansFiles) {
  Tree tree;
  std::string text =
      "int a_1 =\t0x1Fu;\n"
      "s = \"//\\n\"; // it's\n"
      "/*\v*/ p->x >>= '\\n' \"open\n"
      "\x01@\xC3\xA4";
  tree.File("f", text);
  std::string file = "\"" + tree.Path("f") + "\"";
  std::string tokens =
      "1:1 name int\n1:4 blank  \n1:5 name a_1\n1:8 blank  \n1:9 operator =\n1:10 blank \\t\n"
      "1:11 number 0x1Fu\n1:16 operator ;\n1:17 line-end \\n\n"
      "2:1 name s\n2:2 blank  \n2:3 operator =\n2:4 blank  \n2:5 string \"//\\\\n\"\n"
      "2:11 operator ;\n2:12 blank  \n2:13 line-comment // it's\n2:20 line-end \\n\n"
      "3:1 comment /*\n3:3 blank \\v\n3:4 comment */\n3:6 blank  \n3:7 name p\n3:8 operator ->\n"
      "3:10 name x\n3:11 blank  \n3:12 operator >>=\n3:15 blank  \n3:16 character '\\\\n'\n"
      "3:20 blank  \n3:21 other \"\n3:22 name open\n3:26 line-end \\n\n"
      "4:1 other \\001\n4:2 other @\n4:3 name \xC3\xA4\n";
  for (const char* source : {"", " --stream", " --mapped"})
    Expect("scan " + file + source, 0, tokens);

  tree.File("f.ini", "; [a]\r\n[a b]\r\nx.y=\"1;\" [c]\n\n]");
  std::string ini = "scan --table ini \"" + tree.Path("f.ini") + "\"";
  Expect(ini, 0,
         "1:1 comment ; [a]\n1:6 line-end \\r\\n\n2:1 section [a b]\n2:6 line-end \\r\\n\n"
         "3:1 name x.y\n3:4 equals =\n3:5 string \"1;\"\n3:9 blank  \n3:10 other [\n3:11 name c\n"
         "3:12 other ]\n3:13 line-end \\n\n4:1 line-end \\n\n5:1 other ]\n");
  Expect(ini + " --count", 0,
         "line-end 4 6\nblank 1 1\nname 2 4\nstring 1 4\nother 3 3\nsection 1 5\ncomment 1 5\n"
         "equals 1 1\n");

  std::string none = "scan \"" + tree.Path("none") + "\"";
  for (const char* source : {"", " --stream", " --mapped"}) {
    Result result = Tavrix(none + source);
    EXPECT_EQ(result.code, 1) << source;
    EXPECT_TRUE(result.output.starts_with("tavrix: error ")) << source << result.output;
  }
}

// A line of a dump, written anew: a label, 48 columns of digits, the characters.
std::string DumpLines(const std::string& bytes, uint32_t label) {
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 16) {
    char number[16];
    snprintf(number, sizeof number, "0x%08X:", label + static_cast<uint32_t>(at));
    std::string digits, characters;
    for (char c : bytes.substr(at, 16)) {
      auto byte = static_cast<unsigned char>(c);
      char pair[8];
      snprintf(pair, sizeof pair, " %02X", byte);
      digits += pair;
      characters += byte < 32 || byte == 127 ? '.' : c;
    }
    digits.resize(49, ' ');
    text += number + digits + ' ' + characters + '\n';
  }
  return text;
}
const std::string kRuler = "  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F  0123456789ABCDEF\n";

TEST(Tool, DumpsFiles) {
  Tree tree;
  std::string bytes;
  for (uint32_t i = 0; i < 150'003; ++i) bytes += static_cast<char>(i * 7 ^ i >> 8);
  std::erase(bytes, '\r');  // which Tavrix() takes away
  tree.File("f", bytes);
  std::string dump = "dump \"" + tree.Path("f") + "\"";
  std::string head = "    Offset:" + kRuler;
  Expect(dump, 0, head + DumpLines(bytes, 0));  // longer than a block
  Expect(dump + " --offset 5 --length 37 --base 0x1000", 0,
         head + DumpLines(bytes.substr(5, 37), 0x1005));
  Expect(dump + " --offset 7 --length 65553 --file-offset", 0,
         "FileOffset:" + kRuler + DumpLines(bytes.substr(7, 65553), 7));
  Expect(dump + " --offset 0x7000000000000000", 0, head);

  // Addresses go on from block to block.
  Result result = Tavrix(dump + " --address");
  EXPECT_EQ(result.code, 0);
  std::smatch label;
  ASSERT_TRUE(std::regex_search(result.output, label, std::regex("\n0x([0-9A-F]+): 00 07")));
  uint64_t address = std::stoull(label[1], nullptr, 16);
  char last[32];
  snprintf(last, sizeof last,
           "\n0x%08llX: ", static_cast<unsigned long long>(address + (bytes.size() - 1) / 16 * 16));
  EXPECT_NE(result.output.find(last), std::string::npos) << last;

  EXPECT_EQ(Tavrix("dump \"" + tree.Path("none") + "\"").code, 1);
  EXPECT_EQ(Tavrix("dump \"" + tree.Path() + "\"").code, 1);
}

TEST(Tool, DumpsBehindFourGigabytes) {
  Tree tree;
  tree.File("f");
  std::filesystem::resize_file(tree.root() / "f", 0x100000010);  // takes no room on the disk
  std::ofstream(tree.root() / "f", std::ios::binary | std::ios::app) << "the end";
  Expect("dump --offset 0x100000008 \"" + tree.Path("f") + "\"", 0,
         "    Offset:" + kRuler + DumpLines(std::string(8, '\0') + "the end", 8));
}

TEST(Tool, TurnsHexIntoBytes) {
  Expect("unhex 48 656C \"6C 6F 7\"", 0, "Hellop");
  Expect("unhex --mode fit 0x41 4243 44h", 0, "ACBD");
  Expect("unhex --mode words 41424344 4142", 0, "DCBABA");
  Expect("unhex --mode long 41424344", 0, "DCBA");
  for (const char* wrong : {"\"\"", "12 zz", "--mode long g"})
    Expect(std::string("unhex ") + wrong, 1, "tavrix: the text is not hexadecimal\n");
  Expect("unhex 000AFF", 0, std::string("\0\n\xFF", 3));
}

// Bytes of a file's header, the least significant one first.
struct Image {
  std::string bytes;
  Image& Text(const std::string& text) {
    bytes += text;
    return *this;
  }
  Image& Number(int size, uint64_t value) {
    for (; size > 0; --size, value >>= 8) bytes += static_cast<char>(value);
    return *this;
  }
};

// The fields of a header that stand for something, each with its value and names.
void ExpectFields(const std::string& output,
                  const std::vector<std::pair<std::string, std::string>>& fields) {
  for (const auto& [field, value] : fields)
    EXPECT_TRUE(std::regex_search(output, std::regex("[ *]" + field + " +" + value + "\n")))
        << field << " " << value << "\n"
        << output;
}

// Every shorter file gets a line and exit code 1, from somewhere below `needed` bytes on.
void ExpectTruncatedRefused(const Tree& tree, const std::string& bytes, size_t needed) {
  for (size_t size = 0; size <= bytes.size(); size += size + 24 < needed ? 13 : 1) {
    tree.File("short", bytes.substr(0, size));
    Result result = Tavrix("header \"" + tree.Path("short") + "\"");
    EXPECT_EQ(result.code, size < needed ? 1 : 0) << size;
    if (result.code != 0) {
      EXPECT_TRUE(std::regex_match(result.output, std::regex("tavrix: .*\n"))) << result.output;
    }
  }
}

Result Header(const Tree& tree, const std::string& bytes) {
  tree.File("image", bytes);
  return Tavrix("header \"" + tree.Path("image") + "\"");
}

// A program for 32 or 64 bits with one section. Its fields have the numbers 1, 2, ... where they
// have no meaning here.
std::string ProgramImage(bool wide) {
  Image image = Image().Text("MZ");
  for (uint64_t i = 1; i < 30; ++i) image.Number(2, i);
  image.Number(4, 72).Number(8, 0);
  image.Text("PE").Number(2, 0).Number(2, wide ? 0x8664 : 0x14C).Number(2, 1).Number(12, 0);
  image.Number(2, 80).Number(2, 0x2102);
  image.Number(2, wide ? 0x20B : 0x10B).Number(2, 0x0E02);
  for (uint64_t i = 1; i <= 5; ++i) image.Number(4, i);
  wide ? image.Number(8, 0x140000000) : image.Number(4, 6).Number(4, 0x400000);
  image.Number(4, 0x1000).Number(4, 0x200);
  for (uint64_t i = 1; i <= 6; ++i) image.Number(2, i);
  for (uint64_t i = 1; i <= 4; ++i) image.Number(4, i);
  image.Number(2, 3).Number(2, 0x141).Number(8, 0);
  image.Text(".te\x01t").Number(3, 0);
  for (uint64_t i = 1; i <= 6; ++i) image.Number(4, i);
  return image.Number(4, 0).Number(4, 0x60000020).bytes;
}

TEST(Tool, ShowsHeadersOfPrograms) {
  Tree tree;
  for (bool wide : {false, true}) {
    std::string bytes = ProgramImage(wide);
    Result result = Header(tree, bytes);
    EXPECT_EQ(result.code, 0);
    ExpectFields(result.output,
                 {{"e_magic", "= 0x5a4d MZ"},
                  {"e_ovno", "= 0x000d"},
                  {"e_lfanew", "= 0x00000048 .*"},
                  {"Machine", wide ? "= 0x8664 AMD64" : "= 0x014c I386"},
                  {"Characteristics", R"(= 0x2102 EXECUTABLE\|32BIT\|DLL)"},
                  {"Magic", wide ? R"(= 0x020b PE32\+)" : "= 0x010b PE32"},
                  {"ImageBase", wide ? "= 0x40000000" : "= 0x00400000"},
                  {wide ? "ImageBase, high" : "BaseOfData", wide ? "= 0x00000001" : "= 0x00000006"},
                  {"MinorImageVersion", "= 0x0004"},
                  {"Subsystem", "= 0x0003 WINDOWS_CUI"},
                  {"DllCharacteristics", R"(= 0x0141 DYNAMIC_BASE\|NX \[1\])"},
                  {"PointerToRawData", "= 0x00000004"},
                  {"Characteristics", R"(= 0x60000020 CODE\|EXECUTE\|READ)"}});
    EXPECT_NE(result.output.find("struct IMAGE_SECTION_HEADER \".te.t\":\n"), std::string::npos)
        << result.output;
    ExpectTruncatedRefused(tree, bytes, bytes.size());
  }
  std::string bytes = ProgramImage(false);
  bytes[96] = 9;  // an unknown kind of optional header
  EXPECT_EQ(Header(tree, bytes).code, 1);
  bytes = ProgramImage(false);
  EXPECT_EQ(Header(tree, bytes.replace(60, 4, "\xF0\xFF\xFF\xFF")).code, 1);
  EXPECT_EQ(Header(tree, bytes.replace(60, 4, std::string("\x44\0\0\0", 4))).code, 1);
}

TEST(Tool, TellsTheTime) {
  Result stamp = Tavrix("stamp");
  EXPECT_EQ(stamp.code, 0);
  EXPECT_TRUE(
      std::regex_match(stamp.output, std::regex(R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d:\d{3}\n)")))
      << stamp.output;
  EXPECT_EQ(Tavrix("stamp 4").output.size(), 9u);
#ifdef _WIN32
  Result time = Tavrix("time \"cmd /c exit 3\"");
#else
  Result time = Tavrix("time 'sh -c \"exit 3\"'");
#endif
  EXPECT_EQ(time.code, 0);
  EXPECT_TRUE(std::regex_match(time.output, std::regex(R"(\d\d?\.\d{3}\n)"))) << time.output;
  Expect("time no-such-program-here", 1, "tavrix: cannot start 'no-such-program-here'\n");
}

#ifndef _WIN32
TEST(Tool, OutputThatIsNotWrittenIsAFailure) {
  Tree tree;
  tree.File("f.c", ProgramImage(false));
  std::string in = " '" + tree.Path() + "' ", file = " '" + tree.Path("f.c") + "' ";
  const std::vector<std::string> commands = {"list" + in,
                                             "walk" + in + "'*'",
                                             "companion" + file + ".c",
                                             "dump" + file,
                                             "header" + file,
                                             "scan" + file,
                                             "scan --count" + file,
                                             "progress" + in,
                                             "compare a b 1",
                                             "unhex 41",
                                             "span a a",
                                             "cspan a b",
                                             "length a",
                                             "expand A",
                                             "time true",
                                             "stamp",
                                             "colors",
                                             "error 29",
                                             "--help",
                                             "list --help",
                                             "--version"};
  for (const std::string& command : commands) {
    EXPECT_EQ(Tavrix(command).code, 0) << command;
    Expect(command + " >/dev/full", 1, "tavrix: the output is not written\n");
  }
  Expect("run 'sh -c \"exit 3\"' >/dev/full", 0, "");  // prints nothing
}
#endif

TEST(Tool, WrongOptionsGetOneLine) {
  for (const char* wrong :
       {"", "nonsense", "list x --bogus", "list x --recurse=deep", "compare a b x", "span a b 0",
        "span a b 9", "list x --flags 0x100000000", "list x --flags -1", "error 1 2", "stamp 16",
        "time", "scan x --table d", "scan x --stream --mapped", "dump x --offset \"\"",
        "dump x --base 0x100000000", "dump x --address --file-offset", "unhex 12 --mode bits"}) {
    Result result = Tavrix(wrong);
    EXPECT_EQ(result.code, 2) << wrong;
    EXPECT_EQ(result.output.find('\n'), result.output.size() - 1) << wrong << ": " << result.output;
    EXPECT_EQ(result.output.find("tavrix: "), 0u) << wrong;
  }
  EXPECT_EQ(Tavrix("--help").code, 0);
  EXPECT_NE(Tavrix("list --help").output.find("--recurse"), std::string::npos);
  EXPECT_EQ(Tavrix("--version").output, "tavrix " TAVRIX_VERSION "\n");
}

}  // namespace
