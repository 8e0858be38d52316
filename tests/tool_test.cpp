// The command-line program: what it prints, and its exit codes.

#include <regex>

#include "tests/support/test.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#define WEXITSTATUS(status) (status)
#define EXIT_3 "\"cmd /c exit 3\""
#else
#define EXIT_3 "'sh -c \"exit 3\"'"
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

void ExpectLike(const std::string& arguments, int code, const std::string& pattern) {
  Result result = Tavrix(arguments);
  EXPECT_EQ(result.code, code) << arguments;
  EXPECT_TRUE(std::regex_match(result.output, std::regex(pattern))) << arguments << result.output;
}

const std::string kFailure = "tavrix: .*\n";  // one line

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
  Expect(list + "\" \"*.c\"", 0, path("b.c"));
  Expect(list + Tree::Native("/*.txt") + "\" --recurse", 0,
         path("a.txt") + path("in/c.txt") + path("in/deep/d.txt"));
  for (const char* depth : {"--recurse=2", "--flags 0x80000002"})
    Expect(list + Tree::Native("/*.txt") + "\" " + depth, 0, path("a.txt") + path("in/c.txt"));
  Expect("list --recurse \"" + root + Tree::Native("/d*") + "\"", 0, path("in/deep/d.txt"));
  Expect(list + "\" \"i*\" --dirs --no-files", 0, path("in"));
  Expect(list + "\" --first --restart", 0, path("a.txt"));
  tree.File("x/a b");
  Expect("list \"" + tree.Path("x") + "\" --quote --as-found", 0,
         '"' + tree.Path("x/a b") + "\"\n");
  Expect("list \"" + tree.Path("none") + Tree::Native("/*") + "\"", 0, "");
  Expect("list \"" + std::string(300, 'r') + "\"", 1, "tavrix: error 02\n");
  for (std::string command : {"scan", "scan --stream", "scan --mapped", "dump", "companion"})
    ExpectLike(command + " \"" + tree.Path("none") + "\"", 1, kFailure);
}

TEST(Tool, SmallCommands) {
  SetEnvironmentVariableA("TVX_TOOL", "value");
  const std::tuple<const char*, int, std::string> kRows[] = {
      {"length abcdef", 0, "6\n"},
      {"compare abc abd 3", 0, "0\n"},
      {"span aaab a 2", 0, "3\n"},
      {"cspan abcdef e 3", 0, "3\n"},
      {"expand \"[%TVX_TOOL%]\"", 0, "\\[value\\]\n"},
      {"error 0x1D", 0,
       "message: Illegal file-open-mode specified\nsystem: " + SystemText(29) + "\n"},
      {"unhex 48 656C \"6C 6F 7\"", 0, "Hellop"},
      {"unhex --mode fit 0x41 4243 44h", 0, "ACBD"},
      {"unhex --mode words 41424344 4142", 0, "DCBABA"},
      {"stamp", 0, R"(\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d:\d{3}\n)"},
      {"time " EXIT_3, 0, R"(\d\d?\.\d{3}\n)"},
      {"time no-such-program-here", 1, "tavrix: cannot start 'no-such-program-here'\n"},
      {"colors", 0, "( 00  10  2D )[ \\dA-F\n]{1028}"},  // on a pipe without escapes
      {"--version", 0, "tavrix " TAVRIX_VERSION "\n"},
  };
  for (const auto& [command, code, pattern] : kRows) ExpectLike(command, code, pattern);
  Expect("unhex 000AFF", 0, std::string("\0\n\xFF", 3));
  Tree tree;
  for (const char* file : {"a", "b", "c/d"}) tree.File(file);
  Expect("progress \"" + tree.Path() + "\"", 0, std::string(79, '#') + "\n3 names\n");
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
  ExpectLike("edit " + file + " --at 100 --insert x", 1, "tavrix: Error 01 \\(CFILE.*\n");
  tree.File("f.log");
  Expect("companion \"" + tree.Path("f.exe") + "\" .log", 0, tree.Path("f.log") + "\n");
  tree.File("d/x.c");
  Expect("walk \"" + tree.Path() + "\" \"*.c\"", 0, "5\n  1 d\n6\n5\n  5\n    2 x.c\n  6\n6\n");
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
}

TEST(Tool, DumpsFiles) {
  Tree tree;
  const std::string ruler = "  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F  0123456789ABCDEF\n";
  const std::string head = "    Offset:" + ruler, dump = "dump \"" + tree.Path("f") + "\"";
  tree.File("f", "0123456789ABCDEFGHI\x01");
  Expect(dump, 0,
         head + "0x00000000: 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46  0123456789ABCDEF\n" +
             "0x00000010: 47 48 49 01                                      GHI.\n");
  Expect(dump + " --offset 5 --length 3 --base 0x1000", 0,
         head + "0x00001005: 35 36 37                                         567\n");
  EXPECT_TRUE(Tavrix(dump + " --file-offset").output.starts_with("FileOffset:" + ruler));
  Expect(dump + " --offset 0x7000000000000000", 0, head);
  // Labels go on from block to block.
  tree.File("f", std::string(150'003, 'x'));
  const std::string lines = Tavrix(dump).output;
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1 + 9376);
  EXPECT_TRUE(
      lines.ends_with("0x000249F0: 78 78 78                                         xxx\n"));
  std::filesystem::resize_file(tree.root() / "f", 0x100000010);  // sparse
  Expect(dump + " --offset 0x10000000E", 0,
         head + "0x0000000E: 00 00                                            ..\n");
  EXPECT_EQ(Tavrix("dump \"" + tree.Path() + "\"").code, 1);
}

// A program for 64 bits with one section.
std::string ProgramImage() {
  std::string image(216, '\0');
  std::istringstream fields(
      "0 5A4D 3C 48 48 4550 4C 8664 4E 1 5C 50 5E 2102 60 20B 78 40000000 7C 1 A6 141 B0 165742E "
      "B4 74 D4 60000020");
  uint32_t value;
  for (size_t at; fields >> std::hex >> at >> value;)
    for (; value != 0; value >>= 8) image[at++] = static_cast<char>(value);
  return image;
}

TEST(Tool, ShowsHeadersOfPrograms) {
  Tree tree;
  const std::string header = "header \"" + tree.Path("image") + "\"", bytes = ProgramImage();
  tree.File("image", bytes);
  const Result whole = Tavrix(header);
  EXPECT_EQ(whole.code, 0);
  for (const char* field :
       {"Machine += 0x8664 AMD64", R"(Magic += 0x020b PE32\+)",
        R"(Characteristics += 0x2102 EXECUTABLE\|32BIT\|DLL)", "ImageBase, high += 0x00000001",
        R"(DllCharacteristics += 0x0141 DYNAMIC_BASE\|NX \[1\])",
        R"(Characteristics += 0x60000020 CODE\|EXECUTE\|READ)",
        "struct IMAGE_SECTION_HEADER \"\\.te\\.t\":"})
    EXPECT_TRUE(std::regex_search(whole.output, std::regex(std::string("[ *\n]") + field + "\n")))
        << field << whole.output;
  for (size_t size : {0, 1, 2, 63, 64, 71, 95, 97, 119, 175, 176, 215}) {
    tree.File("image", bytes.substr(0, size));
    ExpectLike(header, 1, kFailure);
  }
  for (auto [at, value] : {std::pair(96, 9), {63, 0xFF}, {60, 0x44}}) {  // no such kind or place
    tree.File("image", std::string(bytes).replace(at, 1, 1, static_cast<char>(value)));
    ExpectLike(header, 1, kFailure);
  }
}

#ifndef _WIN32
TEST(Tool, OutputThatIsNotWrittenIsAFailure) {
  Tree tree;
  tree.File("f.c", ProgramImage());
  std::string in = " '" + tree.Path() + "' ", file = " '" + tree.Path("f.c") + "' ";
  const std::string all = "list" + in + ";walk" + in + "'*';companion" + file + ".c;dump" + file +
                          ";header" + file + ";scan" + file + ";scan --count" + file + ";progress" +
                          in + ";compare a b 1;unhex 41;span a a;cspan a b;length a;expand A;" +
                          "time true;stamp;colors;error 29;--help;list --help;--version";
  std::istringstream commands(all);
  for (std::string command; std::getline(commands, command, ';');) {
    EXPECT_EQ(Tavrix(command).code, 0) << command;
    Expect(command + " >/dev/full", 1, "tavrix: the output is not written\n");
  }
  Expect("run " EXIT_3 " >/dev/full", 0, "");  // prints nothing
}
#endif

TEST(Tool, WrongOptionsGetOneLine) {
  for (const char* wrong :
       {"", "nonsense", "list x --bogus", "list x --recurse=deep", "compare a b x", "span a b 0",
        "span a b 9", "list x --flags 0x100000000", "list x --flags -1", "error 1 2", "stamp 16",
        "time", "scan x --table d", "scan x --stream --mapped", "dump x --offset \"\"",
        "dump x --base 0x100000000", "dump x --address --file-offset", "unhex 12 --mode bits"})
    ExpectLike(wrong, 2, kFailure);
  EXPECT_NE(Tavrix("list --help").output.find("--recurse"), std::string::npos);
}

}  // namespace
